// Recordings of any calls, made of any bytes, whole or cut off. What must hold: the calls that were
// written come back, in contexts and frames none is lost, and inputs that are handed over again are
// found equal; with one bit changed they are not, and words are found for that.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/byte_reader.h"
#include "fuzz/scratch_file.h"
#include "recorder/recording.h"
#include "simulator/replay/frame_search.h"

namespace rec = corvane_recording;

namespace {

using corvane_fuzz::ByteReader;
using corvane_fuzz::Require;

template <typename Record>
void Append(const Record& record, std::string* file) {
  file->append(reinterpret_cast<const char*>(&record), sizeof(record));
}

void AppendCall(ByteReader* bytes, std::string* file) {
  rec::RecordHeader header = {};
  header.function = bytes->Take<uint8_t>() % (rec::kFunctionCount + 1);
  header.ret = bytes->Take<int8_t>() % 3;
  header.context = bytes->Take<uint8_t>() % 3;
  header.flags = bytes->Take<uint8_t>() % 7;
  header.items = bytes->Take<uint8_t>() % 4;
  std::vector<rec::ItemHeader> items(header.items);
  std::string body;
  for (rec::ItemHeader& item : items) {
    item.index = bytes->Take<uint8_t>() % 3;
    item.type = bytes->Take<uint8_t>() % 6;
    item.format = bytes->Take<uint8_t>() % 3;
    item.pass_through = bytes->Take<uint8_t>() % 2;
    // Also as large as the attributes of a tensor, which then have any values.
    const bool is_attribute = header.function == rec::kQuery && bytes->Take<uint8_t>() % 2 == 1;
    std::string data(is_attribute ? sizeof(rknn_tensor_attr) : bytes->Take<uint8_t>() % 50, '\0');
    for (char& byte : data) byte = static_cast<char>(bytes->Take<uint8_t>());
    item.size = static_cast<uint32_t>(data.size());
    item.stored = bytes->Take<uint8_t>() % 4 == 0 ? 0 : item.size;
    item.hash = rec::Hash(data.data(), data.size());
    Append(item, &body);
    body.append(data, 0, item.stored).append(rec::Padding(item.stored), '\0');
  }
  header.bytes = static_cast<uint32_t>(body.size());
  header.checksum = rec::Checksum(header, items.data());
  Append(header, file);
  file->append(body);
}

void Replay(const rec::Recording& recording) {
  std::vector<rknn_sim::RecordedContext> contexts = rknn_sim::ReadContexts(recording);
  rknn_sim::FrameSearch search(&contexts);
  for (rknn_sim::RecordedContext& context : contexts) {
    for (std::size_t i = 1; i < context.frames.size(); ++i) {
      const rec::RecordedCall& set = *context.frames[i].set;
      std::vector<rknn_sim::GivenInput> inputs;
      std::string copies;
      bool is_stored = true;
      for (const rec::RecordedItem& item : set.items) {
        is_stored &= item.bytes.size() == item.header.size;
        copies.append(item.bytes);
        inputs.push_back({item.header, nullptr});
        inputs.back().header.stored = 0;
      }
      if (!is_stored) continue;
      std::size_t at = 0;
      for (rknn_sim::GivenInput& input : inputs) {
        input.bytes = reinterpret_cast<const uint8_t*>(copies.data()) + at;
        at += input.header.size;
      }
      const auto found = search.Find(&context, inputs);
      Require(found.frame != nullptr && found.is_equal, "equal inputs are not found");
      found.frame->is_played = true;
      if (copies.empty()) continue;
      copies[0] = static_cast<char>(copies[0] ^ 1);
      std::size_t first = 0;
      while (inputs[first].header.size == 0) ++first;
      inputs[first].header.hash = rec::Hash(inputs[first].bytes, inputs[first].header.size);
      Require(!AreEqual(inputs, set), "a changed bit goes unseen");
      Require(CountDifferingBytes(inputs, set, 100) == 1, "another count of changed bytes");
      Require(!DescribeDifference(inputs, set, context).empty(), "no words for a changed bit");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const corvane_fuzz::ScratchFile file;
  ByteReader bytes(data, size);
  const auto cut = bytes.Take<uint16_t>();
  std::string text(rec::kMagic, sizeof(rec::kMagic));
  text.resize(sizeof(rec::FileHeader));
  std::size_t calls = 0;
  for (; !bytes.IsEmpty(); ++calls) AppendCall(&bytes, &text);
  const bool is_cut = cut > sizeof(rec::FileHeader) && cut < text.size();
  if (is_cut) text.resize(cut);
  file.Write(text);
  rec::Recording recording;
  std::string why;
  Require(recording.Read(file.path(), &why), "a recording is refused");
  Require(is_cut ? recording.calls().size() < calls
                 : recording.calls().size() == calls && recording.end().empty(),
          "calls are lost or made up");
  Replay(recording);
  return 0;
}

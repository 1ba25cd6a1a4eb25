#include "simulator/replay/input_difference.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "simulator/interface/rknn_names.h"
#include "simulator/numbers/tensor_codec.h"

namespace rknn_sim {

namespace {

bool HaveOneDescription(const ItemHeader& a, const ItemHeader& b) {
  return a.index == b.index && a.size == b.size && a.type == b.type && a.format == b.format &&
         a.pass_through == b.pass_through;
}

bool AreEqual(const GivenInput& given, const ItemHeader& recorded) {
  // Of a call that failed the bytes were not read.
  return HaveOneDescription(given.header, recorded) &&
         (recorded.hash == 0 || given.header.hash == recorded.hash);
}

std::string DescriptionOf(const ItemHeader& input) {
  char text[120];
  const char* const type = TypeNameInFiles(input.type);
  const char* const format = FormatName(input.format);
  std::snprintf(text, sizeof(text), "index %u, %u bytes of %s %s, pass_through %u", input.index,
                input.size, type != nullptr ? type : "an unknown type",
                format != nullptr ? format : "in an unknown format", input.pass_through);
  return text;
}

// "channel 1, row 3, column 4", or the element's number where the shape is not that of a picture.
std::string PlaceOf(std::size_t element, const rknn_tensor_attr* attr, uint32_t format) {
  char text[120];
  std::snprintf(text, sizeof(text), "element %zu", element);
  if (attr == nullptr || attr->n_dims != 4) return text;
  const bool is_chw = RawValue(attr->fmt) == RKNN_TENSOR_NCHW;  // dims: the innermost first
  const std::size_t channels = attr->dims[is_chw ? 2 : 0], columns = attr->dims[is_chw ? 0 : 1],
                    rows = attr->dims[is_chw ? 1 : 2];
  const std::size_t picture = channels * columns * rows;
  if (picture == 0) return text;
  const std::size_t rest = element % picture;
  const bool is_planar = format == RKNN_TENSOR_NCHW;
  const std::size_t pixel = is_planar ? rest % (columns * rows) : rest / channels;
  const std::size_t channel = is_planar ? rest / (columns * rows) : rest % channels;
  std::snprintf(text, sizeof(text), "channel %zu, row %zu, column %zu", channel, pixel / columns,
                pixel % columns);
  return attr->dims[3] > 1 ? "picture " + std::to_string(element / picture) + ", " + text : text;
}

std::string ElementText(uint32_t type, const uint8_t* bytes, std::size_t width) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.9g (", static_cast<double>(ElementAsNumber(type, bytes)));
  std::string all = std::string(text) + "0x";
  for (std::size_t i = width; i > 0; --i) {
    std::snprintf(text, sizeof(text), "%02x", bytes[i - 1]);
    all += text;
  }
  return all + ")";
}

// The bytes of both have one description and differ.
std::string DescribeElements(const GivenInput& given, const uint8_t* recorded,
                             const rknn_tensor_attr* attr) {
  const bool is_own = given.header.pass_through != 0 && attr != nullptr;
  const uint32_t type = is_own ? RawValue(attr->type) : given.header.type;
  const uint32_t format = is_own ? RawValue(attr->fmt) : given.header.format;
  const std::size_t width = std::max<std::size_t>(ElementBytes(type), 1);
  const std::size_t count = given.header.size / width;
  std::size_t first = count, differing = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (std::memcmp(given.bytes + i * width, recorded + i * width, width) == 0) continue;
    first = std::min(first, i);
    ++differing;
  }
  const std::string name =
      "input " + std::to_string(given.header.index) +
      (attr != nullptr && attr->name[0] != '\0'
           ? " '" + std::string(attr->name, strnlen(attr->name, sizeof(attr->name))) + "'"
           : "");
  if (differing == 0) return name + " differs after its last whole element";
  return name + ", " + PlaceOf(first, attr, format) + ": " +
         ElementText(type, given.bytes + first * width, width) + ", in the recording " +
         ElementText(type, recorded + first * width, width) + "; " + std::to_string(differing) +
         " of " + std::to_string(count) + " elements differ";
}

}  // namespace

bool AreEqual(const std::vector<GivenInput>& given, const RecordedCall& recorded) {
  if (given.size() != recorded.items.size()) return false;
  for (std::size_t i = 0; i < given.size(); ++i) {
    if (!AreEqual(given[i], recorded.items[i].header)) return false;
  }
  return true;
}

uint64_t CountDifferingBytes(const std::vector<GivenInput>& given, const RecordedCall& recorded,
                             uint64_t limit) {
  if (given.size() != recorded.items.size()) return limit;
  uint64_t count = 0;
  for (std::size_t i = 0; i < given.size() && count < limit; ++i) {
    const RecordedItem& item = recorded.items[i];
    if (AreEqual(given[i], item.header)) continue;
    if (!HaveOneDescription(given[i].header, item.header) || given[i].bytes == nullptr ||
        item.bytes.size() != item.header.size) {
      return limit;
    }
    for (std::size_t k = 0; k < item.bytes.size() && count < limit; ++k) {
      count += given[i].bytes[k] != static_cast<uint8_t>(item.bytes[k]) ? 1 : 0;
    }
  }
  return count;
}

std::string DescribeDifference(const std::vector<GivenInput>& given, const RecordedCall& recorded,
                               const RecordedContext& context) {
  if (given.size() != recorded.items.size()) {
    return std::to_string(given.size()) + " inputs, in the recording " +
           std::to_string(recorded.items.size());
  }
  for (std::size_t i = 0; i < given.size(); ++i) {
    const RecordedItem& item = recorded.items[i];
    if (AreEqual(given[i], item.header)) continue;
    if (!HaveOneDescription(given[i].header, item.header)) {
      return "inputs[" + std::to_string(i) + "] is " + DescriptionOf(given[i].header) +
             ", in the recording " + DescriptionOf(item.header);
    }
    if (given[i].bytes == nullptr) return "inputs[" + std::to_string(i) + "].buf is null";
    if (item.bytes.size() != item.header.size) {
      return "input " + std::to_string(item.header.index) +
             " differs; the recording has only the hash of its bytes";
    }
    const auto attribute = context.inputs.find(item.header.index);
    return DescribeElements(given[i], reinterpret_cast<const uint8_t*>(item.bytes.data()),
                            attribute != context.inputs.end() ? &attribute->second : nullptr);
  }
  return "nothing";
}

}  // namespace rknn_sim

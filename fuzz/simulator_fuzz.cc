// Any bytes as a model for the simulated runtime, and any sequence of calls on it.
//
// The first byte is the length of the call script, which follows; the rest is the model. Arguments
// are as wrong as bytes can make them, but buffers have the sizes that the calls are told: that
// much no callee can check. What must hold: no crash, no access outside a buffer, only the codes of
// the interface, and no context or memory left over.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "control.h"
#include "fuzz/byte_reader.h"

namespace {

using corvane_fuzz::ByteReader;
using corvane_fuzz::Require;
using rknn_sim::Function;

constexpr std::size_t kSlots = 3;
constexpr std::size_t kMaxRecords = 300;    // more than a described model can have
constexpr uint32_t kMaxElements = 1 << 16;  // of a tensor; larger models only cost time
constexpr int kScriptedCode = 7;            // a positive one, to be met again

using Buffer = std::unique_ptr<uint8_t[]>;

Buffer MakeBuffer(std::size_t size) {
  Buffer buffer(new uint8_t[size]);  // exactly so long, for AddressSanitizer
  for (std::size_t i = 0; i < size; ++i) buffer[i] = static_cast<uint8_t>(i * 7);
  return buffer;
}

// An enumerator of any value, as another program's call may hold.
template <typename Enum>
Enum AnyValue(uint8_t value) {
  const uint32_t wide = value == 0xFF ? 0xFFFFFFFF : value;
  Enum enumerator;
  std::memcpy(&enumerator, &wide, sizeof(wide));
  return enumerator;
}

void Check(int ret) {
  Require(ret == kScriptedCode || (ret <= 0 && ret >= -14), "a code that the interface lacks");
}

uint32_t ElementBytes(uint32_t type) {
  const uint32_t bytes[] = {4, 2, 1, 1, 2};
  return type < 5 ? bytes[type] : 0;
}

// One context and what a caller keeps for it.
class Caller {
 public:
  // The whole model, or as much of it as the script says.
  void Init(ByteReader* script, const ByteReader& model) {
    Destroy();
    const auto choice = script->Take<uint8_t>();
    const std::size_t size = choice < 0xF0 ? model.size() : script->Take<uint8_t>() % 64;
    model_size_ = static_cast<uint32_t>(std::min(size, model.size()));
    model_ = MakeBuffer(model_size_);
    if (model_size_ > 0) std::memcpy(model_.get(), model.data(), model_size_);
    const bool is_null = choice == 0xEF;
    const uint32_t flags = choice % 16 < 12 ? choice % 3 : choice;
    const int ret = rknn_init(choice == 0xEE ? nullptr : &handle_, is_null ? nullptr : model_.get(),
                              model_size_, flags);
    Check(ret);
    is_live_ = ret == RKNN_SUCC;
    if (is_live_) LearnModel();
  }

  void Destroy() {
    if (is_live_) Check(rknn_destroy(handle_));
    is_live_ = false;
    outputs_.clear();  // the handle stays, for calls on a dead context
  }

  void Query(ByteReader* script) {
    const auto command = script->Take<uint8_t>();
    const auto choice = script->Take<uint8_t>();
    const uint32_t sizes[] = {sizeof(rknn_input_output_num), sizeof(rknn_tensor_attr),
                              sizeof(rknn_tensor_attr),      16,
                              sizeof(rknn_perf_run),         sizeof(rknn_sdk_version)};
    const uint32_t size = choice < 0xE0 ? sizes[command % 6] : script->Take<uint16_t>() % 1024;
    const Buffer info = MakeBuffer(size);
    const uint32_t index = choice;
    if (size >= sizeof(index)) std::memcpy(info.get(), &index, sizeof(index));
    Check(rknn_query(handle_, AnyValue<rknn_query_cmd>(command),
                     choice == 0xDF ? nullptr : info.get(), size));
  }

  void SetInputs(ByteReader* script) {
    std::vector<Buffer> buffers;
    std::vector<rknn_input> records(Count(script, input_attrs_.size()));
    for (std::size_t i = 0; i < records.size(); ++i) {
      rknn_input& record = records[i];
      std::memset(&record, 0, sizeof(record));
      const auto choice = script->Take<uint8_t>();
      record.index = Index(choice, i);
      const bool is_known = record.index < input_attrs_.size();
      const rknn_tensor_attr* const attr = is_known ? &input_attrs_[record.index] : nullptr;
      record.pass_through = choice == 0xFD ? 2 : choice % 2;
      if (record.pass_through == 1 && is_known && choice < 0xA0) {
        record.type = attr->type;
      } else {
        record.type = AnyValue<rknn_tensor_type>(choice < 0xF0 ? choice / 2 % 5 : choice);
      }
      record.fmt = AnyValue<rknn_tensor_format>(choice < 0xF0 ? choice / 10 % 2 : choice);
      uint32_t type;
      std::memcpy(&type, &record.type, sizeof(type));
      record.size = is_known ? attr->n_elems * ElementBytes(type) : 0;
      if (choice % 16 == 15) record.size = script->Take<uint16_t>() % 512;
      buffers.push_back(MakeBuffer(record.size));
      record.buf = choice == 0xFC ? nullptr : buffers.back().get();
    }
    Check(rknn_inputs_set(handle_, CountOf(records), DataOf(&records)));
  }

  void Run(ByteReader* script) {
    rknn_run_extend extend = {1};
    Check(rknn_run(handle_, script->Take<uint8_t>() % 2 == 0 ? nullptr : &extend));
  }

  void GetOutputs(ByteReader* script) {
    // A call that is refused must not disturb what is held from the one before.
    std::vector<Buffer> buffers;
    std::vector<rknn_output> records(Count(script, output_attrs_.size()));
    for (std::size_t i = 0; i < records.size(); ++i) {
      rknn_output& record = records[i];
      std::memset(&record, 0, sizeof(record));
      const auto choice = script->Take<uint8_t>();
      record.index = Index(choice, i);
      record.want_float = choice == 0xFD ? 2 : choice % 2;
      record.is_prealloc = choice == 0xFC ? 3 : choice / 2 % 2;
      if (record.is_prealloc == 0) continue;
      if (record.index < output_attrs_.size()) {
        const rknn_tensor_attr& attr = output_attrs_[record.index];
        record.size = attr.n_elems * (record.want_float ? 4 : ElementBytes(attr.type));
      }
      if (choice % 16 == 15) record.size = script->Take<uint16_t>() % 512;
      const std::size_t misaligned = choice % 32 == 14 ? 1 : 0;
      buffers.push_back(MakeBuffer(record.size + misaligned));
      record.buf = choice == 0xFB ? nullptr : buffers.back().get() + misaligned;
    }
    rknn_output_extend extend = {1};
    const int ret = rknn_outputs_get(handle_, CountOf(records), DataOf(&records),
                                     records.size() % 2 == 0 ? &extend : nullptr);
    Check(ret);
    if (ret < 0) return;
    // Every byte that the runtime says it has given can be read.
    for (const rknn_output& record : records) {
      volatile uint8_t last = 0;
      if (record.size > 0) last = static_cast<const uint8_t*>(record.buf)[record.size - 1];
      (void)last;
    }
    outputs_ = records;
    buffers_ = std::move(buffers);
  }

  void ReleaseOutputs(ByteReader* script) {
    std::vector<rknn_output> records = outputs_;
    const auto choice = script->Take<uint8_t>();
    if (choice >= 0xE0) records.resize(Count(script, records.size()));
    if (choice >= 0xF0 && !records.empty()) records[0].buf = &records;
    if (choice >= 0xF8 && !records.empty()) records[0].index = choice;
    Check(rknn_outputs_release(handle_, CountOf(records), DataOf(&records)));
  }

  // The runtime is to see it, and to be none the worse where it was told not to look.
  void ChangeModel(ByteReader* script) {
    const auto at = script->Take<uint8_t>();
    if (model_size_ > 0) model_[at % model_size_] ^= script->Take<uint8_t>();
  }

 private:
  void LearnModel() {
    input_attrs_.clear();
    output_attrs_.clear();
    outputs_.clear();
    rknn_input_output_num counts = {};
    Check(rknn_query(handle_, RKNN_QUERY_IN_OUT_NUM, &counts, sizeof(counts)));
    Learn(RKNN_QUERY_INPUT_ATTR, counts.n_input, &input_attrs_);
    Learn(RKNN_QUERY_OUTPUT_ATTR, counts.n_output, &output_attrs_);
  }
  void Learn(rknn_query_cmd command, uint32_t count, std::vector<rknn_tensor_attr>* attrs) {
    for (uint32_t i = 0; is_live_ && i < count && i < kMaxRecords; ++i) {
      rknn_tensor_attr attr = {};
      attr.index = i;
      if (rknn_query(handle_, command, &attr, sizeof(attr)) != RKNN_SUCC) attr.n_elems = 0;
      Require(attr.n_dims <= RKNN_MAX_DIMS, "an attribute with more dims than there is room for");
      Require(std::memchr(attr.name, 0, sizeof(attr.name)) != nullptr, "a name without an end");
      attrs->push_back(attr);
      if (attr.n_elems > kMaxElements) Destroy();
    }
  }

  static std::size_t Count(ByteReader* script, std::size_t right) {
    const auto choice = script->Take<uint8_t>();
    return choice < 0xE0 ? std::min(right, kMaxRecords) : choice % 8u;
  }
  static uint32_t Index(uint8_t choice, std::size_t right) {
    if (choice == 0xFE) return 0xFFFFFFFF;
    return choice >= 0xF0 ? choice % 4u : static_cast<uint32_t>(right);
  }
  template <typename Record>
  static uint32_t CountOf(const std::vector<Record>& records) {
    return static_cast<uint32_t>(records.size());
  }
  template <typename Record>
  static Record* DataOf(std::vector<Record>* records) {
    return records->empty() ? nullptr : records->data();
  }

  rknn_context handle_ = 0;
  bool is_live_ = false;
  Buffer model_;
  uint32_t model_size_ = 0;
  std::vector<rknn_tensor_attr> input_attrs_, output_attrs_;
  std::vector<rknn_output> outputs_;  // as the last successful get left them
  std::vector<Buffer> buffers_;
};

void OrderFault(ByteReader* script) {
  const auto choice = script->Take<uint8_t>();
  const auto function = static_cast<Function>(choice % rknn_sim::kFunctionCount);
  const uint64_t nth = rknn_sim::CallCount(function) + choice / 32;
  if (choice >= 0xF8) {
    rknn_sim::LeaveOutputsUnwrittenAt(nth);
  } else {
    const int code = script->Take<uint8_t>() % 16;
    rknn_sim::ReturnAt(function, nth, code == 15 ? kScriptedCode : -code);
  }
}

}  // namespace

extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  // What is too large for a board is a failed allocation, not a finding.
  return "allocator_may_return_null=1:max_allocation_size_mb=256";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  ByteReader model(data, size);
  ByteReader script = model.TakeReader(model.Take<uint8_t>());

  rknn_sim::Reset();
  {
    Caller callers[kSlots];
    callers[0].Init(&script, model);
    while (!script.IsEmpty()) {
      const auto choice = script.Take<uint8_t>();
      Caller& caller = callers[choice >= 0xC0 ? choice % kSlots : 0];
      switch (choice % 16) {
        case 0:
          caller.Init(&script, model);
          break;
        case 1:
          caller.Destroy();
          break;
        case 2:
          caller.Query(&script);
          break;
        case 3:
        case 4:
          caller.SetInputs(&script);
          break;
        case 5:
        case 6:
          caller.Run(&script);
          break;
        case 7:
        case 8:
          caller.GetOutputs(&script);
          break;
        case 9:
        case 10:
          caller.ReleaseOutputs(&script);
          break;
        case 11:
          caller.ChangeModel(&script);
          break;
        case 12:
          OrderFault(&script);
          break;
        case 13:
          rknn_sim::Relax(
              static_cast<rknn_sim::Check>(script.Take<uint8_t>() % rknn_sim::kCheckCount));
          break;
        case 14:
          rknn_sim::SetRecording(choice >= 0x80);
          break;
        case 15:
          rknn_sim::SetNextHandle(script.Take<uint8_t>());
          break;
      }
    }
    rknn_sim::Calls();
    for (Caller& caller : callers) caller.Destroy();
  }
  rknn_sim::SetRecording(false);
  Require(rknn_sim::LiveContexts() == 0, "a context outlived its rknn_destroy");
  return 0;
}

// The engine ONNX Runtime.
#include <algorithm>
#include <cstring>
#include <utility>

#include "simulator/control/environment.h"
#include "simulator/engines/network.h"
#include "simulator/engines/onnxruntime_library.h"
#include "simulator/interface/report.h"
#include "simulator/interface/rknn_names.h"
#include "simulator/numbers/tensor_codec.h"
#include "simulator/onnx/unread_nodes.h"

namespace rknn_sim {

namespace {

using namespace onnxruntime;  // NOLINT: the whole file is about it

// Takes the status.
bool IsDone(const char* what, Status* status, String* why) {
  if (status == nullptr) return true;
  String reason = Library::Call(kGetErrorMessage, status);
  Library::Call(kReleaseStatus, status);
  // The text may hold bytes of the model.
  const auto is_unprintable = [](char c) { return c < ' ' || c > '~'; };
  std::replace_if(reason.begin(), reason.end(), is_unprintable, ' ');
  return Refuse(why, "ONNX Runtime cannot %s this ONNX model: %s", what, reason.c_str());
}

// Calls a function that creates an object.
template <typename Pointer, typename Signature, typename... Arguments>
bool Create(const char* what, Pointer* object, String* why, Function<Signature> function,
            Arguments... arguments) {
  typename Pointer::pointer created = nullptr;
  Status* const status = Library::Call(function, arguments..., &created);
  object->reset(created);
  return IsDone(what, status, why);
}

template <typename Element>
void AppendAs(const void* elements, std::size_t count, Vector<float>* numbers) {
  const auto* from = static_cast<const Element*>(elements);
  for (std::size_t i = 0; i < count; ++i) numbers->push_back(static_cast<float>(from[i]));
}

float FloatOfUpperHalf(uint16_t bits) {
  const uint32_t all = uint32_t{bits} << 16;
  float value;
  std::memcpy(&value, &all, sizeof(value));
  return value;
}

// False for elements that are no numbers.
bool Append(uint64_t onnx_type, const void* elements, std::size_t count, Vector<float>* numbers) {
  const auto* halves = static_cast<const uint16_t*>(elements);
  switch (onnx_type) {
    case kOnnxFloat:
      AppendAs<float>(elements, count, numbers);
      return true;
    case kOnnxUint8:
    case kOnnxBool:
      AppendAs<uint8_t>(elements, count, numbers);
      return true;
    case kOnnxInt8:
      AppendAs<int8_t>(elements, count, numbers);
      return true;
    case kOnnxUint16:
      AppendAs<uint16_t>(elements, count, numbers);
      return true;
    case kOnnxInt16:
      AppendAs<int16_t>(elements, count, numbers);
      return true;
    case kOnnxInt32:
      AppendAs<int32_t>(elements, count, numbers);
      return true;
    case kOnnxInt64:
      AppendAs<int64_t>(elements, count, numbers);
      return true;
    case kOnnxDouble:
      AppendAs<double>(elements, count, numbers);
      return true;
    case kOnnxUint32:
      AppendAs<uint32_t>(elements, count, numbers);
      return true;
    case kOnnxUint64:
      AppendAs<uint64_t>(elements, count, numbers);
      return true;
    case kOnnxFloat16:
      for (std::size_t i = 0; i < count; ++i) numbers->push_back(HalfToFloat(halves[i]));
      return true;
    case kOnnxBfloat16:
      for (std::size_t i = 0; i < count; ++i) numbers->push_back(FloatOfUpperHalf(halves[i]));
      return true;
    default:
      return false;
  }
}

class OnnxRuntimeNetwork final : public OnnxNetwork {
 public:
  bool Load(const OnnxFile& file, String* why) {
    const char* const what = "load";
    SessionOptionsPointer options;
    if (!Create(what, &env_, why, kCreateEnv, kOnlyFatal, "corvane") ||
        !Create(what, &memory_, why, kCreateCpuMemoryInfo, kArenaAllocator, kDefaultMemory) ||
        !Create(what, &options, why, kCreateSessionOptions)) {
      return false;
    }
    const struct {
      Function<Status*(SessionOptions*, int)> set;
      int value;
    } settings[] = {{kSetExecutionMode, kSequential},
                    {kSetLogLevel, kOnlyFatal},
                    {kSetOptimizationLevel, kAllOptimizations},
                    {kSetIntraOpThreads, ThreadsWanted()},
                    {kSetInterOpThreads, 1}};
    for (const auto& setting : settings) {
      if (!IsDone(what, Library::Call(setting.set, options.get(), setting.value), why))
        return false;
    }
    // It lets the result of an operation that nobody reads share memory with values that are read.
    String storage;
    const std::string_view model = WithoutUnreadNodes(file.bytes, &storage);
    if (!Create(what, &session_, why, kCreateSessionFromArray, env_.get(), model.data(),
                model.size(), options.get())) {
      return false;
    }
    for (const OnnxTensor& input : file.graph->inputs) inputs_.push_back(input);
    for (const OnnxTensor& output : file.graph->outputs) output_names_.push_back(output.name);
    return RunFirst(*file.graph, this, why);
  }

  bool Run(const Vector<Vector<float>>& inputs, String* why) override {
    Vector<Vector<uint8_t>> elements(inputs.size());  // outlive the values
    Vector<ValuePointer> values(inputs.size());
    Vector<const char*> input_names, output_names;
    Vector<const Value*> input_values;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      if (!MakeInput(inputs_[i], inputs[i], &elements[i], &values[i], why)) return false;
      input_values.push_back(values[i].get());
      input_names.push_back(inputs_[i].name.c_str());
    }
    for (const String& name : output_names_) output_names.push_back(name.c_str());
    Vector<Value*> results(output_names.size(), nullptr);
    Vector<ValuePointer> owned(results.size());
    Status* const status =
        Library::Call(kRun, session_.get(), nullptr, input_names.data(), input_values.data(),
                      inputs.size(), output_names.data(), output_names.size(), results.data());
    for (std::size_t i = 0; i < results.size(); ++i) owned[i].reset(results[i]);
    if (!IsDone("run", status, why)) return false;
    outputs_.resize(results.size());
    for (std::size_t i = 0; i < results.size(); ++i) {
      if (!TakeOutput(owned[i].get(), output_names_[i], &outputs_[i], why)) return false;
    }
    return true;
  }

  Vector<int64_t> OutputDims(std::size_t i) const override { return outputs_[i].dims; }
  std::size_t OutputElements(std::size_t i) const override { return outputs_[i].numbers.size(); }
  void CopyOutput(std::size_t i, float* to) const override {
    std::copy(outputs_[i].numbers.begin(), outputs_[i].numbers.end(), to);
  }

 private:
  struct Result {
    Vector<int64_t> dims;
    Vector<float> numbers;
  };

  // The value lives in *elements.
  bool MakeInput(const OnnxTensor& input, const Vector<float>& numbers, Vector<uint8_t>* elements,
                 ValuePointer* value, String* why) const {
    rknn_tensor_attr attr = {};
    NativeType(input.type, &attr.type);
    elements->resize(numbers.size() * ElementBytes(attr.type));
    EncodeNative(attr, numbers.data(), numbers.size(), elements->data());
    return Create("run", value, why, kCreateTensorWithData, memory_.get(), elements->data(),
                  elements->size(), input.dims.data(), input.dims.size(),
                  static_cast<int>(input.type));
  }

  static bool TakeOutput(Value* value, const String& name, Result* result, String* why) {
    const char* const what = "run";
    int is_tensor = 0;
    if (!IsDone(what, Library::Call(kIsTensor, value, &is_tensor), why)) return false;
    if (is_tensor == 0) {
      return Refuse(why, "the model's output '%.60s' is no tensor", name.c_str());
    }
    TensorInfoPointer info;
    int type = 0;
    std::size_t rank = 0;
    if (!Create(what, &info, why, kGetTensorInfo, value) ||
        !IsDone(what, Library::Call(kGetElementType, info.get(), &type), why) ||
        !IsDone(what, Library::Call(kGetRank, info.get(), &rank), why)) {
      return false;
    }
    result->dims.assign(rank, 0);
    void* elements = nullptr;
    if (!IsDone(what, Library::Call(kGetDims, info.get(), result->dims.data(), rank), why) ||
        !IsDone(what, Library::Call(kGetTensorData, value, &elements), why)) {
      return false;
    }
    std::size_t count = 1;
    for (const int64_t dim : result->dims) count *= static_cast<std::size_t>(dim);
    result->numbers.clear();
    result->numbers.reserve(count);
    if (Append(static_cast<uint64_t>(type), elements, count, &result->numbers)) return true;
    return Refuse(why, "the model's output '%.60s' has elements of ONNX type %d; wanted numbers",
                  name.c_str(), type);
  }

  // In this order: they are released the other way round.
  EnvPointer env_;
  MemoryInfoPointer memory_;
  SessionPointer session_;
  Vector<OnnxTensor> inputs_;
  Vector<String> output_names_;
  Vector<Result> outputs_;
};

std::unique_ptr<OnnxNetwork> LoadOnOnnxRuntime(const OnnxFile& file, String* why) {
  auto network = std::make_unique<OnnxRuntimeNetwork>();
  if (!network->Load(file, why)) return nullptr;
  return network;
}

Vector<String> NoProblems(const OnnxFile&) { return {}; }

}  // namespace

bool FindOnnxRuntime(OnnxEngine* engine, String* why) {
  if (!Library::Load(why)) return false;
  *engine = {String("ONNX Runtime ") + Library::Version(), false, LoadOnOnnxRuntime, NoProblems};
  return true;
}

}  // namespace rknn_sim

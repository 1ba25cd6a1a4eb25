#include "tests/support/fake_onnxruntime.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cfenv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

namespace fake_onnxruntime {

namespace {

struct Status {
  std::string text;
};
struct Object {};  // env, options, session, memory info
struct Tensor {
  int type = 0;
  bool is_tensor = true;
  std::vector<int64_t> dims;
  std::vector<uint8_t> bytes;
};

int live = 0, fail_at = 0, intra = 0, inter = 0;
pid_t failing_process = 0;
Tensor last_input;
std::string last_model;

template <typename T>
T* New() {
  ++live;
  return new T;
}
template <typename T>
void Release(T* object) {
  if (object != nullptr) --live;
  delete object;
}

// Null for success.
Status* Try() {
  if (fail_at == 0 || getpid() != failing_process || --fail_at > 0) return nullptr;
  auto* status = New<Status>();
  status->text = "made\nto fail";
  return status;
}

const char* Text(const Status* status) { return status->text.c_str(); }

template <typename... Ignored>
Status* CreateObject(Ignored..., Object** out) {
  Status* const status = Try();
  *out = status == nullptr ? New<Object>() : nullptr;
  return status;
}

Status* CreateSession(const Object*, const void* model, size_t size, const Object*,
                      Object** session) {
  last_model.assign(static_cast<const char*>(model), size);
  std::fesetround(FE_UPWARD);  // as the real one changes flush-to-zero
  return CreateObject(session);
}

Status* Set(Object*, int) { return Try(); }
Status* SetIntra(Object*, int threads) { return intra = threads, Try(); }
Status* SetInter(Object*, int threads) { return inter = threads, Try(); }

size_t Width(int type) {
  switch (type) {
    case 1:
    case 6:
    case 12:
      return 4;
    case 7:
    case 11:
    case 13:
      return 8;
    case 4:
    case 5:
    case 10:
    case 16:
      return 2;
    default:
      return 1;
  }
}

size_t Count(const std::vector<int64_t>& dims) {
  size_t count = 1;
  for (const int64_t dim : dims) count *= static_cast<size_t>(dim);
  return count;
}

Status* CreateTensor(const Object*, void* data, size_t size, const int64_t* dims, size_t rank,
                     int type, Tensor** out) {
  *out = nullptr;
  if (Status* status = Try()) return status;
  auto* tensor = New<Tensor>();
  tensor->type = type;
  tensor->dims.assign(dims, dims + rank);
  const auto* bytes = static_cast<const uint8_t*>(data);
  tensor->bytes.assign(bytes, bytes + size);
  if (size != Count(tensor->dims) * Width(type)) std::abort();
  *out = tensor;
  return nullptr;
}

float FirstAsFloat(const Tensor& tensor, size_t i) {
  const uint8_t* const from = tensor.bytes.data() + i * Width(tensor.type);
  float value = *from;
  if (tensor.type == 1) std::memcpy(&value, from, sizeof(value));
  return value;
}

template <typename Element>
void Append(double value, Tensor* tensor) {
  const auto element = static_cast<Element>(value);
  const auto* bytes = reinterpret_cast<const uint8_t*>(&element);
  tensor->bytes.insert(tensor->bytes.end(), bytes, bytes + sizeof(element));
}

void AppendAs(int type, float value, Tensor* tensor) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  switch (type) {
    case 1:
      return Append<float>(value, tensor);
    case 3:
      return Append<int8_t>(value, tensor);
    case 4:
      return Append<uint16_t>(value, tensor);
    case 5:
      return Append<int16_t>(value, tensor);
    case 6:
      return Append<int32_t>(value, tensor);
    case 7:
      return Append<int64_t>(value, tensor);
    case 10:
      return Append<uint16_t>(0x3c00, tensor);  // 1
    case 11:
      return Append<double>(value, tensor);
    case 12:
      return Append<uint32_t>(value, tensor);
    case 13:
      return Append<uint64_t>(value, tensor);
    case 16:
      return Append<uint16_t>(bits >> 16, tensor);
    default:
      return Append<uint8_t>(value, tensor);
  }
}

Status* RunOutput(const std::string& name, const Tensor& input, Tensor* output) {
  output->type = name.compare(0, 2, "as") == 0 ? std::atoi(name.c_str() + 2) : 1;
  output->dims = input.dims;
  output->is_tensor = name != "sequence";
  if (name == "crash") std::raise(SIGFPE);
  if (name == "counted") output->dims = {1 + static_cast<int64_t>(FirstAsFloat(input, 0))};
  for (size_t i = 0; i < Count(output->dims); ++i) {
    float value = name == "counted" ? 0 : FirstAsFloat(input, i);
    if (name == "mode") value = static_cast<float>(std::fegetround());
    if (name == "inverse" && value == 0) {
      auto* status = New<Status>();
      status->text = "a number is 0";
      return status;
    }
    AppendAs(output->type, name == "inverse" ? 1 / value : value, output);
  }
  return nullptr;
}

Status* Run(Object*, const void*, const char* const*, const Tensor* const* inputs, size_t,
            const char* const* names, size_t count, Tensor** outputs) {
  if (Status* status = Try()) return status;
  last_input = *inputs[0];
  for (size_t i = 0; i < count; ++i) {
    outputs[i] = New<Tensor>();
    if (Status* status = RunOutput(names[i], *inputs[0], outputs[i])) return status;
  }
  return nullptr;
}

Status* IsTensor(const Tensor* tensor, int* out) { return *out = tensor->is_tensor, Try(); }
Status* Data(Tensor* tensor, void** out) { return *out = tensor->bytes.data(), Try(); }
Status* ElementType(const Tensor* info, int* out) { return *out = info->type, Try(); }
Status* Rank(const Tensor* info, size_t* out) { return *out = info->dims.size(), Try(); }
Status* Dims(const Tensor* info, int64_t* out, size_t rank) {
  std::copy_n(info->dims.begin(), rank, out);
  return Try();
}
Status* Info(const Tensor* tensor, Tensor** out) {
  Status* const status = Try();
  *out = status == nullptr ? New<Tensor>() : nullptr;
  if (*out != nullptr) **out = *tensor;
  return status;
}

// The interface's table: each function at its place.
const std::array<void (*)(), 101>& Table() {
  static const auto table = [] {
    std::array<void (*)(), 101> all = {};
    const auto put = [&](size_t index, auto* function) {
      all[index] = reinterpret_cast<void (*)()>(function);
    };
    put(2, Text);
    put(3, static_cast<Status* (*)(int, const char*, Object**)>(CreateObject<int, const char*>));
    put(8, CreateSession);
    put(9, Run);
    put(10, static_cast<Status* (*)(Object**)>(CreateObject<>));
    for (const size_t setter : {13, 22, 23}) put(setter, Set);
    put(24, SetIntra);
    put(25, SetInter);
    put(49, CreateTensor);
    put(50, IsTensor);
    put(51, Data);
    put(60, ElementType);
    put(61, Rank);
    put(62, Dims);
    put(65, Info);
    put(69, static_cast<Status* (*)(int, int, Object**)>(CreateObject<int, int>));
    for (const size_t release : {92, 94, 95, 100}) put(release, Release<Object>);
    put(93, Release<Status>);
    for (const size_t release : {96, 99}) put(release, Release<Tensor>);
    return all;
  }();
  return table;
}

struct Base {
  const void* (*get_table)(uint32_t version);
  const char* (*get_version)();
};

}  // namespace

int LiveObjects() { return live; }
void FailAt(int nth) {
  fail_at = nth;
  failing_process = getpid();
}
const std::string& ModelBytes() { return last_model; }
int IntraThreads() { return intra; }
int InterThreads() { return inter; }
const std::vector<uint8_t>& InputBytes() { return last_input.bytes; }
int InputType() { return last_input.type; }
const std::vector<int64_t>& InputDims() { return last_input.dims; }

extern "C" const Base* OrtGetApiBase() {
  static const Base base = {
      [](uint32_t version) -> const void* { return version == 1 ? Table().data() : nullptr; },
      [] { return "1.99.0"; }};
  return &base;
}

}  // namespace fake_onnxruntime

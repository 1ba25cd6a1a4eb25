#include "src/rknn/rknn.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "src/rknn/input_encoder.h"

// One line of the forward operation on standard error, in one write: lines of parallel threads do
// not mix. The path is part of the line's format and stays what it is wherever this file stands.
#define CORVANE_TEXT_OF(number) #number
#define CORVANE_LINE_TEXT(number) CORVANE_TEXT_OF(number)
#define CORVANE_REPORT(...) \
  std::fprintf(stderr, "[src/rknn/rknn(" CORVANE_LINE_TEXT(__LINE__) ")] " __VA_ARGS__)

namespace corvane {

template class Backend_<float>;

std::unique_ptr<Backend_<float>> InitBackend(const std::string& model_path,
                                             const std::string& aux_string,
                                             const std::vector<std::string>& aux_strings,
                                             const std::vector<float>& means,
                                             const std::vector<float>& scales,
                                             RKNNInputType input_type) {
  return std::unique_ptr<Backend_<float>>(
      new BackendRKNN(model_path, aux_string, aux_strings, means, scales, input_type));
}

// ---------------------------------------------------------------------------- loading a model

namespace {

constexpr long kPrefixBytes = 13;
constexpr long kMaxFileBytes = 1L << 32;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// The whole file behind its prefix, or null when it cannot be read.
std::unique_ptr<uint8_t[]> ReadBehindPrefix(std::FILE* file, uint32_t* bytes) {
  std::setvbuf(file, nullptr, _IONBF, 0);  // straight into the array
  if (std::fseek(file, 0, SEEK_END) != 0) return nullptr;
  const long file_bytes = std::ftell(file);
  if (file_bytes < kPrefixBytes || file_bytes > kMaxFileBytes) return nullptr;
  if (std::fseek(file, kPrefixBytes, SEEK_SET) != 0) return nullptr;
  const auto model_bytes = static_cast<std::size_t>(file_bytes - kPrefixBytes);

  // A directory has a length but no bytes. Its length is not to be believed with an allocation, so
  // the first byte must be there before the array is.
  uint8_t first_byte = 0;
  if (model_bytes > 0 && std::fread(&first_byte, 1, 1, file) != 1) return nullptr;
  std::unique_ptr<uint8_t[]> model(new uint8_t[model_bytes]);
  if (model_bytes > 0) {
    model[0] = first_byte;
    if (std::fread(&model[1], 1, model_bytes - 1, file) != model_bytes - 1) return nullptr;
  }
  *bytes = static_cast<uint32_t>(model_bytes);
  return model;
}

}  // namespace

BackendRKNN::BackendRKNN(const std::string& model_path, const std::string& aux_string,
                         const std::vector<std::string>& aux_strings,
                         const std::vector<float>& means, const std::vector<float>& scales,
                         RKNNInputType input_type)
    : aux_string_(aux_string), aux_strings_(aux_strings), means_(means), scales_(scales) {
  if (LoadModel(model_path) != 0) {
    std::fprintf(stderr, "failed to initialize RKNN backend. [model_path='%s']\n",
                 model_path.c_str());
    throw std::runtime_error("failed to initialize RKNN backend.");
  }
  input_type_ = input_type;
}

BackendRKNN::~BackendRKNN() {
  ctx_.Destroy();
  model_data_.reset();
}

int32_t BackendRKNN::LoadModel(const std::string& model_path) {
  std::printf("loading RKNN model. [file='%s']\n", model_path.c_str());
  std::fflush(stdout);

  uint32_t model_bytes = 0;
  if (ReadModelFile(model_path, &model_bytes) != 0) {
    std::fprintf(stderr, "failed to load RKNN model.\n");
    return -1;
  }
  int ret = ctx_.Init(model_data_.get(), model_bytes);
  if (ret != 0) {
    std::fprintf(stderr, "failed to init RKNN context. [ret=%d]\n", ret);
    return -1;
  }
  ret = rknn_query(ctx_.handle(), RKNN_QUERY_IN_OUT_NUM, &io_num_, sizeof(io_num_));
  if (ret != 0) {
    std::fprintf(stderr, "failed to query rknn. [ret=%d]\n", ret);
    return -1;
  }
  if (QueryAttributes(RKNN_QUERY_INPUT_ATTR, io_num_.n_input, "input", &input_attrs_) != 0 ||
      QueryAttributes(RKNN_QUERY_OUTPUT_ATTR, io_num_.n_output, "output", &output_attrs_) != 0) {
    return -1;
  }
  return 0;
}

int32_t BackendRKNN::ReadModelFile(const std::string& model_path, uint32_t* model_bytes) {
  const File file(std::fopen(model_path.c_str(), "rb"));
  if (file == nullptr) {
    if (errno == ENOMEM) throw std::bad_alloc();
    std::fprintf(stderr, "failed to loading rknn model. [file='%s']\n", model_path.c_str());
    return -1;
  }
  model_data_ = ReadBehindPrefix(file.get(), model_bytes);
  if (model_data_ == nullptr) {
    std::fprintf(stderr, "failed to read rknn model file. [file='%s']\n", model_path.c_str());
    return -1;
  }
  return 0;
}

int32_t BackendRKNN::QueryAttributes(rknn_query_cmd command, uint32_t count, const char* name,
                                     std::vector<rknn_tensor_attr>* attributes) {
  attributes->resize(count);
  for (uint32_t i = 0; i < count; ++i) {
    rknn_tensor_attr& attribute = (*attributes)[i];
    attribute.index = i;
    const int ret = rknn_query(ctx_.handle(), command, &attribute, sizeof(attribute));
    if (ret != 0) {
      std::fprintf(stderr, "failed to query rknn %s attr. [ret=%d]\n", name, ret);
      return -1;
    }
  }
  return 0;
}

// ------------------------------------------------------------------------- the forward operation

namespace {

// How the runtime is told to take each RKNNInputType, in the order of its values.
struct InputForm {
  uint8_t pass_through;
  rknn_tensor_type type;
  rknn_tensor_format fmt;
  uint32_t element_bytes;
};
constexpr InputForm kInputForms[] = {
    {0, RKNN_TENSOR_FLOAT32, RKNN_TENSOR_NCHW, 4}, {1, RKNN_TENSOR_FLOAT16, RKNN_TENSOR_NCHW, 2},
    {1, RKNN_TENSOR_INT16, RKNN_TENSOR_NCHW, 2},   {0, RKNN_TENSOR_INT8, RKNN_TENSOR_NHWC, 1},
    {0, RKNN_TENSOR_UINT8, RKNN_TENSOR_NHWC, 1},
};

// The records' floats are fresh memory; a call that does not reach the runtime must not show what
// an earlier owner left there.
class ZeroUnlessRun {
 public:
  explicit ZeroUnlessRun(std::vector<OutputTensor>* outputs) : outputs_(outputs) {}
  ZeroUnlessRun(const ZeroUnlessRun&) = delete;
  ZeroUnlessRun& operator=(const ZeroUnlessRun&) = delete;
  ~ZeroUnlessRun() {
    if (has_run_) return;
    for (OutputTensor& output : *outputs_) std::fill_n(output.data, output.count, 0.0f);
  }
  void SetHasRun(bool has_run) { has_run_ = has_run; }

 private:
  std::vector<OutputTensor>* outputs_;
  bool has_run_ = false;
};

// width * height, which times channels must be a valid array length that the runtime's 32-bit size
// in bytes can hold.
std::size_t PixelCount(int width, int height, int channels, uint32_t element_bytes) {
  const int64_t pixels = int64_t{width} * height;
  const int64_t max_elements = std::min<int64_t>(
      std::numeric_limits<int32_t>::max(), std::numeric_limits<uint32_t>::max() / element_bytes);
  if (pixels < 0 || pixels > max_elements / channels) throw std::bad_array_new_length();
  return static_cast<std::size_t>(pixels);
}

// The allocator maps blocks of this size anew each time. Every first touch of a page of 4 KiB then
// costs more than filling it, so the kernel is asked for large pages; where it has none, nothing is
// lost.
constexpr std::size_t kAlwaysMappedBytes = std::size_t{32} << 20;
constexpr std::uintptr_t kLargePageBytes = std::uintptr_t{2} << 20;

template <class Element>
std::unique_ptr<Element[]> NewInput(std::size_t count) {
  std::unique_ptr<Element[]> input(new Element[count]);
  const std::size_t bytes = count * sizeof(Element);
  if (bytes >= kAlwaysMappedBytes) {
    const auto address = reinterpret_cast<std::uintptr_t>(input.get());
    const std::uintptr_t begin = (address + kLargePageBytes - 1) & ~(kLargePageBytes - 1);
    const std::uintptr_t end = (address + bytes) & ~(kLargePageBytes - 1);
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
  }
  return input;
}

}  // namespace

void BackendRKNN::AppendRecords(std::vector<OutputTensor>* outputs) const {
  outputs->reserve(output_attrs_.size());
  for (const rknn_tensor_attr& attribute : output_attrs_) {
    OutputTensor record;
    record.data = new float[attribute.n_elems];
    for (int i = 0; i < 4; ++i) record.shape[i] = attribute.dims[3 - i];
    record.elem_size = sizeof(float);
    record.plane_size = static_cast<int32_t>(attribute.dims[0] * attribute.dims[1]);
    record.count = attribute.n_elems;
    outputs->push_back(std::move(record));
  }
}

bool BackendRKNN::HasConstantsFor(int channels) const {
  const auto needed = static_cast<std::size_t>(channels);
  if (!means_.empty() && means_.size() < needed) {
    CORVANE_REPORT("ERROR: too few means. [means=%zu, channels=%d]\n", means_.size(), channels);
    return false;
  }
  if (!scales_.empty() && scales_.size() < needed) {
    CORVANE_REPORT("ERROR: too few scales. [scales=%zu, channels=%d]\n", scales_.size(), channels);
    return false;
  }
  return true;
}

void BackendRKNN::Forward(const uint8_t* image, int pixel_type, int width, int height,
                          std::vector<OutputTensor>* outputs) {
  if (outputs == nullptr) {
    CORVANE_REPORT("ERROR: no outputs vector. [outputs=null]\n");
    return;
  }
  outputs->clear();
  ZeroUnlessRun zero_unless_run(outputs);
  AppendRecords(outputs);
  const std::lock_guard<std::mutex> lock(mutex_);
  zero_unless_run.SetHasRun(PrepareAndRun(image, pixel_type, width, height, outputs));
}

bool BackendRKNN::PrepareAndRun(const uint8_t* image, int pixel_type, int width, int height,
                                std::vector<OutputTensor>* outputs) {
  if (io_num_.n_input != 1) {
    CORVANE_REPORT("ERROR: only models with one input can run. [n_input=%u]\n", io_num_.n_input);
    return false;
  }

  int channels = 3;
  bool reverse_channels = false;
  switch (pixel_type) {
    case PIXEL_RGB:
    case PIXEL_BGR:
      break;
    case PIXEL_GRAY:
      channels = 1;
      break;
    case PIXEL_BGR2RGB:
    case PIXEL_RGB2BGR:
      reverse_channels = true;
      break;
    case PIXEL_RGBA:
      CORVANE_REPORT("Unexpected pixel type. [type='PIXEL_RGBA']\n");
      return false;
    default:
      CORVANE_REPORT("Unexpected pixel type. [type=%d]\n", pixel_type);
      return false;
  }

  const bool is_planar = input_type_ == RKNN_INPUT_FLOAT32 || input_type_ == RKNN_INPUT_FLOAT16 ||
                         input_type_ == RKNN_INPUT_INT16;
  if (!is_planar && input_type_ != RKNN_INPUT_UINT8) return false;
  if (is_planar && !HasConstantsFor(channels)) return false;

  const std::size_t pixel_count =
      PixelCount(width, height, channels, kInputForms[input_type_].element_bytes);
  const std::size_t element_count = pixel_count * static_cast<std::size_t>(channels);
  const bool reads_image = element_count > 0 && (is_planar || channels == 3);
  if (image == nullptr && reads_image) {
    CORVANE_REPORT("ERROR: no image. [image=null, width=%d, height=%d]\n", width, height);
    return false;
  }
  const InputImage input = {image, pixel_count, channels, reverse_channels};
  const Normalisation normalisation = {means_.empty() ? nullptr : means_.data(),
                                       scales_.empty() ? nullptr : scales_.data()};

  switch (input_type_) {
    case RKNN_INPUT_FLOAT32: {
      const auto planes = NewInput<float>(element_count);
      EncodeFloat32(input, normalisation, planes.get());
      Run(planes.get(), width, height, channels, outputs);
      return true;
    }
    case RKNN_INPUT_FLOAT16: {
      const auto planes = NewInput<uint16_t>(element_count);
      EncodeFloat16(input, normalisation, planes.get());
      Run(planes.get(), width, height, channels, outputs);
      return true;
    }
    case RKNN_INPUT_INT16: {
      const auto planes = NewInput<int16_t>(element_count);
      EncodeDfp16(input, normalisation, input_attrs_[0].fl, planes.get());
      Run(planes.get(), width, height, channels, outputs);
      return true;
    }
    default: {  // RKNN_INPUT_UINT8
      const auto bytes = NewInput<uint8_t>(element_count);
      if (channels != 3) {
        CORVANE_REPORT("FATAL: unexpected channels. [channels=%d]", channels);
        return false;
      }
      std::copy_n(image, element_count, bytes.get());
      Run(bytes.get(), width, height, channels, outputs);
      return true;
    }
  }
}

void BackendRKNN::Run(const void* buffer, int width, int height, int channels,
                      std::vector<OutputTensor>* outputs) {
  const InputForm& form = kInputForms[input_type_];
  rknn_input input = {};
  input.buf = const_cast<void*>(buffer);  // the runtime only reads it
  input.size = static_cast<uint32_t>(width) * static_cast<uint32_t>(height) *
               static_cast<uint32_t>(channels) * form.element_bytes;
  input.pass_through = form.pass_through;
  input.type = form.type;
  input.fmt = form.fmt;
  int ret = rknn_inputs_set(ctx_.handle(), io_num_.n_input, &input);
  if (ret < 0) {
    CORVANE_REPORT("ERROR: rknn_inputs_set failed. [ret=%d]\n", ret);
    return;
  }
  ret = rknn_run(ctx_.handle(), nullptr);
  if (ret < 0) {
    CORVANE_REPORT("ERROR: rknn_run failed. [ret=%d]\n", ret);
    return;
  }

  const std::unique_ptr<rknn_output[]> records(new rknn_output[io_num_.n_output]());
  for (uint32_t i = 0; i < io_num_.n_output; ++i) {
    records[i].want_float = 1;
    records[i].is_prealloc = 1;
    records[i].index = i;
    records[i].buf = (*outputs)[i].data;
    records[i].size = output_attrs_[i].n_elems * static_cast<uint32_t>(sizeof(float));
  }
  ret = rknn_outputs_get(ctx_.handle(), io_num_.n_output, records.get(), nullptr);
  if (ret < 0) {
    CORVANE_REPORT("ERROR: rknn_outputs_get failed. [ret=%d]\n", ret);
    return;
  }
  rknn_outputs_release(ctx_.handle(), io_num_.n_output, records.get());
}

void BackendRKNN::Reserved() { CORVANE_REPORT("Unsupported now.\n"); }

}  // namespace corvane

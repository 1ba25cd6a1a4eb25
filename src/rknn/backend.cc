#include "src/rknn/backend.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

#include "src/rknn/input_encoder.h"
#include "src/rknn/model_file.h"
#include "src/rknn/report.h"

namespace corvane {

template class Backend_<float>;

namespace {

// Sets errno when a call ends, by a return or by an exception: to its value at the call after a
// success, to the reason after a failure.
class ErrnoAtEnd {
 public:
  ErrnoAtEnd() : at_call_(errno) {}
  ErrnoAtEnd(const ErrnoAtEnd&) = delete;
  ErrnoAtEnd& operator=(const ErrnoAtEnd&) = delete;
  ~ErrnoAtEnd() { errno = reason == 0 ? at_call_ : reason; }

  int reason = ENOMEM;  // of an exception; 0: success

 private:
  const int at_call_;
};

// Makes the floats of a failed call unusable. They are fresh memory, which may still hold the
// outputs of an earlier call.
class NanOnFailure {
 public:
  NanOnFailure(std::vector<OutputTensor>* outputs, const int& reason)
      : outputs_(outputs), reason_(reason) {}
  NanOnFailure(const NanOnFailure&) = delete;
  NanOnFailure& operator=(const NanOnFailure&) = delete;
  ~NanOnFailure() {
    if (reason_ == 0) return;
    for (OutputTensor& output : *outputs_) {
      std::fill_n(output.data, output.count, std::numeric_limits<float>::quiet_NaN());
    }
  }

 private:
  std::vector<OutputTensor>* const outputs_;
  const int& reason_;
};

// What one call makes of its image.
struct PixelForm {
  int channels;
  bool reverse_channels;
};

// False, after the cause has been written, for a type that is refused.
bool FindPixelForm(int pixel_type, PixelForm* form) {
  switch (pixel_type) {
    case PIXEL_RGB:
    case PIXEL_BGR:
      *form = {3, false};
      return true;
    case PIXEL_GRAY:
      *form = {1, false};
      return true;
    case PIXEL_BGR2RGB:
    case PIXEL_RGB2BGR:
      *form = {3, true};
      return true;
    case PIXEL_RGBA:
      CORVANE_REPORT("Unexpected pixel type. [type='PIXEL_RGBA']\n");
      return false;
    default:
      CORVANE_REPORT("Unexpected pixel type. [type=%d]\n", pixel_type);
      return false;
  }
}

void FillFloat32(const InputImage& image, const Normalisation& normalisation, int /*fl*/,
                 void* buffer) {
  EncodeFloat32(image, normalisation, static_cast<float*>(buffer));
}
void FillFloat16(const InputImage& image, const Normalisation& normalisation, int /*fl*/,
                 void* buffer) {
  EncodeFloat16(image, normalisation, static_cast<uint16_t*>(buffer));
}
void FillDfp16(const InputImage& image, const Normalisation& normalisation, int fl, void* buffer) {
  EncodeDfp16(image, normalisation, fl, static_cast<int16_t*>(buffer));
}
void FillBytes(const InputImage& image, const Normalisation& /*normalisation*/, int /*fl*/,
               void* buffer) {
  std::copy_n(image.pixels, image.pixel_count * static_cast<std::size_t>(image.channels),
              static_cast<uint8_t*>(buffer));
}

// The input kinds that Forward prepares: how the runtime is told to take the buffer, and what
// fills it.
struct InputKind {
  RKNNInputType input_type;
  uint8_t pass_through;
  rknn_tensor_type type;
  rknn_tensor_format fmt;
  uint32_t element_bytes;
  bool is_normalised;  // else the bytes of a colour image as they are
  void (*fill)(const InputImage& image, const Normalisation& normalisation, int fl, void* buffer);
};
constexpr InputKind kInputKinds[] = {
    {RKNN_INPUT_FLOAT32, 0, RKNN_TENSOR_FLOAT32, RKNN_TENSOR_NCHW, 4, true, &FillFloat32},
    {RKNN_INPUT_FLOAT16, 1, RKNN_TENSOR_FLOAT16, RKNN_TENSOR_NCHW, 2, true, &FillFloat16},
    {RKNN_INPUT_INT16, 1, RKNN_TENSOR_INT16, RKNN_TENSOR_NCHW, 2, true, &FillDfp16},
    {RKNN_INPUT_UINT8, 0, RKNN_TENSOR_UINT8, RKNN_TENSOR_NHWC, 1, false, &FillBytes},
};

const InputKind* FindInputKind(RKNNInputType input_type) {
  for (const InputKind& kind : kInputKinds) {
    if (kind.input_type == input_type) return &kind;
  }
  return nullptr;
}

// width * height, which times channels must be a valid array length that the runtime's 32-bit size
// in bytes can hold.
std::size_t PixelCount(int width, int height, int channels, uint32_t element_bytes) {
  const int64_t pixels = int64_t{width} * height;
  const int64_t max_elements = std::min<int64_t>(
      std::numeric_limits<int32_t>::max(), std::numeric_limits<uint32_t>::max() / element_bytes);
  if (pixels < 0 || pixels > max_elements / channels) throw std::bad_array_new_length();
  return static_cast<std::size_t>(pixels);
}

// malloc maps blocks this large each time. Faulting in pages of 4 KiB then costs more than filling
// them, so the kernel is asked for large pages; where it has none, nothing is lost.
constexpr std::size_t kAlwaysMappedBytes = std::size_t{32} << 20;
constexpr std::uintptr_t kLargePageBytes = std::uintptr_t{2} << 20;

std::unique_ptr<uint8_t[]> NewInput(std::size_t bytes) {
  std::unique_ptr<uint8_t[]> input(new uint8_t[bytes]);
  if (bytes >= kAlwaysMappedBytes) {
    const auto address = reinterpret_cast<std::uintptr_t>(input.get());
    const std::uintptr_t begin = (address + kLargePageBytes - 1) & ~(kLargePageBytes - 1);
    const std::uintptr_t end = (address + bytes) & ~(kLargePageBytes - 1);
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
  }
  return input;
}

bool LiesIn(const std::vector<OutputTensor>& records, const uint8_t* image) {
  const std::less<const void*> is_before;  // also of unrelated pointers
  return std::any_of(records.begin(), records.end(), [&](const OutputTensor& record) {
    return !is_before(image, record.data) && is_before(image, record.data + record.count);
  });
}

}  // namespace

std::unique_ptr<Backend_<float>> InitBackend(const std::string& model_path,
                                             const std::string& aux_string,
                                             const std::vector<std::string>& aux_strings,
                                             const std::vector<float>& means,
                                             const std::vector<float>& scales,
                                             RKNNInputType input_type) {
  ErrnoAtEnd errno_at_end;
  std::unique_ptr<Backend_<float>> backend(new BackendRKNN(
      model_path, aux_string, aux_strings, means, scales, input_type, &errno_at_end.reason));
  errno_at_end.reason = 0;
  return backend;
}

BackendRKNN::BackendRKNN(const std::string& model_path, const std::string& aux_string,
                         const std::vector<std::string>& aux_strings,
                         const std::vector<float>& means, const std::vector<float>& scales,
                         RKNNInputType input_type, int* reason)
    : aux_string_(aux_string), aux_strings_(aux_strings), means_(means), scales_(scales) {
  const int failure = LoadModel(model_path);
  if (failure != 0) {
    *reason = failure;
    WriteLine(stderr, "failed to initialize RKNN backend. [model_path='%s']\n", model_path.c_str());
    throw std::runtime_error("failed to initialize RKNN backend.");
  }
  input_type_ = input_type;
}

int BackendRKNN::LoadModel(const std::string& model_path) {
  WriteLine(stdout, "loading RKNN model. [file='%s']\n", model_path.c_str());
  ModelBytes model;
  const int failure = ReadModelFile(model_path, &model);
  if (failure != 0) {
    WriteLine(stderr, "failed to load RKNN model.\n");
    return failure;
  }
  return runtime_.Load(std::move(model)) ? 0 : EIO;
}

void BackendRKNN::AppendRecords(std::vector<OutputTensor>* outputs) const {
  outputs->reserve(runtime_.output_attrs().size());
  for (const rknn_tensor_attr& attribute : runtime_.output_attrs()) {
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
  ErrnoAtEnd errno_at_end;  // first, so that nothing that ends with the call changes errno later
  if (outputs == nullptr) {
    CORVANE_REPORT("ERROR: no outputs vector. [outputs=null]\n");
    errno_at_end.reason = EINVAL;
    return;
  }
  std::vector<OutputTensor> previous;  // holds the image until the call ends
  if (LiesIn(*outputs, image)) previous.swap(*outputs);
  outputs->clear();
  const NanOnFailure nan_on_failure(outputs, errno_at_end.reason);
  AppendRecords(outputs);
  const std::lock_guard<std::mutex> lock(mutex_);
  errno_at_end.reason = PrepareAndRun(image, pixel_type, width, height, outputs);
}

int BackendRKNN::PrepareAndRun(const uint8_t* image, int pixel_type, int width, int height,
                               std::vector<OutputTensor>* outputs) {
  if (runtime_.input_count() != 1) {
    CORVANE_REPORT("ERROR: only models with one input can run. [n_input=%u]\n",
                   runtime_.input_count());
    return ENOTSUP;
  }
  PixelForm form;
  if (!FindPixelForm(pixel_type, &form)) return EINVAL;
  const InputKind* const kind = FindInputKind(input_type_);
  if (kind == nullptr) return ENOTSUP;  // without a line
  if (kind->is_normalised && !HasConstantsFor(form.channels)) return EINVAL;

  const std::size_t pixel_count = PixelCount(width, height, form.channels, kind->element_bytes);
  if (!kind->is_normalised && form.channels != 3) {
    CORVANE_REPORT("FATAL: unexpected channels. [channels=%d]", form.channels);
    return EINVAL;
  }
  if (image == nullptr && pixel_count > 0) {
    CORVANE_REPORT("ERROR: no image. [image=null, width=%d, height=%d]\n", width, height);
    return EINVAL;
  }

  const std::size_t bytes =
      pixel_count * static_cast<std::size_t>(form.channels) * kind->element_bytes;
  const std::unique_ptr<uint8_t[]> buffer = NewInput(bytes);
  const InputImage input = {image, pixel_count, form.channels, form.reverse_channels};
  const Normalisation normalisation = {means_.empty() ? nullptr : means_.data(),
                                       scales_.empty() ? nullptr : scales_.data()};
  kind->fill(input, normalisation, runtime_.input_attrs()[0].fl, buffer.get());
  const PreparedInput prepared = {buffer.get(), static_cast<uint32_t>(bytes), kind->pass_through,
                                  kind->type, kind->fmt};
  return runtime_.Run(prepared, outputs) ? 0 : EIO;
}

void BackendRKNN::Reserved() { CORVANE_REPORT("Unsupported now.\n"); }

}  // namespace corvane

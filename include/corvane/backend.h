// The inference backend: an 8-bit image in, every output tensor of an RKNN model back as floats.
//
//   std::unique_ptr<corvane::Backend_<float>> backend = corvane::InitBackend(
//       "face.rknn.bin", "", {}, {127.5f, 127.5f, 127.5f}, {1 / 127.5f, 1 / 127.5f, 1 / 127.5f},
//       corvane::RKNN_INPUT_FLOAT32);
//   std::vector<corvane::OutputTensor> outputs;
//   if (corvane::TryForward(*backend, pixels, corvane::PIXEL_BGR2RGB, 112, 112, &outputs)) {
//     Use(outputs[0].data, outputs[0].count);
//   }  // else drop the frame; errno has the reason
//
// How failures show: InitBackend throws. Forward returns nothing, so call TryForward, which returns
// whether the outputs are there. After every failed call all floats of all records are quiet NaNs,
// so no comparison with a threshold holds for what is computed from them. Write the test so that a
// NaN is rejected: `distance < threshold`, not `!(distance > threshold)`. A program that is
// compiled with -ffinite-math-only (part of -ffast-math) cannot see a NaN and must use TryForward.
// Most failures also write one line to standard error; a line that cannot be written is dropped,
// and a closed pipe raises no SIGPIPE.
//
// errno after Forward and InitBackend, in the calling thread:
//
//   its value at the call   success
//   EINVAL     Forward: a refused pixel type, no image, no outputs vector, too few means or scales,
//              a gray image with RKNN_INPUT_UINT8
//   ENOTSUP    Forward: a model with other than one input; RKNN_INPUT_INT8 or a value outside
//              RKNNInputType
//   EIO        Forward: rknn_inputs_set, rknn_run or rknn_outputs_get failed
//              InitBackend: rknn_init or rknn_query failed
//   ENODATA    InitBackend: the file is shorter than its prefix or larger than 4 GiB, or cannot be
//              read to its end
//   ENOMEM     an exception other than InitBackend's std::runtime_error leaves the call, also the
//              std::bad_array_new_length of an image's size
//   any other  InitBackend: the errno of opening the file, such as ENOENT
//
// Floating point: loading this library switches the loading thread to flush-to-zero (subnormal
// operands and results count as zero), on x86-64 as on AArch64; threads started from it later
// inherit that. The results promised here to the bit are those of a thread in that mode, with
// rounding to nearest. A thread that was running before the library was loaded keeps its own mode,
// and its subnormal values are not flushed.
#ifndef CORVANE_BACKEND_H_
#define CORVANE_BACKEND_H_

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "corvane/export.h"

namespace corvane {

// The form in which Forward builds the model's input, and how the runtime is told to take it.
//
// v is the normalised value (x - mean) * scale of an image byte x (see InitBackend). The planar
// kinds hold one plane of width * height elements for each channel.
enum RKNNInputType : int32_t {
  // v as a 32-bit float, planar (NCHW); the runtime converts to the model's native input type.
  RKNN_INPUT_FLOAT32 = 0,
  // v as an IEEE half-precision bit pattern, planar, handed to the model unconverted. Fraction bits
  // that do not fit are dropped (toward zero); 65536 and above, infinities and NaNs become +-65504;
  // below 2^-14 becomes a signed zero. No infinity, NaN or subnormal is ever produced.
  RKNN_INPUT_FLOAT16 = 1,
  // v as 16-bit dynamic fixed point, planar, handed to the model unconverted: v * 2^fl truncated
  // toward zero to 32 bits (saturating, NaN is 0), of which the low 16 bits are kept (no saturation
  // to 16 bits: 200 at fl = 8 becomes -14336). fl, the number of fractional bits, is that of the
  // model's first input. The mean is subtracted first, then one multiplication by
  // float(2^fl) * scale follows.
  // A three-channel image without scales is computed in integers: (x - int(mean)) * 2^fl, the low
  // 16 bits, so the fraction of a mean is dropped there (fl = 7, mean 127.5, byte 200: 9344, while
  // a gray image gives 9280).
  // Any fl is well defined: 2^fl is taken as a float; in the integer rule a left shift of 16 or
  // more leaves 0 and a negative fl divides, truncating toward zero.
  RKNN_INPUT_INT16 = 2,
  // 8-bit values of the runtime's own table. Forward refuses it: ENOTSUP, no line, no run.
  RKNN_INPUT_INT8 = 3,
  // The image's bytes as they are, interleaved (NHWC): no channel reversal, no means, no scales.
  // Colour images only. The runtime converts.
  RKNN_INPUT_UINT8 = 4,
};

// The pixels of Forward's image. A conversion is source | target << 16. Forward does not know which
// colour a channel is: both plain colour types keep the channel order of the image, both
// conversions reverse it.
enum PixelType : int32_t {
  PIXEL_RGB = 1,            // 3 bytes, order kept
  PIXEL_BGR = 2,            // 3 bytes, order kept
  PIXEL_GRAY = 3,           // 1 byte
  PIXEL_RGBA = 4,           // 4 bytes; Forward refuses it
  PIXEL_BGR2RGB = 0x10002,  // 3 bytes, order reversed
  PIXEL_RGB2BGR = 0x20001,  // 3 bytes, order reversed
};

// One output tensor. Owns its floats; can be moved, not copied. A moved-from record is empty.
struct OutputTensor {
  float* data = nullptr;             // count floats, owned, released with delete[]
  uint32_t shape[4] = {0, 0, 0, 0};  // outermost first, as in N, C, H, W: the runtime's first four
                                     // dims reversed; zeros in front where it has fewer
  uint64_t elem_size = 0;            // bytes of one element: 4
  int64_t plane_size = 0;            // shape[3] * shape[2], multiplied in 32 bits
  uint64_t count = 0;                // number of floats in data

  // Default: an empty record. A move takes the other record's floats and fields, leaves it empty,
  // and releases the floats that this record held.
  OutputTensor() = default;
  OutputTensor(const OutputTensor&) = delete;
  OutputTensor& operator=(const OutputTensor&) = delete;
  OutputTensor(OutputTensor&& other) noexcept { Take(other); }
  OutputTensor& operator=(OutputTensor&& other) noexcept {
    if (this != &other) {
      delete[] data;
      Take(other);
    }
    return *this;
  }
  // Releases data.
  ~OutputTensor() { delete[] data; }

 private:
  void Take(OutputTensor& other) noexcept {
    data = other.data;
    for (int i = 0; i < 4; ++i) shape[i] = other.shape[i];
    elem_size = other.elem_size;
    plane_size = other.plane_size;
    count = other.count;
    other.data = nullptr;
    for (uint32_t& extent : other.shape) extent = 0;
    other.elem_size = 0;
    other.plane_size = 0;
    other.count = 0;
  }
};

// A loaded model. The library offers the instance for float and creates it by InitBackend.
template <typename T>
class CORVANE_EXPORT Backend_ {
 public:
  // For InitBackend. A backend can be neither copied nor moved.
  Backend_() = default;
  Backend_(const Backend_&) = delete;
  Backend_& operator=(const Backend_&) = delete;

  // Destroys the runtime's context, then releases the model. Not while Forward runs on it.
  virtual ~Backend_() = default;

  // Runs the model on one image and makes one record for each model output, in output order.
  // TryForward below calls it and returns whether it succeeded.
  //
  // image:      width * height pixels of C bytes (C = 1 for PIXEL_GRAY, else 3), rows packed
  //             without padding. Only read, and not kept after the call. Null is refused unless
  //             there are no pixels to read. It may lie in the floats of a record in *outputs,
  //             which are then released at the end of the call instead of its beginning.
  // pixel_type: a PixelType. PIXEL_RGBA and values outside the enumeration are refused.
  // width,      pixels. Only their product counts. They are not compared with the model's input
  // height:     size: the runtime does that. When width * height * C is negative or above 2^31 - 1,
  //             or the input would be 4 GiB or larger, the call throws std::bad_array_new_length
  //             before it reads the image (unless an earlier check has refused the call).
  // outputs:    its records are released first, so one vector may serve frame after frame. After
  //             every call, also a failed one, it holds this call's records (after std::bad_alloc
  //             those that could be made). Null is refused.
  //
  // Failures: the call writes one line to standard error and does not run. It reports the first of:
  // no outputs vector; a model with other than one input; a refused pixel type; an input kind that
  // Forward does not prepare (RKNN_INPUT_INT8 and values outside RKNNInputType: without a line);
  // means or scales that are not empty but shorter than C (not for RKNN_INPUT_UINT8, which reads
  // neither); a gray image with RKNN_INPUT_UINT8; no image. When a call of the runtime fails, the
  // line has its (negative) code. Positive codes of the runtime count as success.
  //
  // After every failure, an exception included, all floats of all records are quiet NaNs and errno
  // is set (see the table at the top of this file). A success leaves errno as it was.
  //
  // Exceptions: std::bad_alloc, std::bad_array_new_length, std::system_error from the lock. The
  // lock is free afterwards and nothing has leaked.
  //
  // Threads: calls on one backend take turns, each needs a vector of its own. Different backends
  // run in parallel.
  virtual void Forward(const uint8_t* image, int pixel_type, int width, int height,
                       std::vector<OutputTensor>* outputs) = 0;

  // The RKNN backend does not offer it: it writes one line to standard error and does nothing else.
  virtual void Reserved() = 0;
};

extern template class CORVANE_EXPORT Backend_<float>;

// Forward, which see, with a result: true when every output has been written. On false the floats
// are NaNs and errno has the reason. Exceptions of Forward pass through.
inline bool TryForward(Backend_<float>& backend, const uint8_t* image, int pixel_type, int width,
                       int height, std::vector<OutputTensor>* outputs) {
  const int errno_at_call = errno;
  errno = 0;
  backend.Forward(image, pixel_type, width, height, outputs);
  if (errno != 0) return false;
  errno = errno_at_call;
  return true;
}

// Loads a model and returns it ready to run.
//
// model_path:  a regular file of at most 4 GiB: a 13-byte prefix, which is skipped unread, then the
//              compiled model, which is handed to the runtime unchanged. Read once; the path is not
//              kept. A model may have any number of inputs, but Forward runs only those with one.
// aux_string,
// aux_strings: stored, but not used by this backend. Any value is accepted.
// means,       one value for each byte of a pixel, in the image's order (also when the pixel type
// scales:      reverses the channels). A byte x becomes (x - mean) * scale in 32-bit float, rounded
//              after each step. An empty vector leaves its step out. Values beyond the image's
//              channels are not read, so one backend may serve gray and colour images.
// input_type:  see RKNNInputType. Stored unchecked, and fixed for the backend's life.
//
// Writes "loading RKNN model. [file='...']" to standard output. On failure writes the cause and
// "failed to initialize RKNN backend. [model_path='...']" to standard error and throws
// std::runtime_error("failed to initialize RKNN backend."), for which the caller includes
// <stdexcept>. Throws std::bad_alloc when memory runs out. Nothing is kept in either case. For
// errno see the table at the top of this file.
//
// May be called from any thread, also at the same time.
CORVANE_EXPORT std::unique_ptr<Backend_<float>> InitBackend(
    const std::string& model_path, const std::string& aux_string,
    const std::vector<std::string>& aux_strings, const std::vector<float>& means,
    const std::vector<float>& scales, RKNNInputType input_type);

}  // namespace corvane

#endif  // CORVANE_BACKEND_H_

#include "simulator/numbers/tensor_codec.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "simulator/interface/rknn_names.h"

namespace rknn_sim {

namespace {

uint32_t BitsOf(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

float FloatOf(uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

uint16_t NearestHalf(float value) {
  const uint32_t bits = BitsOf(value);
  const uint32_t sign = (bits >> 16) & 0x8000, magnitude = bits & 0x7fffffff;
  if (magnitude > 0x7f800000) return static_cast<uint16_t>(sign | 0x7e00);
  if (magnitude >= 0x47800000) return static_cast<uint16_t>(sign | 0x7c00);
  // Only integer arithmetic: the calling thread may flush subnormal floats to zero.
  const uint32_t exponent = magnitude >> 23;
  if (exponent < 102) return static_cast<uint16_t>(sign);  // less than half of the least subnormal
  const bool is_subnormal = exponent < 113;
  const uint32_t significand = (magnitude & 0x7fffff) | 0x800000;
  const uint32_t dropped = is_subnormal ? 126 - exponent : 13;
  const uint32_t kept =
      is_subnormal ? significand >> dropped : (magnitude - (uint32_t{112} << 23)) >> dropped;
  const uint32_t rest = significand & ((uint32_t{1} << dropped) - 1);
  const uint32_t tie = uint32_t{1} << (dropped - 1);
  // The carry of a round-up may reach the exponent: the next power of two, or infinity.
  const uint32_t up = rest > tie || (rest == tie && (kept & 1) != 0) ? 1 : 0;
  return static_cast<uint16_t>(sign | (kept + up));
}

template <typename T>
T Load(const uint8_t* from) {
  T value;
  std::memcpy(&value, from, sizeof(value));
  return value;
}

bool IsInteger(rknn_tensor_type type) {
  return type == RKNN_TENSOR_INT8 || type == RKNN_TENSOR_UINT8 || type == RKNN_TENSOR_INT16;
}

double Dequantized(const rknn_tensor_attr& attr, double element) {
  if (attr.qnt_type == RKNN_TENSOR_QNT_DFP) return std::ldexp(element, -attr.fl);
  if (attr.qnt_type == RKNN_TENSOR_QNT_AFFINE_ASYMMETRIC) return (element - attr.zp) * attr.scale;
  return element;
}

double Quantized(const rknn_tensor_attr& attr, double number) {
  if (attr.qnt_type == RKNN_TENSOR_QNT_DFP) return std::ldexp(number, attr.fl);
  if (attr.qnt_type == RKNN_TENSOR_QNT_AFFINE_ASYMMETRIC) return number / attr.scale + attr.zp;
  return number;
}

template <typename T>
void StoreInteger(double element, uint8_t* to) {
  const double low = std::numeric_limits<T>::min(), high = std::numeric_limits<T>::max();
  const double rounded = std::isnan(element) ? 0.0 : std::nearbyint(element);
  const T value = static_cast<T>(std::min(std::max(rounded, low), high));
  std::memcpy(to, &value, sizeof(value));
}

// Turns interleaved channels into planes, or planes into interleaved channels, image by image.
void Relayout(const rknn_tensor_attr& attr, rknn_tensor_format from, Vector<float>* numbers) {
  if (from == attr.fmt || attr.n_dims < 3 || attr.n_dims > 4) return;
  const bool to_planes = attr.fmt == RKNN_TENSOR_NCHW;  // dims: W H C N, else C W H N
  const uint64_t channels = to_planes ? attr.dims[2] : attr.dims[0];
  const uint64_t pixels =
      to_planes ? uint64_t{attr.dims[0]} * attr.dims[1] : uint64_t{attr.dims[1]} * attr.dims[2];
  if (channels == 0 || pixels == 0 || pixels > numbers->size() / channels) return;
  const Vector<float> source = *numbers;
  const uint64_t image = channels * pixels;
  for (uint64_t start = 0; start + image <= source.size(); start += image) {
    for (uint64_t c = 0; c < channels; ++c) {
      for (uint64_t p = 0; p < pixels; ++p) {
        const uint64_t planar = start + c * pixels + p, interleaved = start + p * channels + c;
        (*numbers)[to_planes ? planar : interleaved] = source[to_planes ? interleaved : planar];
      }
    }
  }
}

}  // namespace

float ElementAsNumber(uint32_t type, const uint8_t* from) {
  switch (type) {
    case RKNN_TENSOR_FLOAT32:
      return Load<float>(from);
    case RKNN_TENSOR_FLOAT16:
      return HalfToFloat(Load<uint16_t>(from));
    case RKNN_TENSOR_INT8:
      return Load<int8_t>(from);
    case RKNN_TENSOR_UINT8:
      return *from;
    case RKNN_TENSOR_INT16:
      return Load<int16_t>(from);
  }
  return 0.0f;
}

float HalfToFloat(uint16_t half) {
  const uint32_t sign = static_cast<uint32_t>(half & 0x8000) << 16;
  const uint32_t exponent = (half >> 10) & 0x1f, fraction = half & 0x3ff;
  if (exponent == 0x1f) return FloatOf(sign | 0x7f800000 | (fraction << 13));
  if (exponent != 0) return FloatOf(sign | ((exponent + 112) << 23) | (fraction << 13));
  const float magnitude = static_cast<float>(fraction) * 0x1p-24f;  // a normal float, or 0
  return FloatOf(sign | BitsOf(magnitude));
}

void DecodeInput(const rknn_tensor_attr& attr, const rknn_input& input, const uint8_t* bytes,
                 Vector<float>* numbers) {
  numbers->assign(attr.n_elems, 0.0f);
  const std::size_t width = ElementBytes(input.type);
  if (width == 0) return;
  const std::size_t count = std::min<std::size_t>(attr.n_elems, input.size / width);
  const bool is_quantized = input.pass_through != 0 && IsInteger(input.type);
  for (std::size_t i = 0; i < count; ++i) {
    const float element = ElementAsNumber(input.type, bytes + i * width);
    (*numbers)[i] = is_quantized ? static_cast<float>(Dequantized(attr, element)) : element;
  }
  if (input.pass_through == 0) Relayout(attr, input.fmt, numbers);
}

void RoundToNative(const rknn_tensor_attr& attr, Vector<float>* numbers) {
  const bool is_plain = attr.qnt_type == RKNN_TENSOR_QNT_NONE;
  if (is_plain && attr.type != RKNN_TENSOR_FLOAT16) return;
  uint8_t element[sizeof(float)];
  for (float& number : *numbers) {
    EncodeNative(attr, &number, 1, element);
    number = ElementAsNumber(attr.type, element);
    if (IsInteger(attr.type)) number = static_cast<float>(Dequantized(attr, number));
  }
}

void EncodeNative(const rknn_tensor_attr& attr, const float* numbers, std::size_t count,
                  uint8_t* to) {
  const std::size_t width = ElementBytes(attr.type);
  for (std::size_t i = 0; i < count; ++i, to += width) {
    switch (attr.type) {
      case RKNN_TENSOR_FLOAT32:
        std::memcpy(to, &numbers[i], sizeof(float));
        break;
      case RKNN_TENSOR_FLOAT16: {
        const uint16_t half = NearestHalf(numbers[i]);
        std::memcpy(to, &half, sizeof(half));
        break;
      }
      case RKNN_TENSOR_INT8:
        StoreInteger<int8_t>(Quantized(attr, numbers[i]), to);
        break;
      case RKNN_TENSOR_UINT8:
        StoreInteger<uint8_t>(Quantized(attr, numbers[i]), to);
        break;
      case RKNN_TENSOR_INT16:
        StoreInteger<int16_t>(Quantized(attr, numbers[i]), to);
        break;
    }
  }
}

}  // namespace rknn_sim

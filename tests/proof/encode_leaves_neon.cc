// The conversions of the NEON encoders.
#include "src/rknn/encode_neon.cc"
#include "tests/proof/leaves.h"

namespace corvane {
namespace {

template <class Element>
void Convert(const float* values, std::size_t count, Element* elements) {
  for (std::size_t i = 0; i < count; i += 16) {
    const float* v = values + i;
    Store({{vld1q_f32(v), vld1q_f32(v + 4), vld1q_f32(v + 8), vld1q_f32(v + 12)}}, elements + i);
  }
}

}  // namespace

const std::vector<Conversion<uint16_t>>& HalfLeaves() {
  static const std::vector<Conversion<uint16_t>> leaves = {
      {"neon-rebias", 0x39000000, 0x477FE000, 112U << 23, Convert<uint16_t>}};
  return leaves;
}

const std::vector<Conversion<int16_t>>& LowHalfLeaves() {
  static const std::vector<Conversion<int16_t>> leaves = {
      {"neon", 0, 0x7FFFFFFF, 0, Convert<int16_t>}};
  return leaves;
}

const EncodeKernels& VectorKernels() { return kNeonKernels; }

}  // namespace corvane

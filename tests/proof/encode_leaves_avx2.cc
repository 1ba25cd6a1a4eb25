// The conversions of the AVX2 encoders.
#include "src/rknn/encode_avx2.cc"
#include "tests/proof/leaves.h"

namespace corvane {
namespace {

// As Fill() does: packing two registers of integers takes fours 0 and 2, then 1 and 3.
template <class Values, class Element>
void Convert(const float* values, std::size_t count, Element* elements) {
  constexpr int kSecond = IsPacked(static_cast<Element*>(nullptr)) ? 8 : 4;
  constexpr int kThird = 12 - kSecond;
  for (std::size_t i = 0; i < count; i += 16) {
    const float* v = values + i;
    Values::Store(_mm256_loadu2_m128(v + kSecond, v), _mm256_loadu2_m128(v + 12, v + kThird),
                  elements + i);
  }
}

}  // namespace

const std::vector<Conversion<uint16_t>>& HalfLeaves() {
  static const std::vector<Conversion<uint16_t>> leaves = {
      {"avx2-any", 0, 0x7FFFFFFF, 0, Convert<AnyValues, uint16_t>},
      {"avx2-in-range", 0x38800000, 0x477FE000, 0, Convert<ValuesInRange, uint16_t>}};
  return leaves;
}

const std::vector<Conversion<int16_t>>& LowHalfLeaves() {
  static const std::vector<Conversion<int16_t>> leaves = {
      {"avx2-any", 0, 0x7FFFFFFF, 0, Convert<AnyValues, int16_t>},
      {"avx2-in-range", 0, 0x46FFFE00, 0, Convert<ValuesInRange, int16_t>}};
  return leaves;
}

const EncodeKernels& VectorKernels() { return kAvx2Kernels; }

}  // namespace corvane

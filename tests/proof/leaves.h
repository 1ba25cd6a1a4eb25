// The vector loops' inner functions, which the files that define them keep to themselves. One
// source file for each architecture includes those files and exposes them here.
#ifndef CORVANE_TESTS_PROOF_LEAVES_H_
#define CORVANE_TESTS_PROOF_LEAVES_H_

#include "src/image/inside_run.h"
#include "src/rknn/encode_kernels.h"
#include "tests/proof/enumeration.h"

namespace corvane {

// Turns `count` floats, a multiple of 16, into elements.
template <class Element>
struct Conversion {
  const char* name;
  // The bits of the magnitudes that the conversion's precondition admits; zero always is.
  uint32_t first_magnitude, last_magnitude;
  uint32_t exponent_offset;  // subtracted from the bits of a value other than zero beforehand
  void (*convert)(const float* values, std::size_t count, Element* elements);
};

const std::vector<Conversion<uint16_t>>& HalfLeaves();
const std::vector<Conversion<int16_t>>& LowHalfLeaves();

// The vector loops of this build.
const EncodeKernels& VectorKernels();
extern const WarpInsideRun kVectorInsideRun;

// The claims on the vector loops' blend, whose parts differ between the architectures.
std::vector<Claim> VectorBlendClaims();

}  // namespace corvane

#endif  // CORVANE_TESTS_PROOF_LEAVES_H_

#include "src/image/inside_run.h"

namespace corvane {

WarpInsideRun FastestInsideRun() {
#if defined(CORVANE_SIMD_NEON)
  return WarpInsideRunNeon;
#elif defined(CORVANE_SIMD_AVX2)
  static const WarpInsideRun fastest = __builtin_cpu_supports("avx2") ? WarpInsideRunAvx2 : nullptr;
  return fastest;
#else
  return nullptr;
#endif
}

}  // namespace corvane

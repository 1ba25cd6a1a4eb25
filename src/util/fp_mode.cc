// The one place that sets the floating-point mode.
//
// The kit's numbers are defined with subnormals taken as zero, and old cores take a slow path for
// them, so loading the library switches flush-to-zero on in the thread that loads it; threads that
// this thread starts later inherit the mode. Everything else is the default: round to nearest,
// NaNs propagate, no traps.
#include <cstdint>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace corvane {
namespace {

__attribute__((constructor)) void SwitchFlushToZeroOn() {
#if defined(__aarch64__)
  const std::uint64_t fpcr = 0x1000000;  // FZ alone
  __asm__ volatile("msr fpcr, %0" : : "r"(fpcr));
#elif defined(__SSE__)
  _mm_setcsr(0x9FC0);  // FTZ (results), DAZ (operands), all exceptions masked
#endif
}

}  // namespace
}  // namespace corvane

// The one place that sets the floating-point mode.
//
// docs/exactness.md says what the mode is for. The initialiser sets it in the thread that loads the
// library; threads that this thread starts later inherit it. Everything else is the default: round
// to nearest, propagate NaNs, no traps.
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

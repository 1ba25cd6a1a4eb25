#include "corvane/image.h"

namespace corvane {

int HiIVE_Resize(const uint8_t*, int, int, int, int, int, uint8_t*, int) { return -1; }

int HiIVE_cvtColor(const uint8_t*, int, int, uint8_t*, int) { return -1; }

}  // namespace corvane

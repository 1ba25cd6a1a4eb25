#include "corvane/util.h"

namespace corvane {

std::string version() { return "0.6.6.dev"; }

}  // namespace corvane

#include "corvane/version.h"

#include "corvane/util.h"

namespace corvane {

std::string version() { return CORVANE_VERSION_STRING; }

}  // namespace corvane

// Crosses every border that a user's program crosses: headers, strings and vectors both ways, an
// exception from inside, the runtime underneath.
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "corvane/backend.h"
#include "corvane/util.h"
#include "corvane/version.h"
#ifdef CONSUMER_WITH_SIMULATOR
#include "control.h"
#endif

static_assert(CORVANE_VERSION_MAJOR == 0 && CORVANE_VERSION_MINOR == 6, "asked for 0.6");

int main() {
  if (corvane::version() != CORVANE_VERSION_STRING) {
    std::puts("headers and library are of different versions");
    return 1;
  }
  const std::vector<std::string> fields = corvane::SplitByChar("a,b,c", ',');
  if (fields.size() != 3 || fields[2] != "c") return 1;
#ifdef __cpp_exceptions
  try {
    corvane::InitBackend("no such model", "", {}, {}, {}, corvane::RKNN_INPUT_FLOAT32);
    return 1;
  } catch (const std::runtime_error& error) {
    if (std::strcmp(error.what(), "failed to initialize RKNN backend.") != 0) return 1;
  }
#endif
#ifdef CONSUMER_WITH_SIMULATOR
  if (rknn_sim::MisuseCount() != 0) return 1;
#endif
  std::puts("consumer works");
  return 0;
}

#ifndef CORVANE_TOOLS_SUPPORT_FAILURE_H_
#define CORVANE_TOOLS_SUPPORT_FAILURE_H_

#include <stdexcept>

namespace corvane_tool {

// The message that the user gets before the program ends with status 1. The message names the file
// or the setting that is wrong.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SUPPORT_FAILURE_H_

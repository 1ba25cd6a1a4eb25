#include "tools/support/quiet_stdout.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace corvane_tool {

QuietStdout::QuietStdout() {
  std::fflush(stdout);
  saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (saved_ >= 0 && nowhere >= 0) dup2(nowhere, STDOUT_FILENO);
  if (nowhere >= 0) close(nowhere);
}

QuietStdout::~QuietStdout() {
  std::fflush(stdout);
  if (saved_ < 0) return;
  dup2(saved_, STDOUT_FILENO);
  close(saved_);
}

}  // namespace corvane_tool

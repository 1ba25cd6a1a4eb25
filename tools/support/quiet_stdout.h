#ifndef CORVANE_TOOLS_SUPPORT_QUIET_STDOUT_H_
#define CORVANE_TOOLS_SUPPORT_QUIET_STDOUT_H_

namespace corvane_tool {

// While it lives, what goes to standard output is dropped: the library announces each model that it
// loads there.
class QuietStdout {
 public:
  QuietStdout();
  QuietStdout(const QuietStdout&) = delete;
  QuietStdout& operator=(const QuietStdout&) = delete;
  ~QuietStdout();

 private:
  int saved_;
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SUPPORT_QUIET_STDOUT_H_

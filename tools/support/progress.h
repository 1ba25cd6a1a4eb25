// How far a run has come, for the person who waits for it.
#ifndef CORVANE_TOOLS_SUPPORT_PROGRESS_H_
#define CORVANE_TOOLS_SUPPORT_PROGRESS_H_

#include <cstddef>

namespace corvane_tool {

// A bar with the time that is left, on standard error, only where that is a terminal.
class Progress {
 public:
  explicit Progress(std::size_t total);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { Clear(); }

  void Show(std::size_t done) const;
  // Before anything else is written to the terminal.
  void Clear() const;

 private:
  std::size_t total_;
  bool shows_;
  double start_ms_;
};

// From its construction on, SIGINT and SIGTERM are noted and no longer end the program, so that it
// can end by itself with what it has done. A second signal of the same kind ends it.
class Interruption {
 public:
  Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption();

  static int signal();  // 0: none came
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SUPPORT_PROGRESS_H_

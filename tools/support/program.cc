#include "tools/support/program.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/support/failure.h"

namespace corvane_tool {

int RunProgram(const std::vector<std::string>& command) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  std::fflush(stdout);
  pid_t process = 0;
  const int error = posix_spawnp(&process, words[0], nullptr, nullptr, words.data(), environ);
  if (error != 0) throw Failure(command[0] + ": " + std::strerror(error));
  // The terminal sends these to both; the program decides, and its end is waited for.
  signal(SIGINT, SIG_IGN);
  signal(SIGQUIT, SIG_IGN);
  int status = 0;
  while (waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) throw Failure(command[0] + ": " + std::strerror(errno));
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  const int number = WTERMSIG(status);
  std::fprintf(stderr, "corvane: %s: ended by signal %d (%s)\n", command[0].c_str(), number,
               strsignal(number));
  return 128 + number;
}

void SetEnvironment(const std::string& name, const std::string& value) {
  if (setenv(name.c_str(), value.c_str(), 1) != 0) {
    throw Failure(name + ": " + std::strerror(errno));
  }
}

}  // namespace corvane_tool

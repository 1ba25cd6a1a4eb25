// corvane: the command-line tool of the library.
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "tools/command_line.h"
#include "tools/manual.h"
#include "tools/support/failure.h"

namespace {

using corvane_tool::CommandLine;

constexpr int kFailed = 1;
constexpr int kBadCommandLine = 2;

// 0: the command line is good. Otherwise done: what it asked for, or what is wrong, has been said.
int Parse(int argc, char** argv, CommandLine* line, bool* is_done) {
  try {
    line->app.parse(argc, argv);
  } catch (const CLI::RequiredError& error) {
    *is_done = true;
    // What was not understood is more often the cause than what is then missing.
    const std::vector<std::string> unknown = line->app.remaining(true);
    if (unknown.empty()) return line->app.exit(error) == 0 ? 0 : kBadCommandLine;
    std::fprintf(stderr, "corvane: '%s' is not understood here; see corvane --help\n",
                 unknown.front().c_str());
    return kBadCommandLine;
  } catch (const CLI::ParseError& error) {
    *is_done = true;
    return line->app.exit(error) == 0 ? 0 : kBadCommandLine;
  }
  return 0;
}

// Where 1 means a difference or a finding, a failure has a status of its own.
template <typename Options>
int OrCannotCompare(int (*verb)(const Options&), const Options& options) {
  try {
    return verb(options);
  } catch (const corvane_tool::Failure& failure) {
    std::fprintf(stderr, "corvane: %s\n", failure.what());
    return corvane_tool::kCannotCompare;
  }
}

int Dispatch(const CommandLine& line) {
  const CLI::App& app = line.app;
  if (app.got_subcommand("pack")) return Pack(line.pack);
  if (app.got_subcommand("info")) {
    return line.info.check ? OrCannotCompare(corvane_tool::Info, line.info) : Info(line.info);
  }
  if (app.got_subcommand("run")) return Run(line.run);
  if (app.got_subcommand("compare")) return OrCannotCompare(corvane_tool::Compare, line.compare);
  if (app.got_subcommand("explain")) return OrCannotCompare(corvane_tool::Explain, line.explain);
  if (app.got_subcommand("kinds")) return Kinds(line.kinds);
  if (app.got_subcommand("align")) return Align(line.align);
  if (app.got_subcommand("doctor")) return OrCannotCompare(corvane_tool::Doctor, line.doctor);
  if (app.got_subcommand("bench")) return OrCannotCompare(corvane_tool::Bench, line.bench);
  if (app.got_subcommand("record")) return Record(line.record);
  if (app.got_subcommand("replay")) return Replay(line.replay);
  const bool is_manual = app.got_subcommand("manual");
  std::fputs((is_manual ? corvane_tool::ManPage(app) : corvane_tool::BashCompletion(app)).c_str(),
             stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int status = kFailed;
  try {
    CommandLine line;
    bool is_done = false;
    const int parsed = Parse(argc, argv, &line, &is_done);
    status = is_done ? parsed : Dispatch(line);
  } catch (const corvane_tool::Failure& failure) {
    std::fprintf(stderr, "corvane: %s\n", failure.what());
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "corvane: out of memory\n");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "corvane: %s\n", error.what());
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    std::fprintf(stderr, "corvane: standard output cannot be written\n");
    status = kFailed;
  }
  return status;
}

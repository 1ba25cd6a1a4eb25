// The verbs and options of the tool, in one place: parsing, --help, the man page and the completion
// are all made from it.
#ifndef CORVANE_TOOLS_COMMAND_LINE_H_
#define CORVANE_TOOLS_COMMAND_LINE_H_

#include <CLI/CLI.hpp>

#include "tools/commands.h"

namespace corvane_tool {

struct CommandLine {
  PackOptions pack;
  InfoOptions info;
  RunOptions run;
  CompareOptions compare;
  ExplainOptions explain;
  KindsOptions kinds;
  AlignOptions align;
  DoctorOptions doctor;
  BenchOptions bench;
  RecordOptions record;
  ReplayOptions replay;
  CLI::App app{
      "Models for the RKNN runtime: pack, look at, run, compare and explain them; record and "
      "replay programs.",
      "corvane"};

  CommandLine();
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_COMMAND_LINE_H_

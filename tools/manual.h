// The man page and the completion for bash, made from the command line's own description.
#ifndef CORVANE_TOOLS_MANUAL_H_
#define CORVANE_TOOLS_MANUAL_H_

#include <CLI/CLI.hpp>
#include <string>

namespace corvane_tool {

std::string ManPage(const CLI::App& app);
std::string BashCompletion(const CLI::App& app);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_MANUAL_H_

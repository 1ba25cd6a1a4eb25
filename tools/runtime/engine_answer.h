// Runs a model on one engine of the simulated runtime, in a process of its own: the runtime chooses
// its engine once in a process.
#ifndef CORVANE_TOOLS_RUNTIME_ENGINE_ANSWER_H_
#define CORVANE_TOOLS_RUNTIME_ENGINE_ANSWER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/results/comparison.h"

namespace corvane_tool {

struct EngineAnswer {
  std::string engine;   // "OpenCV 4.6.0", as the runtime says it
  std::string problem;  // empty: none, and there are outputs
  TensorSet outputs;    // by number and name
};

// engine: as CORVANE_SIM_ENGINE names it. Every input gets the same noise each time, from -1 up to
// 1. Must come before the first call of the runtime. Throws Failure where no process can be made.
EngineAnswer AskEngine(const char* engine, const std::string& path,
                       const std::vector<uint8_t>& model);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_ENGINE_ANSWER_H_

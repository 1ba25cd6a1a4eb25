// The environment variables. ctest sets those for faults and the trace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "control.h"
#include "tests/support/onnx_writer.h"
#include "tests/support/temp_file.h"

namespace {

using onnx_writer::EchoModel;
using rknn_sim::OrderFaults;
using testing::ElementsAre;

// The lines without what differs from run to run and without quotation marks.
std::vector<std::string> LinesOfTrace() {
  std::ifstream file(std::getenv("CORVANE_SIM_TRACE"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    for (const std::string key : {"\"at_us\":", "\"took_us\":", "\"thread\":"}) {
      const std::size_t begin = line.find(key);
      if (begin != std::string::npos) line.erase(begin, line.find(',', begin) + 1 - begin);
    }
    line.erase(std::remove(line.begin(), line.end(), '"'), line.end());
    lines.push_back(line);
  }
  return lines;
}

// Runs before the other tests: the variables are read at the process's first call.
TEST(SimulatorEnvironmentDeathTest, SaysWhichVariableIsNotUnderstood) {
  const corvane_test::TempFile model("not a trace"), cut_trace("{\"cal"), trace("{\"call\":1}\n");
  const struct {
    const char* name;
    std::string value;
    const char* line;  // a regular expression; what else is written fails the test
  } rows[] = {
      {"CORVANE_SIM_FAULTS", "rknn_run:0", "rknn simulator: CORVANE_SIM_FAULTS: 'rknn_run:0' is"},
      {"CORVANE_SIM_TRACE", "/nowhere/calls", "TRACE: '/nowhere/calls' cannot be written \\(No"},
      {"CORVANE_SIM_TRACE", model.path(), "cannot be written \\(it holds something else than"},
      {"CORVANE_SIM_TRACE", cut_trace.path(), "cannot be written \\(it holds something else than"},
      {"CORVANE_SIM_TRACE", trace.path(), "^rknn simulator: rknn_run: context 0x1 [^\n]*\n$"},
      {"CORVANE_SIM_TRACE", "/dev/null", "^rknn simulator: rknn_run: context 0x1 [^\n]*\n$"},
      {"CORVANE_SIM_THREADS", "0", "'0' is not understood; wanted a number from 1 to 256"},
      {"CORVANE_SIM_THREADS", "257", "THREADS: '257' is not understood"},
      {"CORVANE_SIM_THREADS", "4x", "THREADS: '4x' is not understood"},
      {"CORVANE_SIM_THREADS", "256", "^rknn simulator: rknn_run: context 0x1 [^\n]*\n$"},
  };
  for (const auto& row : rows) {
    const auto run = [&] {
      for (const char* name : {"CORVANE_SIM_FAULTS", "CORVANE_SIM_TRACE"}) unsetenv(name);
      setenv(row.name, row.value.c_str(), 1);
      std::exit(rknn_run(1, nullptr) == RKNN_ERR_CTX_INVALID ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), row.line) << row.name << "=" << row.value;
  }
  EXPECT_EQ(model.Read(), "not a trace");
  EXPECT_THAT(trace.Read(), testing::HasSubstr("\"ret\":-7")) << "an earlier trace is replaced";
}

// CORVANE_SIM_FAULTS=" rknn_init:2=-4, rknn_run:2=-1,rknn_query:*+20ms"
TEST(SimulatorEnvironment, OrdersFaultsAndTracesEveryCall) {
  std::string text = "CORVANE-SIM\ninput in uint8 1x1x1x2\noutput out float32 1x2 echo=0\n";
  rknn_context context = 0, other = 0;
  ASSERT_EQ(rknn_init(&context, &text[0], text.size(), 0), 0);
  EXPECT_EQ(rknn_init(&other, &text[0], text.size(), 8), -4);
  // The trace escapes the bytes that JSON does not take.
  std::string hostile = EchoModel({{"corvane.input.type", "\"\\\n\xff"}});
  EXPECT_EQ(rknn_init(&other, &hostile[0], hostile.size(), 0), -6);
  rknn_input_output_num counts;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(rknn_query(context, RKNN_QUERY_IN_OUT_NUM, &counts, sizeof(counts)), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
  rknn_tensor_attr attr = {};
  attr.index = 7;
  EXPECT_EQ(rknn_query(context, RKNN_QUERY_OUTPUT_ATTR, &attr, sizeof(attr)), -5);
  EXPECT_EQ(rknn_query(context, static_cast<rknn_query_cmd>(6), nullptr, 0), -5);
  uint8_t pixels[2] = {3, 4};
  rknn_input input = {};
  input.buf = pixels;
  input.size = 2;
  input.type = RKNN_TENSOR_UINT8;
  input.fmt = RKNN_TENSOR_NHWC;
  EXPECT_EQ(rknn_inputs_set(context, 1, &input) | rknn_run(context, nullptr), 0);
  EXPECT_EQ(rknn_run(context, nullptr), -1);
  rknn_output output = {};
  output.want_float = 1;
  EXPECT_EQ(rknn_outputs_get(context, 1, &output, nullptr), 0);
  EXPECT_EQ(rknn_outputs_release(context, 1, &output) | rknn_destroy(context), 0);

  const auto size = ",size:" + std::to_string(text.size());
  const auto line = [](int call, const std::string& function, int nth, const std::string& rest) {
    return "{call:" + std::to_string(call) + ",function:rknn_" + function +
           ",nth:" + std::to_string(nth) + ",context:0x" + rest + "}";
  };
  EXPECT_THAT(
      LinesOfTrace(),
      ElementsAre(
          line(1, "init", 1, "c0de0001,ret:0" + size + ",flags:0"),
          line(2, "init", 2, "0,ret:-4" + size + ",flags:8"),
          line(3, "init", 3,
               "0,ret:-6,size:" + std::to_string(hostile.size()) +
                   ",flags:0,misuse:the model's property corvane.input.type is "
                   "'\\u0022\\u005c\\u000a\\u00ff'; wanted float32, float16, int8, uint8 or int16"),
          line(4, "query", 1, "c0de0001,ret:0,cmd:RKNN_QUERY_IN_OUT_NUM,size:8"),
          line(5, "query", 2,
               "c0de0001,ret:-5,cmd:RKNN_QUERY_OUTPUT_ATTR,index:7,size:360,misuse:index is 7 for "
               "RKNN_QUERY_OUTPUT_ATTR; wanted one below 1, the model's count"),
          line(6, "query", 3, "c0de0001,ret:-5,cmd:6,size:0,misuse:cmd is 6; wanted 0 to 5"),
          line(7, "inputs_set", 1,
               "c0de0001,ret:0,n_inputs:1,inputs:[{index:0,size:2,pass_through:0,type:UINT8,"
               "fmt:NHWC}]"),
          line(8, "run", 1, "c0de0001,ret:0"), line(9, "run", 2, "c0de0001,ret:-1"),
          line(10, "outputs_get", 1,
               "c0de0001,ret:0,n_outputs:1,outputs:[{index:0,size:0,want_float:1,is_prealloc:0}]"),
          line(11, "outputs_release", 1,
               "c0de0001,ret:0,n_outputs:1,outputs:[{index:0,size:8,want_float:1,is_prealloc:0}]"),
          line(12, "destroy", 1, "c0de0001,ret:0")));
}

TEST(SimulatorEnvironment, SaysWhichFaultIsNotUnderstood) {
  const struct {
    const char* text;
    const char* entry;  // null: understood
  } rows[] = {
      {"", nullptr},
      {",  ,", nullptr},
      {"rknn_outputs_release:18446744073709551615=2147483647+3600s", nullptr},
      {"rknn_run:*=-1,rknn_run:3", "'rknn_run:3'"},  // neither a code nor a delay
      {"rknn_run:=-1", "'rknn_run:=-1'"},
      {"rknn_run:0=-1", "'rknn_run:0=-1'"},
      {"rknn_run=-1", "'rknn_run=-1'"},
      {"rknn_runs:1=-1", "'rknn_runs:1=-1'"},
      {"rknn_run:1=2147483648", "'rknn_run:1=2147483648'"},
      {"rknn_run:1=-1 +2ms", "'rknn_run:1=-1 +2ms'"},
      {"rknn_run:1+5", "'rknn_run:1+5'"},
      {"rknn_run:1+-5ms", "'rknn_run:1+-5ms'"},
      {"rknn_run:1+3601s", "'rknn_run:1+3601s'"},
      {"rknn_run:*", "'rknn_run:*'"},
  };
  for (const auto& row : rows) {
    rknn_sim::Session session;
    rknn_sim::String why;
    EXPECT_EQ(OrderFaults(row.text, &why), row.entry == nullptr) << row.text;
    if (row.entry != nullptr) {
      EXPECT_THAT(why.c_str(), testing::StartsWith(row.entry));
    }
    // No entry of such a text is ordered.
    EXPECT_EQ(rknn_run(0, nullptr), RKNN_ERR_CTX_INVALID);
  }
}

}  // namespace

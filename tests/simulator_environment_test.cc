// Faults and the trace as the environment orders them. The test system sets both variables: they
// are read once, at a program's first call.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "control.h"
#include "tests/support/onnx_writer.h"

namespace {

using onnx_writer::EchoModel;
using rknn_sim::OrderFaults;
using testing::ElementsAre;

std::vector<std::string> LinesOfTrace() {
  std::ifstream file(std::getenv("CORVANE_SIM_TRACE"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    // What differs from run to run counts as 0.
    for (const char* key : {"\"at_us\":", "\"took_us\":", "\"thread\":"}) {
      const size_t begin = line.find(key) + std::strlen(key);
      line.replace(begin, line.find_first_not_of("0123456789", begin) - begin, "0");
    }
    lines.push_back(line);
  }
  return lines;
}

// CORVANE_SIM_FAULTS=" rknn_init:2=-4, rknn_run:2=-1,rknn_query:*+20ms"
TEST(SimulatorEnvironment, OrdersFaultsAndTracesEveryCall) {
  std::string text = "CORVANE-SIM\ninput in uint8 1x1x1x2\noutput out float32 1x2 echo=0\n";
  rknn_context context = 0, other = 0;
  ASSERT_EQ(rknn_init(&context, &text[0], text.size(), 0), 0);
  EXPECT_EQ(rknn_init(&other, &text[0], text.size(), 8), -4);
  // Refused, and told in a line of which every byte is JSON.
  std::string hostile = EchoModel({{"corvane.input.type", "\"\\\n\xff"}});
  EXPECT_EQ(rknn_init(&other, &hostile[0], hostile.size(), 0), -6);
  rknn_input_output_num counts;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(rknn_query(context, RKNN_QUERY_IN_OUT_NUM, &counts, sizeof(counts)), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
  rknn_tensor_attr attr = {};
  attr.index = 7;
  EXPECT_EQ(rknn_query(context, RKNN_QUERY_OUTPUT_ATTR, &attr, sizeof(attr)), -5);
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

  const std::string kContext = "\"context\":\"0xc0de0001\",\"ret\":";
  const auto line = [](int call, const std::string& rest) {
    return "{\"call\":" + std::to_string(call) +
           ",\"at_us\":0,\"took_us\":0,\"thread\":0,\"function\":\"rknn_" + rest + "}";
  };
  const auto size = std::to_string(text.size());
  EXPECT_THAT(
      LinesOfTrace(),
      ElementsAre(
          line(1, "init\",\"nth\":1," + kContext + "0,\"size\":" + size + ",\"flags\":0"),
          line(2,
               "init\",\"nth\":2,\"context\":\"0x0\",\"ret\":-4,\"size\":" + size + ",\"flags\":8"),
          line(3, "init\",\"nth\":3,\"context\":\"0x0\",\"ret\":-6,\"size\":" +
                      std::to_string(hostile.size()) +
                      ",\"flags\":0,\"misuse\":\"the model's property corvane.input.type is "
                      "'\\u0022\\u005c\\u000a\\u00ff'; wanted float32, float16, int8, uint8 or "
                      "int16\""),
          line(4,
               "query\",\"nth\":1," + kContext + "0,\"cmd\":\"RKNN_QUERY_IN_OUT_NUM\",\"size\":8"),
          line(5, "query\",\"nth\":2," + kContext +
                      "-5,\"cmd\":\"RKNN_QUERY_OUTPUT_ATTR\",\"index\":7,\"size\":360,\"misuse\":"
                      "\"index is 7 for RKNN_QUERY_OUTPUT_ATTR; wanted one below 1, the model's "
                      "count\""),
          line(6, "inputs_set\",\"nth\":1," + kContext +
                      "0,\"n_inputs\":1,\"inputs\":[{\"index\":0,\"size\":2,\"pass_through\":0,"
                      "\"type\":\"UINT8\",\"fmt\":\"NHWC\"}]"),
          line(7, "run\",\"nth\":1," + kContext + "0"),
          line(8, "run\",\"nth\":2," + kContext + "-1"),
          line(9, "outputs_get\",\"nth\":1," + kContext +
                      "0,\"n_outputs\":1,\"outputs\":[{\"index\":0,\"size\":0,\"want_float\":1,"
                      "\"is_prealloc\":0}]"),
          line(10, "outputs_release\",\"nth\":1," + kContext +
                       "0,\"n_outputs\":1,\"outputs\":[{\"index\":0,\"size\":8,\"want_float\":1,"
                       "\"is_prealloc\":0}]"),
          line(11, "destroy\",\"nth\":1," + kContext + "0")));
}

TEST(SimulatorEnvironment, SaysWhichFaultIsNotUnderstood) {
  const struct {
    const char* text;
    const char* entry;  // null: understood
  } rows[] = {
      {"", nullptr},
      {",  ,", nullptr},
      {"rknn_outputs_release:18446744073709551615=2147483647+3600s", nullptr},
      {"rknn_run:*=-1,rknn_run:3", "'rknn_run:3'"},  // neither a code nor a delay is no fault
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
    // Nothing of a text that is not understood holds.
    EXPECT_EQ(rknn_run(0, nullptr), RKNN_ERR_CTX_INVALID);
  }
}

}  // namespace

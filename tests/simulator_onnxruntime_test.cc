// The engine ONNX Runtime, with a stand-in for its library. `scripts/test engines` has the real
// one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "control.h"
#include "tests/support/fake_onnxruntime.h"
#include "tests/support/onnx_writer.h"
#include "tests/support/temp_file.h"

namespace {

using namespace onnx_writer;  // NOLINT: the whole file writes models
using testing::ElementsAre;
using testing::HasSubstr;

// A model with one input and the outputs of these names; the stand-in knows what they are.
std::string OneInput(const std::vector<std::string>& outputs, uint64_t type = kFloat,
                     const std::vector<int64_t>& dims = {1, 2}) {
  std::string graph = Input(Value("in", dims, type));
  for (const std::string& output : outputs) graph += Output(Bytes(1, output));
  return Model(graph);
}

// What a call wrote to standard error.
template <typename Call>
std::string ErrorOf(int wanted, Call call) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(call(), wanted);
  return testing::internal::GetCapturedStderr();
}

int Init(const std::string& model, rknn_context* context) {
  return rknn_init(context, const_cast<char*>(model.data()), model.size(), 0);
}

int SetInput(rknn_context context, std::vector<float> numbers) {
  rknn_input input = {};
  input.buf = numbers.data();
  input.size = numbers.size() * sizeof(float);
  input.type = RKNN_TENSOR_FLOAT32;
  return rknn_inputs_set(context, 1, &input);
}

std::vector<std::vector<float>> Outputs(rknn_context context, uint32_t count) {
  std::vector<rknn_output> outputs(count);
  for (rknn_output& output : outputs) output.want_float = 1;
  for (uint32_t i = 0; i < count; ++i) outputs[i].index = i;
  EXPECT_EQ(rknn_outputs_get(context, count, outputs.data(), nullptr), 0);
  std::vector<std::vector<float>> numbers;
  for (const rknn_output& output : outputs) {
    const auto* from = static_cast<const float*>(output.buf);
    numbers.emplace_back(from, from + output.size / sizeof(float));
  }
  EXPECT_EQ(rknn_outputs_release(context, count, outputs.data()), 0);
  return numbers;
}

TEST(SimulatorOnnxRuntime, TakesEveryTypeOfOutput) {
  rknn_sim::Session session;
  rknn_context context = 0;
  const std::string model = OneInput({"as1", "as2", "as3", "as4", "as5", "as6", "as7", "as9",
                                      "as10", "as11", "as12", "as13", "as16"});
  ASSERT_EQ(Init(model, &context), 0);
  const std::vector<float> numbers = {3, 100};
  EXPECT_EQ(SetInput(context, numbers) | rknn_run(context, nullptr), 0);
  const std::vector<float> ones = {1, 1};  // halves
  EXPECT_THAT(Outputs(context, 13),
              ElementsAre(numbers, numbers, numbers, numbers, numbers, numbers, numbers, numbers,
                          ones, numbers, numbers, numbers, numbers));
  rknn_sdk_version version = {};
  EXPECT_EQ(rknn_query(context, RKNN_QUERY_SDK_VERSION, &version, sizeof(version)), 0);
  EXPECT_STREQ(version.drv_version, "none: ONNX Runtime 1.99.0 on the CPU, no NPU");
  EXPECT_EQ(rknn_destroy(context), 0);
  EXPECT_EQ(fake_onnxruntime::LiveObjects(), 0);
  EXPECT_EQ(fake_onnxruntime::IntraThreads(), 1);
  EXPECT_EQ(fake_onnxruntime::InterThreads(), 1);
}

TEST(SimulatorOnnxRuntime, GivesInputsInTheirDeclaredTypeAndSizes) {
  rknn_sim::Session session;
  const struct {
    uint64_t type;
    std::vector<int64_t> dims;
    std::vector<float> numbers;
    std::string bytes;
  } rows[] = {
      {1, {2}, {1, -NAN}, std::string("\0\0\x80\x3f\0\0\xc0\xff", 8)},
      {1, {}, {-INFINITY}, std::string("\0\0\x80\xff", 4)},  // a scalar
      {10, {kOpen, 2}, {1, INFINITY}, std::string("\0\x3c\0\x7c", 4)},
      {2, {1, 2}, {3, 300}, "\x03\xff"},
      {3, {2, 1}, {-3.5f, NAN}, std::string("\xfc\0", 2)},
  };
  for (const auto& row : rows) {
    rknn_context context = 0;
    const std::string model = OneInput({"as2"}, row.type, row.dims);
    ASSERT_EQ(Init(model, &context), 0);
    EXPECT_EQ(SetInput(context, row.numbers) | rknn_run(context, nullptr), 0);
    const std::vector<uint8_t>& bytes = fake_onnxruntime::InputBytes();
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), row.bytes) << "type " << row.type;
    EXPECT_EQ(fake_onnxruntime::InputType(), int(row.type));
    std::vector<int64_t> dims = row.dims;
    if (!dims.empty() && dims[0] == kOpen) dims[0] = 1;
    EXPECT_EQ(fake_onnxruntime::InputDims(), dims);
    EXPECT_EQ(rknn_destroy(context), 0);
  }
}

// Which the real library lets share memory with values that are read.
TEST(SimulatorOnnxRuntime, IsNotGivenWhatNobodyReads) {
  rknn_sim::Session session;
  const auto body = [](const std::string& graph) {  // of a node that has subgraphs
    return Bytes(5, Bytes(1, "body") + Number(20, 5) + Bytes(6, graph));
  };
  const std::string inner = Node("If", {"in"}, "b", body(Node("Neg", {"inner"}, "c")));
  const std::string reads[] = {
      Node("Abs", {"in"}, "read"),
      Node("Abs", {"in"}, "result"),
      Node("Abs", {"in"}, "inner"),
      Node("Loop", {"read"}, "as1", body(inner + Output(Bytes(1, "result")))),
  };
  const std::string unread[] = {Node("Cos", {"in"}, "a"), Node("Sin", {"a"}, "unread"),
                                Node("Tan", {"as1"}, "c")};
  const std::string ends = Input(Value("in", {1, 2})) + Output(Bytes(1, "as1"));
  const std::string lean = Model(reads[0] + reads[1] + reads[2] + reads[3] + ends);
  const std::string full =
      Model(unread[0] + reads[0] + unread[1] + reads[1] + reads[2] + reads[3] + unread[2] + ends);
  for (const std::string& model : {lean, full}) {
    rknn_context context = 0;
    ASSERT_EQ(Init(model, &context), 0);
    EXPECT_EQ(fake_onnxruntime::ModelBytes(), lean);
    EXPECT_EQ(rknn_destroy(context), 0);
  }
}

TEST(SimulatorOnnxRuntime, LeavesTheFloatingPointModeAndComputesInTheDefaultOne) {
  rknn_sim::Session session;
  rknn_context context = 0;
  const std::string model = OneInput({"mode"});
  const auto keeps_mode = [](auto call) {
    std::fesetround(FE_DOWNWARD);
    const int ret = call();
    EXPECT_EQ(std::fegetround(), FE_DOWNWARD);
    std::fesetround(FE_TONEAREST);
    return ret;
  };
  ASSERT_EQ(keeps_mode([&] { return Init(model, &context); }), 0);
  EXPECT_EQ(keeps_mode([&] { return SetInput(context, {1, 2}); }), 0);
  EXPECT_EQ(keeps_mode([&] { return rknn_run(context, nullptr); }), 0);
  EXPECT_EQ(Outputs(context, 1)[0][0], FE_TONEAREST);
  EXPECT_EQ(keeps_mode([&] { return rknn_destroy(context); }), 0);
}

TEST(SimulatorOnnxRuntime, ReleasesEverythingWhateverFails) {
  rknn_sim::Session session;
  const std::string model = OneInput({"as1", "as7"});
  for (const bool fails_in_run : {false, true}) {
    int nth = 0;
    for (int ret = -1; ret != 0 && nth < 100;) {
      rknn_context context = 0;
      ++nth;
      testing::internal::CaptureStderr();
      fake_onnxruntime::FailAt(fails_in_run ? 0 : nth);
      ret = Init(model, &context);
      if (fails_in_run) {
        EXPECT_EQ(ret | SetInput(context, {1, 2}), 0);
        fake_onnxruntime::FailAt(nth);
        ret = rknn_run(context, nullptr);
      }
      fake_onnxruntime::FailAt(0);
      const std::string error = testing::internal::GetCapturedStderr();
      if (context != 0) {
        EXPECT_EQ(rknn_destroy(context), 0);
      }
      EXPECT_EQ(fake_onnxruntime::LiveObjects(), 0) << nth;
      EXPECT_THAT(error,
                  testing::MatchesRegex(ret == 0 ? ""
                                                 : "rknn simulator: rknn_.*: ONNX Runtime cannot "
                                                   ".* this ONNX model: made to fail .ret=-.]\n"));
    }
    EXPECT_EQ(nth, 1 + (fails_in_run ? 2 + 2 * 6 : 9)) << "each call but the last failed";
  }
}

TEST(SimulatorOnnxRuntime, RefusesInOneLine) {
  rknn_sim::Session session;
  const struct {
    std::string model;
    const char* line;
  } rows[] = {
      {OneInput({"crash"}), "ONNX Runtime 1.99.0's import of this ONNX model crashed (signal 8"},
      {OneInput({"sequence"}), "output 'sequence' is no tensor"},
      {OneInput({"as8"}), "output 'as8' has elements of ONNX type 8; wanted numbers"},
      {OneInput({"as1"}, kFloat, {1, kOpen}), "input 'in' leaves dimension 1 open"},
  };
  for (const auto& row : rows) {
    rknn_context context = 0;
    const std::string error =
        ErrorOf(RKNN_ERR_MODEL_INVALID, [&] { return Init(row.model, &context); });
    EXPECT_THAT(error, HasSubstr(row.line));
    EXPECT_EQ(error.find('\n'), error.size() - 1);
    EXPECT_EQ(fake_onnxruntime::LiveObjects(), 0);
  }
}

TEST(SimulatorOnnxRuntime, TriesOnesWhereZerosAreRefused) {
  rknn_sim::Session session;
  rknn_context context = 0;
  const std::string model = OneInput({"inverse"});
  ASSERT_EQ(ErrorOf(0, [&] { return Init(model, &context); }), "");
  EXPECT_EQ(SetInput(context, {2, 4}) | rknn_run(context, nullptr), 0);
  EXPECT_THAT(Outputs(context, 1)[0], ElementsAre(0.5f, 0.25f));
  EXPECT_EQ(SetInput(context, {2, 0}), 0);
  EXPECT_THAT(ErrorOf(RKNN_ERR_FAIL, [&] { return rknn_run(context, nullptr); }),
              HasSubstr("ONNX Runtime cannot run this ONNX model: a number is 0"));
  EXPECT_EQ(rknn_destroy(context), 0);
}

TEST(SimulatorOnnxRuntime, ChecksTheSizesOfEachRun) {
  rknn_sim::Session session;
  rknn_context context = 0;
  // Another answer than on zeros, where one has the declared sizes and one has not.
  const std::string model = Model(Input(Value("in", {1, 2})) + Output(Value("counted", {4, 1})));
  ASSERT_EQ(Init(model, &context), 0);
  EXPECT_EQ(SetInput(context, {3, 0}) | rknn_run(context, nullptr), 0);
  EXPECT_THAT(Outputs(context, 1)[0], ElementsAre(0, 0, 0, 0));
  EXPECT_EQ(SetInput(context, {5, 0}), 0);
  EXPECT_THAT(ErrorOf(RKNN_ERR_FAIL, [&] { return rknn_run(context, nullptr); }),
              HasSubstr("output 0 is 6; wanted 4x1, as at rknn_init"));
  EXPECT_EQ(rknn_destroy(context), 0);
}

// Each row is a process of its own: the variables are read at its first call.
TEST(SimulatorOnnxRuntimeDeathTest, SaysWhatIsNotThere) {
  const corvane_test::TempFile text("no library");
  const struct {
    const char* engine;
    std::string path;
    const char* line;
  } rows[] = {
      {"onnxruntime", "/nowhere/lib.so", "CORVANE_SIM_ONNXRUNTIME: .*/nowhere/lib.so"},
      {"onnxruntime", text.path(), "CORVANE_SIM_ONNXRUNTIME: ONNX Runtime cannot be loaded: "},
      {"", CORVANE_TEST_OTHER_LIBRARY, "/librknn_api[^\n]*' is not ONNX Runtime's"},
      {"cuda", "", "CORVANE_SIM_ENGINE: 'cuda' is not understood; wanted opencv or onnxruntime"},
  };
  for (const auto& row : rows) {
    const auto run = [&] {
      setenv("CORVANE_SIM_ENGINE", row.engine, 1);
      setenv("CORVANE_SIM_ONNXRUNTIME", row.path.c_str(), 1);
      rknn_context context = 0;
      Init(OneInput({"as1"}), &context);
      std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), row.line) << row.line;
  }
}

}  // namespace

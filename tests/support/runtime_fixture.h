// A test of the backend on the simulated runtime: scripts a model, tells the calls as one text.
#ifndef CORVANE_TESTS_SUPPORT_RUNTIME_FIXTURE_H_
#define CORVANE_TESTS_SUPPORT_RUNTIME_FIXTURE_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "control.h"
#include "corvane/backend.h"

namespace corvane_test {

// A file with the given bytes, gone with its owner.
class TempFile {
 public:
  explicit TempFile(const std::string& bytes) : path_(testing::TempDir() + "corvane_XXXXXX") {
    const int descriptor = mkstemp(&path_[0]);
    EXPECT_EQ(write(descriptor, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(descriptor);
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile() { std::remove(path_.c_str()); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class RuntimeTest : public testing::Test {
 protected:
  static rknn_sim::Tensor Input(uint32_t width, uint32_t height, uint32_t channels, int8_t fl = 0) {
    rknn_sim::Tensor tensor = rknn_sim::MakeTensor({width, height, channels, 1});
    tensor.attr.fl = fl;
    return tensor;
  }
  // dims innermost first, as the runtime has them; every element is value.
  static rknn_sim::Tensor Output(std::initializer_list<uint32_t> dims, float value = 0) {
    rknn_sim::Tensor tensor = rknn_sim::MakeTensor(dims);
    tensor.values = {value};
    return tensor;
  }
  // The next backend gets this model, whatever its file holds; forgets calls and scripts.
  void UseModel(const std::vector<rknn_sim::Tensor>& inputs,
                const std::vector<rknn_sim::Tensor>& outputs) {
    ForgetCalls();
    rknn_sim::Model model;
    model.inputs.assign(inputs.begin(), inputs.end());
    model.outputs.assign(outputs.begin(), outputs.end());
    rknn_sim::SetModel(model);
  }
  // Counts of calls start again, too.
  void ForgetCalls() {
    rknn_sim::Reset();
    rknn_sim::SetRecording(true);
    // What is told here is what the library says; whether a model would take it is not the matter.
    for (auto check : {rknn_sim::Check::kInputSize, rknn_sim::Check::kInputType}) {
      rknn_sim::Relax(check);
    }
  }

  std::unique_ptr<corvane::Backend_<float>> MakeBackend(corvane::RKNNInputType kind,
                                                        const std::vector<float>& means = {},
                                                        const std::vector<float>& scales = {}) {
    testing::internal::CaptureStdout();
    auto backend = corvane::InitBackend(model_file_.path(), "", {}, means, scales, kind);
    testing::internal::GetCapturedStdout();
    return backend;
  }

  static std::string CallNames() { return rknn_sim::CallOrder().c_str(); }

  // The calls with what the library handed over, e.g. "query(in 0) run(null)".
  static std::string Calls() {
    std::string text;
    for (const rknn_sim::Call& call : rknn_sim::Calls()) {
      if (!text.empty()) text += ' ';
      text += NameOf(call.function) + std::string("rknn_").size();
      text += '(' + Arguments(call) + ')';
    }
    return text;
  }

  static std::vector<uint8_t> LastInputBytes() {
    const auto calls = rknn_sim::Calls(rknn_sim::Function::kInputsSet);
    if (calls.empty()) return {};
    const auto& bytes = calls.back().inputs.at(0).bytes;
    return {bytes.begin(), bytes.end()};
  }

  void TearDown() override { EXPECT_EQ(rknn_sim::MisuseCount(), 0u); }

 private:
  static std::string Arguments(const rknn_sim::Call& call) {
    using rknn_sim::Function;
    char text[120] = "";
    switch (call.function) {
      case Function::kInit:
        EXPECT_EQ(call.size, call.model.size());
        return std::string(call.model.begin(), call.model.end()) + ", flags " +
               std::to_string(call.flags);
      case Function::kQuery:
        if (call.query == RKNN_QUERY_IN_OUT_NUM) return "num";
        return (call.query == RKNN_QUERY_INPUT_ATTR ? "in " : "out ") + std::to_string(call.index);
      case Function::kInputsSet: {
        const rknn_input& input = call.inputs.at(0).record;
        std::snprintf(text, sizeof(text), "%u: index %u, size %u, pass_through %d, type %d, fmt %d",
                      call.count, input.index, input.size, input.pass_through, input.type,
                      input.fmt);
        return text;
      }
      case Function::kRun:
        return call.is_extend_null ? "null" : "extended";
      case Function::kOutputsGet:
        return (call.is_extend_null ? "null" : "extended") + Outputs(call);
      case Function::kOutputsRelease:
        return std::to_string(call.count) + Outputs(call);
      case Function::kDestroy:
        return call.was_model_intact ? "intact" : "model released too early";
    }
    return "?";
  }
  static std::string Outputs(const rknn_sim::Call& call) {
    std::string text;
    for (const rknn_output& output : call.outputs) {
      text += std::string(", ") + (output.want_float ? "float " : "native ") +
              (output.is_prealloc ? "prealloc " : "own ") + std::to_string(output.index) + ":" +
              std::to_string(output.size);
    }
    return text;
  }

  const TempFile model_file_{"0123456789abcM"};
  const rknn_sim::Session session_;
};

}  // namespace corvane_test

#endif  // CORVANE_TESTS_SUPPORT_RUNTIME_FIXTURE_H_

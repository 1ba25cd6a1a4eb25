// A test of the backend on the simulated runtime: scripts a model, and gives the calls as text.
#ifndef CORVANE_TESTS_SUPPORT_RUNTIME_FIXTURE_H_
#define CORVANE_TESTS_SUPPORT_RUNTIME_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "control.h"
#include "corvane/backend.h"
#include "tests/support/temp_file.h"

namespace corvane_test {

// Replaces a descriptor by a socket that keeps each write apart, until it is destroyed.
class WriteProbe {
 public:
  explicit WriteProbe(int descriptor) : descriptor_(descriptor), saved_(dup(descriptor)) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_), 0);
    dup2(ends_[0], descriptor_);
    close(ends_[0]);
  }
  WriteProbe(const WriteProbe&) = delete;
  WriteProbe& operator=(const WriteProbe&) = delete;
  ~WriteProbe() {
    dup2(saved_, descriptor_);
    close(saved_);
    close(ends_[1]);
  }
  // From now on a write to the descriptor raises SIGPIPE, which ends the process unless it is
  // blocked, also where the tests were started with the signal ignored.
  void StopReading() const {
    std::signal(SIGPIPE, SIG_DFL);
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    close(ends[0]);
    dup2(ends[1], descriptor_);
    close(ends[1]);
  }
  std::vector<std::string> Writes() const {
    std::vector<std::string> writes;
    char bytes[1000];
    for (ssize_t n; (n = recv(ends_[1], bytes, sizeof(bytes), MSG_DONTWAIT)) > 0;) {
      writes.emplace_back(bytes, bytes + n);
    }
    return writes;
  }

 private:
  const int descriptor_, saved_;
  int ends_[2] = {-1, -1};
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
    // The tests look at what the library hands over, which need not fit the model.
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

  // What Forward writes to standard error, with the line number replaced by LINE.
  std::string Forward(corvane::Backend_<float>& backend, const std::vector<uint8_t>& image,
                      int pixel_type, int width, int height) {
    testing::internal::CaptureStderr();
    backend.Forward(image.data(), pixel_type, width, height, &outputs_);
    return WithoutLine(testing::internal::GetCapturedStderr());
  }
  static std::string WithoutLine(std::string text) {
    const std::size_t open = text.find('('), close = text.find(')');
    if (text.rfind("[src/rknn/rknn(", 0) == 0 && close != std::string::npos) {
      EXPECT_GT(std::atoi(text.c_str() + open + 1), 0);
      text.replace(open + 1, close - open - 1, "LINE");
    }
    return text;
  }

  template <typename T>
  static std::vector<T> LastInput() {
    const auto calls = rknn_sim::Calls(rknn_sim::Function::kInputsSet);
    if (calls.empty()) return {};
    const auto& bytes = calls.back().inputs.at(0).bytes;
    std::vector<T> elements(bytes.size() / sizeof(T));
    if (!elements.empty()) std::memcpy(elements.data(), bytes.data(), bytes.size());
    return elements;
  }
  static std::vector<float> Floats(const corvane::OutputTensor& output) {
    return {output.data, output.data + output.count};
  }

  void TearDown() override { EXPECT_EQ(rknn_sim::MisuseCount(), 0u); }

  const TempFile model_file_{"0123456789abcM"};
  std::vector<corvane::OutputTensor> outputs_;

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

  const rknn_sim::Session session_;
};

}  // namespace corvane_test

#endif  // CORVANE_TESTS_SUPPORT_RUNTIME_FIXTURE_H_

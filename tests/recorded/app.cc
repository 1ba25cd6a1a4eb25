// A program to record and to replay: threads with a backend each hand over known frames, and a line
// for each thread tells what came back, the same in every run.
//
//   app MODEL 0 0|1   calls the runtime itself; with 1 otherwise than with 0
//   app MODEL THREADS FRAMES [change=THREAD:FRAME:BYTE] [kind=float32] [abort=FRAME]
//   [fork] [reverse]
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "corvane/backend.h"
#include "rknn_api.h"

namespace {

constexpr int kWidth = 8, kHeight = 8;

struct Options {
  const char* model;
  int threads, frames;
  int changed_thread = -1, changed_frame = -1, changed_byte = -1;
  corvane::RKNNInputType kind = corvane::RKNN_INPUT_UINT8;
  int abort_frame = -1;
  bool is_reversed = false;
};

std::vector<uint8_t> MakeImage(const Options& options, int thread, int frame) {
  std::mt19937 random(static_cast<unsigned>(1000003 * thread + frame));
  std::vector<uint8_t> image(3 * kWidth * kHeight);
  for (uint8_t& byte : image) byte = static_cast<uint8_t>(random());
  if (thread == options.changed_thread && frame == options.changed_frame) {
    image[static_cast<std::size_t>(options.changed_byte)] ^= 1;
  }
  return image;
}

uint64_t Add(uint64_t sum, const void* bytes, std::size_t count) {
  const auto* at = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; i < count; ++i) sum = (sum ^ at[i]) * 0x100000001b3u;
  return sum;
}

void Work(const Options& options, int thread, std::string* result) {
  const auto backend = corvane::InitBackend(options.model, "", {}, {}, {}, options.kind);
  uint64_t sum = 0;
  int failed = 0;
  for (int i = 0; i < options.frames; ++i) {
    const int frame = options.is_reversed ? options.frames - 1 - i : i;
    if (frame == options.abort_frame) std::abort();
    const std::vector<uint8_t> image = MakeImage(options, thread, frame);
    std::vector<corvane::OutputTensor> outputs;
    errno = 0;
    if (!TryForward(*backend, image.data(), corvane::PIXEL_RGB, kWidth, kHeight, &outputs)) {
      ++failed;
      sum = Add(sum, &errno, sizeof(errno));
      continue;
    }
    for (const corvane::OutputTensor& output : outputs) {
      sum = Add(sum, output.data, output.count * sizeof(float));
    }
  }
  char line[100];
  std::snprintf(line, sizeof(line), "thread %d: %d failed, outputs %016llx", thread, failed,
                static_cast<unsigned long long>(sum));
  *result = line;
}

// Calls of the runtime itself, some of them wrong, with their codes and outputs. deviates: differs
// from another run in one call of each kind.
std::string CallRuntime(const char* path, bool deviates) {
  std::ifstream file(path, std::ios::binary);
  std::string model((std::istreambuf_iterator<char>(file)), {});
  model.erase(0, 13);
  std::string codes;
  const auto add = [&codes](int code) {
    codes += " " + std::to_string(code);
    return code;
  };
  rknn_context context = 0;
  add(rknn_init(&context, nullptr, 10, 0));
  add(rknn_init(&context, &model[0], static_cast<uint32_t>(model.size()), 0));
  rknn_input_output_num number = {};
  add(rknn_query(context, RKNN_QUERY_IN_OUT_NUM, &number, sizeof(number)));
  add(rknn_query(context, RKNN_QUERY_IN_OUT_NUM, &number, deviates ? 5 : 4));
  add(rknn_query(context, deviates ? RKNN_QUERY_SDK_VERSION : RKNN_QUERY_PERF_RUN, &number, 8));
  add(rknn_run(context, nullptr));  // without inputs
  std::vector<uint8_t> pixels(3 * kWidth * kHeight, 7);
  rknn_input input = {};
  input.buf = pixels.data();
  input.size = static_cast<uint32_t>(pixels.size());
  input.type = RKNN_TENSOR_UINT8;
  input.fmt = deviates ? RKNN_TENSOR_NHWC : RKNN_TENSOR_NCHW;
  add(rknn_inputs_set(context, 2, nullptr));
  rknn_input too_large = input;
  too_large.size = 1u << 31;
  add(rknn_inputs_set(context, 1, &too_large));
  add(rknn_inputs_set(context, deviates ? 0 : 1, &input));
  add(rknn_inputs_set(context, 1, &input));
  add(rknn_run(context, nullptr));
  std::vector<float> echo(pixels.size(), 1.0f), other(4, 1.0f);
  rknn_output outputs[2] = {};
  outputs[0] = {1, 1, 0, echo.data(), static_cast<uint32_t>(echo.size() * sizeof(float))};
  outputs[1].index = 1;
  outputs[1].want_float = deviates ? 0 : 1;
  if (add(rknn_outputs_get(context, 2, outputs, nullptr)) == RKNN_SUCC) {
    float last = 0;
    std::memcpy(&last, static_cast<const char*>(outputs[1].buf) + 12, sizeof(last));
    codes += " [" + std::to_string(echo[191]) + " " + std::to_string(last) + "]";
    add(rknn_outputs_release(context, 2, outputs));
  }
  if (deviates) add(rknn_outputs_release(context, 2, outputs));
  add(rknn_destroy(context));
  add(rknn_destroy(context));
  return "thread raw:" + codes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  Options options = {argv[1], std::atoi(argv[2]), std::atoi(argv[3])};
  bool forks = false;
  for (int i = 4; i < argc; ++i) {
    const std::string option = argv[i];
    std::sscanf(argv[i], "change=%d:%d:%d", &options.changed_thread, &options.changed_frame,
                &options.changed_byte);
    std::sscanf(argv[i], "abort=%d", &options.abort_frame);
    if (option == "kind=float32") options.kind = corvane::RKNN_INPUT_FLOAT32;
    forks |= option == "fork";
    options.is_reversed |= option == "reverse";
  }
  if (options.threads == 0) {
    std::puts(CallRuntime(options.model, options.frames != 0).c_str());
    return 0;
  }
  std::vector<std::string> results(static_cast<std::size_t>(options.threads));
  std::vector<std::thread> threads;
  for (int i = 0; i < options.threads; ++i) {
    threads.emplace_back(Work, std::cref(options), i, &results[static_cast<std::size_t>(i)]);
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& result : results) std::puts(result.c_str());
  std::fflush(stdout);
  if (forks) {  // a child that uses the runtime, too
    const pid_t child = fork();
    if (child == 0) {
      Work(options, options.threads, &results[0]);
      _exit(errno);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
  }
  return 0;
}

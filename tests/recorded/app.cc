// A program to record and to replay: threads with a backend each hand over known frames, and a line
// for each thread tells what came back, the same in every run.
//
//   app MODEL THREADS FRAMES [change=THREAD:FRAME:BYTE] [kind=float32] [abort=FRAME]
//   [fork]
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "corvane/backend.h"

namespace {

constexpr int kWidth = 8, kHeight = 8;

struct Options {
  const char* model;
  int threads, frames;
  int changed_thread = -1, changed_frame = -1, changed_byte = -1;
  corvane::RKNNInputType kind = corvane::RKNN_INPUT_UINT8;
  int abort_frame = -1;
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
  for (int frame = 0; frame < options.frames; ++frame) {
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

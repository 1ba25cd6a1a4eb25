// A runtime with the faults that the environment variable BROKEN names, to be found by corvane
// doctor and bench. Its model has one input and one output of 12 numbers; the output is the input.
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "rknn_api.h"

namespace {

constexpr uint32_t kElements = 12;
float numbers[kElements];
unsigned runs = 0;
void* volatile leaked = nullptr;

// Whether BROKEN has the word; a number after '=' goes to *value.
bool Is(const char* word, int* value = nullptr) {
  const char* const broken = std::getenv("BROKEN");
  const std::size_t length = std::strlen(word);
  if (broken == nullptr || std::strncmp(broken, word, length) != 0) return false;
  if (value == nullptr) return broken[length] == '\0';
  return std::sscanf(broken + length, "=%d", value) == 1;
}

void HangOrCrash(const char* hang, const char* crash) {
  if (Is(crash)) std::abort();
  while (Is(hang)) sleep(1);
}

struct AtLoad {
  AtLoad() { HangOrCrash("hang-load", "crash-load"); }
} at_load;

// BROKEN=delays=FILE: how many microseconds each run takes, one number a line, again and again.
void Delay() {
  static const std::vector<int> delays = [] {
    std::vector<int> read;
    char name[256];
    const char* const broken = std::getenv("BROKEN");
    if (broken == nullptr || std::sscanf(broken, "delays=%255s", name) != 1) return read;
    std::FILE* const file = std::fopen(name, "r");
    for (int delay; file != nullptr && std::fscanf(file, "%d", &delay) == 1;) read.push_back(delay);
    return read;
  }();
  if (delays.empty()) return;
  const auto until =
      std::chrono::steady_clock::now() + std::chrono::microseconds(delays[runs % delays.size()]);
  while (std::chrono::steady_clock::now() < until) {
  }
}

}  // namespace

#define RUNTIME extern "C" __attribute__((visibility("default")))

RUNTIME int rknn_init(rknn_context* context, void*, uint32_t, uint32_t) {
  HangOrCrash("hang-init", "crash-init");
  *context = 7;
  int code = 0;
  return Is("init", &code) ? code : RKNN_SUCC;
}

RUNTIME int rknn_destroy(rknn_context) { return RKNN_SUCC; }

RUNTIME int rknn_query(rknn_context, rknn_query_cmd command, void* info, uint32_t) {
  if (command == RKNN_QUERY_IN_OUT_NUM) {
    const rknn_input_output_num count = {1, 1};
    std::memcpy(info, &count, sizeof(count));
  } else if (command == RKNN_QUERY_SDK_VERSION) {
    rknn_sdk_version version = {};
    std::strcpy(version.api_version, "librknn_runtime version 1.7.5 (0123abc build: 2024-02-30)");
    std::strcpy(version.drv_version, Is("stale-driver")   ? "1.6.0 (build: 2020)"
                                     : Is("older-driver") ? "1.7.3"
                                     : Is("no-version")
                                         ? "unknown"
                                         : "driver 1.7.5 (fedcba9 build: 2024-03-01)");
    std::memcpy(info, &version, sizeof(version));
  } else {
    if (Is("other-records")) return RKNN_ERR_PARAM_INVALID;
    rknn_tensor_attr attribute = {};
    attribute.n_dims = 4;
    const uint32_t dims[4] = {2, 2, 3, 1};
    std::memcpy(attribute.dims, dims, sizeof(dims));
    std::strcpy(attribute.name, "data");
    attribute.n_elems = Is("odd-tensor") ? 13 : kElements;
    attribute.size = kElements * 4;
    std::memcpy(info, &attribute, sizeof(attribute));
  }
  return RKNN_SUCC;
}

RUNTIME int rknn_inputs_set(rknn_context, uint32_t, rknn_input inputs[]) {
  if (inputs[0].size == sizeof(numbers)) std::memcpy(numbers, inputs[0].buf, sizeof(numbers));
  return RKNN_SUCC;
}

RUNTIME int rknn_run(rknn_context, rknn_run_extend*) {
  HangOrCrash("hang-run", "crash-run");
  Delay();
  ++runs;
  if (Is("answers-change")) numbers[3] += static_cast<float>(runs);
  if (Is("nan-sometimes") && runs % 2 == 1) numbers[5] = NAN;
  if (Is("nan")) numbers[5] = NAN;
  if (Is("deaf")) std::memset(numbers, 0, sizeof(numbers));
  if (Is("leak")) {
    leaked = std::malloc(100000);  // NOLINT: that is the fault
    std::memset(leaked, 1, 100000);
  }
  int code = 0;
  if (Is("late-failure", &code) && runs > 50) return code;
  return Is("run", &code) ? code : RKNN_SUCC;
}

RUNTIME int rknn_outputs_get(rknn_context, uint32_t, rknn_output outputs[], rknn_output_extend*) {
  outputs[0].size = sizeof(numbers);
  if (outputs[0].is_prealloc != 0) {
    std::memcpy(outputs[0].buf, numbers, sizeof(numbers));
  } else {
    outputs[0].buf = numbers;
  }
  return RKNN_SUCC;
}

#ifndef BROKEN_WITHOUT_RELEASE
RUNTIME int rknn_outputs_release(rknn_context, uint32_t, rknn_output[]) { return RKNN_SUCC; }
#endif

#ifdef BROKEN_LATER
RUNTIME int rknn_set_io_mem() { return 0; }
#endif

// proof [--quick] [CLAIM...]: checks the claims whose names begin with one of those given (default:
// all) and prints a line for each. The exit status is 1 at the first counterexample.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "tests/proof/enumeration.h"

namespace corvane {
namespace {

bool is_quick = false;
const char* running_claim = "";

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Ten times a second on a terminal, elsewhere a line every 30 seconds.
void ShowProgress(uint64_t done, uint64_t items) {
  static const bool is_terminal = isatty(STDERR_FILENO) != 0;
  static double last = Now();
  if (Now() - last < (is_terminal ? 0.1 : 30)) return;
  last = Now();
  std::fprintf(stderr, "%s: %d %%%s", running_claim, static_cast<int>(100 * done / items),
               is_terminal ? "   \r" : "\n");
}

// The rules hold in flush-to-zero mode, which fp_mode.cc sets at load.
bool FlushesToZero() {
  volatile float smallest_normal = 1.17549435e-38F;
  return smallest_normal * 0.5F == 0;
}

}  // namespace

void Counterexample(const char* format, ...) {
  static std::mutex only_first;
  only_first.lock();
  std::printf("%s FALSE: ", running_claim);
  std::va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::printf("\n");
  std::fflush(stdout);
  _exit(1);
}

uint64_t ForAll(uint64_t items, const std::function<uint64_t(uint64_t)>& check) {
  const uint64_t step = is_quick && items >= 4096 ? 61 : 1;
  std::atomic<uint64_t> next{0}, cases{0};
  std::vector<std::thread> threads(std::max(1U, std::thread::hardware_concurrency()));
  std::atomic<std::size_t> active{threads.size()};
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      for (uint64_t i = next.fetch_add(step); i < items; i = next.fetch_add(step))
        cases += check(i);
      --active;
    });
  }
  for (; active > 0; std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
    ShowProgress(std::min(next.load(), items), items);
  }
  for (std::thread& thread : threads) thread.join();
  return cases;
}

int Run(const std::vector<std::string>& names) {
  int count = 0;
  for (const auto& group : {ConversionClaims(), ElementClaims(), WarpClaims(), SearchClaims()}) {
    for (const Claim& claim : group) {
      const bool is_named = std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        return claim.name.compare(0, name.size(), name) == 0;
      });
      if (!is_named && !names.empty()) continue;
      ++count;
      running_claim = claim.name.c_str();
      const double start = Now();
      const uint64_t cases = claim.run();
      std::printf("%-24s %11llu cases %6.1f s  %s\n", claim.name.c_str(),
                  static_cast<unsigned long long>(cases), Now() - start, claim.statement.c_str());
      std::fflush(stdout);
    }
  }
  if (count == 0) {
    std::fprintf(stderr, "proof: no claim's name begins like this; usage: [--quick] [CLAIM...]\n");
    return 2;
  }
  std::printf("%d claims hold%s\n", count, is_quick ? " on a slice of their domains" : "");
  return 0;
}

}  // namespace corvane

int main(int argc, char** argv) {
  if (!corvane::FlushesToZero()) {
    std::fprintf(stderr, "proof: this process does not flush subnormal numbers to zero\n");
    return 2;
  }
  corvane::is_quick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
  return corvane::Run({argv + (corvane::is_quick ? 2 : 1), argv + argc});
}

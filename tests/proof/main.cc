// proof [--quick] [--list] [CLAIM...]: enumerates the claims whose names begin with one of those
// given (default: all) and prints one line each. The exit status is 1 at the first counterexample.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "tests/proof/enumeration.h"

namespace corvane {
namespace {

const Claim* running = nullptr;

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// On a terminal ten times a second on one line, elsewhere a line every 30 seconds.
void ShowProgress(uint64_t done, uint64_t items) {
  static const bool is_terminal = isatty(STDERR_FILENO) != 0;
  static std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now();
  if (SecondsSince(last) < (is_terminal ? 0.1 : 30.0)) return;
  last = std::chrono::steady_clock::now();
  std::fprintf(stderr, "%s: %.0f %%%s", RunningClaim(),
               100.0 * static_cast<double>(done) / static_cast<double>(items),
               is_terminal ? "   \r" : "\n");
}

// The rules hold in flush-to-zero mode, which fp_mode.cc sets at load.
bool FlushesToZero() {
  volatile float smallest_normal = 1.17549435e-38F;
  const float half_of_it = smallest_normal * 0.5F;
  return half_of_it == 0;
}

bool IsWanted(const std::string& name, const std::vector<std::string>& prefixes) {
  return prefixes.empty() ||
         std::any_of(prefixes.begin(), prefixes.end(), [&](const std::string& prefix) {
           return name.compare(0, prefix.size(), prefix) == 0;
         });
}

int RunClaims(const std::vector<Claim>& claims, const std::vector<std::string>& prefixes,
              bool is_quick) {
  int count = 0;
  for (const Claim& claim : claims) {
    if (!IsWanted(claim.name, prefixes)) continue;
    running = &claim;
    ++count;
    Enumeration enumeration(is_quick);
    const auto start = std::chrono::steady_clock::now();
    claim.run(enumeration);
    std::printf("%-26s %14llu cases %6.1f s  %s\n", claim.name.c_str(),
                static_cast<unsigned long long>(enumeration.cases()), SecondsSince(start),
                claim.statement.c_str());
    std::fflush(stdout);
  }
  if (count == 0) {
    std::fprintf(stderr, "proof: no claim has such a name; see --list\n");
    return 2;
  }
  std::printf("%d claims hold%s\n", count, is_quick ? " on a slice of their domains" : "");
  return 0;
}

}  // namespace

const char* RunningClaim() { return running->name.c_str(); }

void Counterexample(const char* format, ...) {
  static std::mutex only_first;
  only_first.lock();
  std::printf("%s FALSE: ", RunningClaim());
  std::va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::printf("\n");
  std::fflush(stdout);
  _exit(1);
}

void Enumeration::ForAll(uint64_t items, uint64_t cases_each,
                         const std::function<void(uint64_t)>& body) {
  const uint64_t step = is_quick_ && items > 4096 ? 61 : 1;
  std::atomic<uint64_t> next{0};
  std::atomic<unsigned> active{std::max(1U, std::thread::hardware_concurrency())};
  std::vector<std::thread> threads;
  for (unsigned i = active; i > 0; --i) {
    threads.emplace_back([&] {
      for (uint64_t item = next.fetch_add(step); item < items; item = next.fetch_add(step)) {
        body(item);
      }
      --active;
    });
  }
  while (active > 0) {
    ShowProgress(std::min(next.load(), items), items);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  for (std::thread& thread : threads) thread.join();
  cases_ += (items + step - 1) / step * cases_each;
}

}  // namespace corvane

int main(int argc, char** argv) {
  std::vector<corvane::Claim> claims;
  for (const auto& group : {corvane::ConversionClaims(), corvane::ElementClaims(),
                            corvane::WarpClaims(), corvane::SearchClaims()}) {
    claims.insert(claims.end(), group.begin(), group.end());
  }
  bool is_quick = false;
  std::vector<std::string> prefixes;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0) {
      is_quick = true;
    } else if (std::strcmp(argv[i], "--list") == 0) {
      for (const auto& claim : claims) {
        std::printf("%-26s %s\n", claim.name.c_str(), claim.statement.c_str());
      }
      return 0;
    } else {
      prefixes.emplace_back(argv[i]);
    }
  }
  if (!corvane::FlushesToZero()) {
    std::fprintf(stderr, "proof: this process does not flush subnormal numbers to zero\n");
    return 2;
  }
  return corvane::RunClaims(claims, prefixes, is_quick);
}

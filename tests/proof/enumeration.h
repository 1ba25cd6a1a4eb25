// Runs a claim over its whole domain on all cores, and ends the program at a counterexample.
#ifndef CORVANE_TESTS_PROOF_ENUMERATION_H_
#define CORVANE_TESTS_PROOF_ENUMERATION_H_

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvane {

// Calls check(item) for each item below `items`, in any order, on all cores. It returns the number
// of cases that it has checked; the sum is ForAll's result. With --quick, ForAll takes one item in
// 61 where there are at least 4096.
uint64_t ForAll(uint64_t items, const std::function<uint64_t(uint64_t)>& check);

struct Claim {
  std::string name;
  std::string statement;
  std::function<uint64_t()> run;  // returns the number of cases
};

// Prints the counterexample with the name of the running claim, and exits with status 1.
[[noreturn]] __attribute__((format(printf, 1, 2))) void Counterexample(const char* format, ...);

std::vector<Claim> ConversionClaims();
std::vector<Claim> ElementClaims();
std::vector<Claim> WarpClaims();
std::vector<Claim> SearchClaims();

// The index of the first difference, or `count`.
template <class T>
std::size_t FirstDifference(const T* results, const T* wanted, std::size_t count) {
  std::size_t different = 0;  // a loop without exit, which compilers vectorise
  for (std::size_t i = 0; i < count; ++i) different += results[i] != wanted[i];
  if (different == 0) return count;
  return static_cast<std::size_t>(std::mismatch(results, results + count, wanted).first - results);
}

}  // namespace corvane

#endif  // CORVANE_TESTS_PROOF_ENUMERATION_H_

// Runs a claim over its whole domain on all cores, and stops the program at a counterexample.
#ifndef CORVANE_TESTS_PROOF_ENUMERATION_H_
#define CORVANE_TESTS_PROOF_ENUMERATION_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvane {

class Enumeration {
 public:
  explicit Enumeration(bool is_quick) : is_quick_(is_quick) {}

  // Calls body(item) for each item below `items`, in any order, on all cores. An item stands for
  // cases_each cases. A quick run takes one item in 61 of a domain with more than 4096.
  void ForAll(uint64_t items, uint64_t cases_each, const std::function<void(uint64_t)>& body);

  // Adds cases that depend on the item.
  void Count(uint64_t cases) { cases_ += cases; }
  uint64_t cases() const { return cases_; }

 private:
  const bool is_quick_;
  uint64_t cases_ = 0;
};

struct Claim {
  std::string name;
  std::string statement;
  std::function<void(Enumeration&)> run;
};

// Prints the counterexample with the name of the running claim, and exits with status 1.
[[noreturn]] __attribute__((format(printf, 1, 2))) void Counterexample(const char* format, ...);

// The name of the claim that is running, for signal handlers.
const char* RunningClaim();

std::vector<Claim> ConversionClaims();
std::vector<Claim> ElementClaims();
std::vector<Claim> WarpClaims();
std::vector<Claim> SearchClaims();

}  // namespace corvane

#endif  // CORVANE_TESTS_PROOF_ENUMERATION_H_

#include "corvane/util.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <thread>

namespace corvane {
namespace {

using testing::ElementsAre;

TEST(SplitByChar, KnownTexts) {
  EXPECT_THAT(SplitByChar("a,b,c", ','), ElementsAre("a", "b", "c"));
  EXPECT_THAT(SplitByChar("a,,b", ','), ElementsAre("a", "", "b"));
  EXPECT_THAT(SplitByChar(",a", ','), ElementsAre("", "a"));
  EXPECT_THAT(SplitByChar("a,", ','), ElementsAre("a"));
  EXPECT_THAT(SplitByChar(",,", ','), ElementsAre("", ""));
  EXPECT_THAT(SplitByChar("", ','), ElementsAre());
  EXPECT_THAT(SplitByChar("abc", ';'), ElementsAre("abc"));
  EXPECT_THAT(SplitByChar(" a , b ", ','), ElementsAre(" a ", " b "));
}

TEST(SplitByChar, EqualsLineExtractionOnRandomBytes) {
  std::mt19937 random(1);
  const char alphabet[] = {',', '\0', '\n', '\xff', 'a'};
  for (int round = 0; round < 20000; ++round) {
    std::string text(random() % 12, '\0');
    for (char& c : text) c = alphabet[random() % sizeof(alphabet)];
    if (round % 50 == 0) text.append(100, 'x');  // no longer inside a std::string's own bytes
    if (round % 100 == 0) {
      for (int copies = 0; copies < 5; ++copies) text += text;  // more fields than are reserved
    }
    for (char separator : alphabet) {
      std::vector<std::string> expected;
      std::istringstream stream(text);
      for (std::string field; std::getline(stream, field, separator);) expected.push_back(field);
      ASSERT_EQ(SplitByChar(text, separator), expected) << testing::PrintToString(text);
    }
  }
}

TEST(Clock, FollowsTheSystemsClockInMilliseconds) {
  timeval before, after;
  gettimeofday(&before, nullptr);
  const double now = get_current_time();
  gettimeofday(&after, nullptr);
  EXPECT_GE(now, before.tv_sec * 1000.0 + before.tv_usec / 1000.0 - 0.001);
  EXPECT_LE(now, after.tv_sec * 1000.0 + after.tv_usec / 1000.0 + 0.001);
}

TEST(Version, IsExact) { EXPECT_EQ(version(), "0.6.6.dev"); }

// Values come through volatile, so that the compiler cannot compute with its own mode.
template <typename T>
void ExpectSubnormalsAreZero() {
  volatile T smallest_normal = std::numeric_limits<T>::min();
  volatile T subnormal = std::numeric_limits<T>::denorm_min();
  volatile T half = T(0.5), huge = std::numeric_limits<T>::max();
  EXPECT_EQ(smallest_normal * half, T(0)) << "results";
  EXPECT_EQ(subnormal * huge, T(0)) << "operands";
}

TEST(FloatingPointMode, IsFlushToZeroHereAndInThreadsStartedLater) {
  ExpectSubnormalsAreZero<float>();
  ExpectSubnormalsAreZero<double>();
  std::thread([] { ExpectSubnormalsAreZero<float>(); }).join();
}

TEST(FloatingPointMode, IsOtherwiseTheDefault) {
  volatile float one = 1, third = 3, zero = 0;
  EXPECT_EQ(one / third, 0x1.555556p-2f) << "to nearest";
  EXPECT_EQ(-one / third, -0x1.555556p-2f);
  volatile float infinity = one / zero;  // a trap would end the program here
  EXPECT_TRUE(std::isinf(infinity));
  EXPECT_TRUE(std::isnan(infinity * zero));
}

// The build flag -ffp-contract=off reaches every target that links the library's rules: fused, the
// low part of the product would survive.
__attribute__((noinline)) float MultiplyAdd(float a, float b, float c) { return a * b + c; }

TEST(FloatingPointContraction, IsOff) {
  EXPECT_EQ(MultiplyAdd(1 + 0x1p-12f, 1 + 0x1p-12f, -1 - 0x1p-11f), 0.0f);
}

}  // namespace
}  // namespace corvane

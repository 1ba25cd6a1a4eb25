#include "corvane/align.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

namespace corvane {
namespace {

using Complex = std::complex<double>;
using testing::Each;

// The template's points under p -> factor * p + shift, mirrored first (x -> -x) if asked.
std::vector<float> Photographed(Complex factor, Complex shift, bool mirrored = false) {
  std::vector<float> points;
  for (int i = 0; i < 5; ++i) {
    Complex p(FaceTemplate112()[2 * i], FaceTemplate112()[2 * i + 1]);
    if (mirrored) p = -std::conj(p);
    p = factor * p + shift;
    points.push_back(static_cast<float>(p.real()));
    points.push_back(static_cast<float>(p.imag()));
  }
  return points;
}

void SwapPairs(std::vector<float>* points) {
  for (const auto& pair : {std::make_pair(0, 1), std::make_pair(3, 4)}) {
    std::swap((*points)[2 * pair.first], (*points)[2 * pair.second]);
    std::swap((*points)[2 * pair.first + 1], (*points)[2 * pair.second + 1]);
  }
}

TEST(Align, RecoversEverySimilarityInTheDirectionThatTheWarpWants) {
  for (double degrees : {0.0, 1.0, -20.0, 90.0, 135.0, 180.0, -91.0}) {
    for (double scale : {0.01, 0.5, 1.0, 3.0, 40.0}) {
      const Complex factor = std::polar(scale, degrees * std::acos(-1.0) / 180);
      const Complex shift(1000.25, -37.5);
      float m[6];
      double rms;
      ASSERT_TRUE(AlignFace112(Photographed(factor, shift).data(), m, &rms));
      SCOPED_TRACE(testing::Message() << degrees << " degrees, scale " << scale);
      // Template (destination) to picture (source): the very map that made the picture's points.
      const double near = 1e-4 * (1 + scale);
      const Complex f = factor;
      const double expected[] = {f.real(), -f.imag(), shift.real(),
                                 f.imag(), f.real(),  shift.imag()};
      for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(m[i], expected[i], i % 3 == 2 ? 60 * near : near) << i;
      EXPECT_LT(rms, 0.01);
    }
  }
}

// A grid search over small changes of the fit finds nothing better: the error is least where it is
// claimed to be, measured in the destination.
TEST(Align, IsTheLeastSquaresFitAndReportsItsError) {
  const float landmarks[10] = {202, 101, 248, 102, 225, 123, 206, 143, 241, 143};
  float m[6];
  double rms;
  ASSERT_TRUE(AlignFace112(landmarks, m, &rms));
  const float expected[] = {1.127604f, -0.035778f, 163.7971f, 0.035778f, 1.127604f, 39.31994f};
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(m[i], expected[i], i % 3 == 2 ? 1e-3 : 1e-5) << i;
  EXPECT_NEAR(rms, 2.589857, 1e-5);
  const Complex factor = 1.0 / Complex(m[0], m[3]);
  const Complex shift = -factor * Complex(m[2], m[5]);
  const auto error = [&](Complex a, Complex b) {
    double sum = 0;
    for (int i = 0; i < 5; ++i) {
      const Complex q(FaceTemplate112()[2 * i], FaceTemplate112()[2 * i + 1]);
      sum += std::norm(a * Complex(landmarks[2 * i], landmarks[2 * i + 1]) + b - q);
    }
    return std::sqrt(sum / 5);
  };
  EXPECT_NEAR(error(factor, shift), rms, 1e-4);
  for (const Complex step : {Complex(1, 0), Complex(-1, 0), Complex(0, 1), Complex(0, -1)}) {
    EXPECT_GT(error(factor + 1e-3 * step, shift - 1e-3 * step * Complex(224.4, 122.4)), rms);
    EXPECT_GT(error(factor, shift + 0.05 * step), rms);
  }
}

TEST(Align, NeverMirrors) {
  float m[6];
  double rms;
  // A mirrored picture whose landmarks are named by what is left in it: nearly the template again,
  // which is nearly symmetric.
  std::vector<float> points = Photographed(2, Complex(300, 10), true);
  SwapPairs(&points);
  ASSERT_TRUE(AlignFace112(points.data(), m, &rms));
  EXPECT_NEAR(m[0], 2, 0.02);
  EXPECT_LT(rms, 1);
  // The same with left and right named wrongly: no mirroring to please the points, but an error
  // that cannot be overlooked.
  for (bool mirrored : {true, false}) {
    points = Photographed(2, Complex(300, 10), mirrored);
    if (!mirrored) SwapPairs(&points);
    ASSERT_TRUE(AlignFace112(points.data(), m, &rms));
    EXPECT_GT(m[0] * m[4] - m[1] * m[3], 0);
    EXPECT_GT(rms, 15);
  }
}

using Fit = bool (*)(const float* source, const float* destination, int count, float* matrix,
                     double* rms_error);

// The plug-in is compiled with -Ofast, under which compilers may remove tests for NaN.
class Plugin {
 public:
  Plugin() : handle_(dlopen(CORVANE_ALIGN_PLUGIN, RTLD_NOW)) {
    if (handle_ == nullptr) throw std::runtime_error(dlerror());
  }
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;
  ~Plugin() { dlclose(handle_); }

  Fit fit() const { return reinterpret_cast<Fit>(dlsym(handle_, "FitInPlugin")); }

 private:
  void* handle_;
};

TEST(Align, DegeneratePointsGiveZerosAndFail) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  const float max = std::numeric_limits<float>::max();
  const struct {
    const char* what;
    int count;
    std::vector<float> source, destination;
  } rows[] = {
      {"no points", 0, {}, {}},
      {"negative count", -1, {}, {}},
      {"one point", 1, {1, 2}, {3, 4}},
      {"source in one place", 3, {0.1f, 202.7f, 0.1f, 202.7f, 0.1f, 202.7f}, {0, 0, 1, 0, 0, 1}},
      {"destination in one place", 2, {0, 0, 1, 0}, {0.7f, 0.3f, 0.7f, 0.3f}},
      {"NaN", 2, {0, 0, nan, 0}, {0, 0, 1, 1}},
      {"NaN first", 2, {nan, 0, 1, 0}, {0, 0, 1, 1}},
      {"NaN last in the destination", 2, {0, 0, 1, 0}, {0, 0, 1, nan}},
      {"infinity", 2, {0, 0, infinity, 0}, {0, 0, 1, 1}},
      {"negative infinity in the destination", 2, {0, 0, 1, 0}, {-infinity, 0, 1, 1}},
      {"mirrored square: no rotation is best",
       4,
       {0, 0, 1, 0, 1, 1, 0, 1},
       {1, 0, 0, 0, 0, 1, 1, 1}},
      {"scale beyond float", 2, {-max, 0, max, 0}, {0, 0, 1e-3f, 0}},
      {"shift beyond float", 2, {0, 0, 3e38f, 0}, {0, 10, 5, 10}},
  };
  const Plugin plugin;
  for (const Fit fit : {Fit{SimilarityToSource}, plugin.fit()}) {
    for (const auto& row : rows) {
      SCOPED_TRACE(testing::Message() << row.what << (fit == plugin.fit() ? ", plug-in" : ""));
      std::vector<float> m(6, 7.0f);
      double rms = 7;
      EXPECT_FALSE(fit(row.source.data(), row.destination.data(), row.count, m.data(), &rms));
      EXPECT_THAT(m, Each(0.0f));
      EXPECT_EQ(rms, -1);
      EXPECT_FALSE(fit(row.source.data(), row.destination.data(), row.count, m.data(), nullptr));
    }
  }
}

// A static of an inline function can become a symbol that keeps its library in memory for good.
TEST(Align, APlugInThatUsesTheTemplateIsUnloaded) {
  {
    const Plugin plugin;
    float m[6];
    double rms;
    ASSERT_TRUE(plugin.fit()(FaceTemplate112(), nullptr, 5, m, &rms));
    EXPECT_NEAR(m[0], 1, 1e-6);
    EXPECT_NEAR(rms, 0, 1e-6);
  }
  EXPECT_EQ(dlopen(CORVANE_ALIGN_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

// Two points always fit perfectly. Rounding makes the sum of squares negative for many of them.
TEST(Align, TwoPointsAreEnoughAndFitPerfectly) {
  const float source[] = {10, 10, 10, 30}, destination[] = {0, 0, 10, 0};
  float m[6];
  ASSERT_TRUE(SimilarityToSource(source, destination, 2, m));
  const float expected[] = {0, -2, 10, 2, 0, 10};
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(m[i], expected[i], 1e-6) << i;

  std::mt19937 random(3);
  for (int round = 0; round < 100; ++round) {
    float points[8];
    for (float& value : points) value = static_cast<float>(random() % 4096) / 7;
    double rms = -1;
    ASSERT_TRUE(SimilarityToSource(points, points + 4, 2, m, &rms));
    EXPECT_GE(rms, 0);
    EXPECT_LT(rms, 1e-4);
  }
}

}  // namespace
}  // namespace corvane

// The affine warp against a second, plainly written computation, on guarded images.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "corvane/image.h"
#include "tests/support/allocation_faults.h"
#include "tests/support/guarded_buffer.h"

namespace corvane {
namespace {

using corvane_test::GuardedBuffer;
using Bytes = std::vector<uint8_t>;
constexpr int kTransparent = -233;
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

struct Matrix {
  float m[6];
};

struct Job {
  int src_width, src_height, dst_width, dst_height;
  Matrix matrix;
  int border_type;
  uint32_t border_color;
};

std::ostream& operator<<(std::ostream& out, const Job& job) {
  out << std::hexfloat << job.src_width << " x " << job.src_height << " to " << job.dst_width
      << " x " << job.dst_height << ", border " << job.border_type << ", matrix";
  for (float m : job.matrix.m) out << ' ' << m;
  return out;
}

// The second computation, for one byte.

int64_t ReferenceRound(float t) {
  if (std::isnan(t)) return 0;
  const float sum = t + (std::signbit(t) && t != 0 ? -0.5f : 0.5f);
  return static_cast<int64_t>(
      std::fmin(std::fmax(std::trunc(double{sum}), -2147483646.0), 2147483647.0));
}

int64_t ReferencePosition(float column_step, int x, float row_step, int y, float start) {
  const float column = static_cast<float>(x) * (column_step * 1024);
  const float row = std::fma(row_step, static_cast<float>(y), start) * 1024;
  return static_cast<int32_t>(static_cast<uint64_t>(ReferenceRound(column) + ReferenceRound(row)));
}

// The new value of byte c of pixel (x, y), or -1 where it keeps the old one.
int ReferenceByte(const Job& job, const uint8_t* src, int x, int y, int c) {
  const float* m = job.matrix.m;
  const int64_t position_x = ReferencePosition(m[0], x, m[1], y, m[2]);
  const int64_t position_y = ReferencePosition(m[3], x, m[4], y, m[5]);
  const auto floor_pixel = [](int64_t p) {
    return static_cast<int64_t>(std::floor(static_cast<double>(p) / 1024));
  };
  const int64_t sx = floor_pixel(position_x), sy = floor_pixel(position_y);
  const int64_t fx = position_x - 1024 * sx, fy = position_y - 1024 * sy;
  int64_t neighbours[2][2];
  for (int dy = 0; dy < 2; ++dy) {
    for (int dx = 0; dx < 2; ++dx) {
      const bool is_in =
          sx + dx >= 0 && sx + dx < job.src_width && sy + dy >= 0 && sy + dy < job.src_height;
      if (!is_in && job.border_type == kTransparent) return -1;
      neighbours[dy][dx] = is_in ? src[3 * ((sy + dy) * job.src_width + sx + dx) + c]
                                 : job.border_color >> (8 * c) & 0xFF;
    }
  }
  int64_t sums[2];
  for (int dy = 0; dy < 2; ++dy) {
    sums[dy] = (neighbours[dy][0] * (1024 - fx) + neighbours[dy][1] * fx) / 32;
  }
  return static_cast<int>((sums[0] * (1024 - fy) + sums[1] * fy) / 32768);
}

constexpr size_t kCanaries = 64;
constexpr uint8_t kCanary = 0xA5, kOld = 0x5A;

size_t ByteCount(int width, int height) {
  return width > 0 && height > 0
             ? size_t{3} * static_cast<size_t>(width) * static_cast<size_t>(height)
             : 0;
}

// The destination after the call, which held kOld before.
Bytes Warp(const Job& job, const uint8_t* src) {
  const size_t size = ByteCount(job.dst_width, job.dst_height);
  Bytes room(size + 2 * kCanaries, kCanary);
  std::fill_n(room.begin() + kCanaries, size, kOld);
  warpaffine_bilinear_c3(src, job.src_width, job.src_height, room.data() + kCanaries, job.dst_width,
                         job.dst_height, job.matrix.m, job.border_type, job.border_color);
  for (size_t i = 0; i < kCanaries; ++i) {
    EXPECT_TRUE(room[i] == kCanary && room[room.size() - 1 - i] == kCanary) << job;
  }
  return Bytes(room.begin() + kCanaries, room.end() - kCanaries);
}

void ExpectEqualsReference(const Job& job, std::mt19937& random) {
  const GuardedBuffer src(
      ByteCount(job.src_width, job.src_height),
      random() % 2 == 0 ? GuardedBuffer::Flush::kAtBegin : GuardedBuffer::Flush::kAtEnd);
  for (size_t i = 0; i < src.size(); ++i) src.data()[i] = static_cast<uint8_t>(random() >> 8);
  const Bytes actual = Warp(job, src.data());
  size_t i = 0;
  for (int y = 0; y < job.dst_height; ++y) {
    for (int x = 0; x < job.dst_width; ++x) {
      for (int c = 0; c < 3; ++c, ++i) {
        const int expected = ReferenceByte(job, src.data(), x, y, c);
        ASSERT_EQ(actual[i], expected < 0 ? kOld : expected)
            << job << " at " << x << ", " << y << ", " << c;
      }
    }
  }
}

Matrix Turned(double degrees, double scale, double center_x, double center_y, double x, double y) {
  const double angle = degrees * 3.14159265358979 / 180;
  const double c = scale * std::cos(angle), s = scale * std::sin(angle);
  return {{static_cast<float>(c), static_cast<float>(-s),
           static_cast<float>(center_x - c * x + s * y), static_cast<float>(s),
           static_cast<float>(c), static_cast<float>(center_y - s * x - c * y)}};
}

TEST(Warp, EqualsThePerPixelRuleOnTurnedAndScaledImages) {
  std::mt19937 random(7);
  const auto uniform = [&](double from, double to) {
    return from + (to - from) * (random() / 4294967296.0);
  };
  for (int round = 0; round < 3000; ++round) {
    Job job = {};
    job.src_width = 1 + static_cast<int>(random() % 40);
    job.src_height = 1 + static_cast<int>(random() % 40);
    job.dst_width = static_cast<int>(random() % 28);  // 0 to 3 blocks and more
    job.dst_height = 1 + static_cast<int>(random() % 12);
    job.matrix = Turned(round % 3 == 0 ? 90 * static_cast<int>(random() % 4) : uniform(0, 360),
                        std::exp2(uniform(-5, 3)), uniform(-2, job.src_width + 2),
                        uniform(-2, job.src_height + 2), job.dst_width / 2, job.dst_height / 2);
    if (round % 5 == 0) {  // whole positions, so that edges are met exactly
      for (float& m : job.matrix.m) m = std::round(m);
    }
    job.border_type = round % 2 == 0 ? kTransparent : static_cast<int>(random() % 4) - 1;
    job.border_color = static_cast<uint32_t>(random());
    ASSERT_NO_FATAL_FAILURE(ExpectEqualsReference(job, random)) << "round " << round;
  }
}

TEST(Warp, EqualsThePerPixelRuleForAnyMatrix) {
  std::mt19937 random(8);
  const float extremes[] = {0,          -0.0f,    kNan,         kInf,    -kInf,       FLT_MAX,
                            -FLT_MAX,   FLT_MIN,  FLT_TRUE_MIN, 1e-20f,  0.49999997f, 8388609,
                            2097151.9f, -2097152, 2097152,      4194304, 1e6f,        -3e5f,
                            1.5e5f,     1,        -1,           0.5f,    300000,      65536.5f};
  constexpr size_t kExtremes = sizeof(extremes) / sizeof(extremes[0]);
  for (int round = 0; round < 6000; ++round) {
    Job job = {};
    job.src_width = static_cast<int>(random() % 12) - 1;
    job.src_height = static_cast<int>(random() % 12) - 1;
    job.dst_width = static_cast<int>(random() % 28);
    job.dst_height = static_cast<int>(random() % 5);
    for (float& m : job.matrix.m) {
      m = extremes[random() % kExtremes];
      if (random() % 4 == 0) m = static_cast<float>(random() % 2001) / 500 - 2;
    }
    job.border_type = round % 2 == 0 ? kTransparent : 0;
    job.border_color = static_cast<uint32_t>(random());
    ASSERT_NO_FATAL_FAILURE(ExpectEqualsReference(job, random)) << "round " << round;
  }
}

// Every difference of two neighbours at every fraction, along both axes, with and without a second
// blend.
TEST(Warp, BlendsEveryDifferenceAtEveryFraction) {
  Bytes along(3 * 3 * 512), down(3 * 3 * 512);
  for (int row = 0; row < 512; ++row) {
    for (int column = 0; column < 3; ++column) {
      const int difference = std::min(row, 510) - 255;
      const int value = (difference < 0 ? -difference : 0) + (column == 1 ? difference : 0);
      for (int c = 0; c < 3; ++c) {
        along[static_cast<size_t>(3 * (3 * row + column) + c)] = static_cast<uint8_t>(value);
        down[static_cast<size_t>(3 * (512 * column + row) + c)] = static_cast<uint8_t>(value);
      }
    }
  }
  for (float start : {0.0f, 0.37f}) {
    const Job jobs[] = {{3, 512, 1024, 511, {{1 / 1024.0f, 0, 0, 0, 1, start}}, 0, 0},
                        {512, 3, 1024, 511, {{0, 1, start, 1 / 1024.0f, 0, 0}}, 0, 0}};
    for (const Job& job : jobs) {
      const uint8_t* const src = job.src_width == 3 ? along.data() : down.data();
      const Bytes actual = Warp(job, src);
      for (int y = 0; y < job.dst_height; ++y) {
        for (int x = 0; x < job.dst_width; ++x) {
          ASSERT_EQ(actual[static_cast<size_t>(3 * (y * 1024 + x))],
                    ReferenceByte(job, src, x, y, 0))
              << job << " at " << x << ", " << y;
        }
      }
    }
  }
}

// A row's positions pass the end of their range and continue from its other end.
TEST(Warp, FollowsPositionsThatWrap) {
  std::mt19937 random(9);
  for (float step : {60000.25f, -60000.25f, 149796.9f, -149796.9f, 149797.3f, 1.0f, -1.0f}) {
    for (float start :
         {2097140.0f, -2097140.0f, 2097151.5f, -2097151.5f, 1500000.0f, -1500000.0f}) {
      for (int border_type : {kTransparent, 0}) {
        Job job = {10000, 3, 29, 3, {{step, start, start, 0, 0.25f, 0.5f}}, border_type, 0x123456};
        ASSERT_NO_FATAL_FAILURE(ExpectEqualsReference(job, random));
        job.src_width = 3;
        job.src_height = 10000;
        job.matrix = {{0, 0.25f, 0.5f, step, start, start}};
        ASSERT_NO_FATAL_FAILURE(ExpectEqualsReference(job, random));
      }
    }
  }
}

TEST(Warp, ServesSourcesAtAndBeyondTheFastLimits) {
  std::mt19937 random(10);
  const int sizes[][2] = {{10922, 3}, {10923, 3}, {33000, 2}, {3, 32767}, {3, 32768}, {2, 70000}};
  for (const auto& size : sizes) {
    const auto right = static_cast<float>(size[0]), below = static_cast<float>(size[1]);
    const Matrix far_corner = {{0.75f, 0.25f, right - 12, 0.1f, 0.7f, below - 5}};
    const Matrix whole = {{right / 23, 0, -9, 0, below / 5, -0.7f}};
    for (const Matrix& matrix : {far_corner, whole}) {
      for (int border_type : {kTransparent, 0}) {
        const Job job = {size[0], size[1], 25, 6, matrix, border_type, 99};
        ASSERT_NO_FATAL_FAILURE(ExpectEqualsReference(job, random));
      }
    }
  }
}

TEST(Warp, MeetsEdgesExactlyInEveryOrientation) {
  std::mt19937 random(13);
  const float axes[][4] = {{1, 0, 0, 1}, {-1, 0, 0, 1}, {1, 0, 0, -1}, {-1, 0, 0, -1},
                           {0, 1, 1, 0}, {0, -1, 1, 0}, {0, 1, -1, 0}, {0, -1, -1, 0}};
  for (const auto& axis : axes) {
    for (float x = -3; x <= 33; ++x) {
      for (float y : {-1, 0, 1, 14, 15, 16, 17, 30, 31}) {
        const Matrix matrix = {{axis[0], axis[1], x, axis[2], axis[3], y}};
        Job job = {31, 16, 26, 4, matrix, kTransparent, 0};
        ASSERT_NO_FATAL_FAILURE(ExpectEqualsReference(job, random));
        job.border_type = 0;
        job.matrix.m[2] += 1023 / 1024.0f;
        ASSERT_NO_FATAL_FAILURE(ExpectEqualsReference(job, random));
      }
    }
  }
}

// Zeros that take memory only where they are written; null where the system refuses the mapping.
std::shared_ptr<uint8_t> LazyZeros(size_t size) {
  void* const pages = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (pages == MAP_FAILED) return nullptr;
  return {static_cast<uint8_t*>(pages), [size](uint8_t* begin) { munmap(begin, size); }};
}

TEST(Warp, ReadsASourceBeyondTwoGiB) {
  for (const auto& [width, height] : {std::pair(30000, 30000), std::pair(1000, 800000)}) {
    const size_t size = ByteCount(width, height);
    const auto src = LazyZeros(size);
    if (src == nullptr) GTEST_SKIP() << "no address space for " << size << " bytes";
    for (size_t i = 0; i < 3000; ++i) src.get()[size - 1 - i] = static_cast<uint8_t>(i * 31 + 7);
    const Job job = {
        width, height,  30, 3, {{1, 0, width - 29.5f, 0, 1, static_cast<float>(height - 2)}},
        0,     0xFFFFFF};
    const Bytes actual = Warp(job, src.get());
    for (int i = 0; i < 3 * 30 * 3; ++i) {
      ASSERT_EQ(actual[static_cast<size_t>(i)],
                ReferenceByte(job, src.get(), i % 90 / 3, i / 90, i % 3))
          << job << " at " << i;
    }
  }
}

TEST(Warp, WritesADestinationBeyondTwoGiB) {
  constexpr int kWidth = 8000, kHeight = 100000;
  const size_t size = ByteCount(kWidth, kHeight);
  const auto dst = LazyZeros(size);
  if (dst == nullptr) GTEST_SKIP() << "no address space for " << size << " bytes";
  const Bytes src(ByteCount(kWidth, 2), 77);
  const Matrix last_row = {{1, 0, 0, 0, 1, 1 - kHeight}};  // the others lie outside
  warpaffine_bilinear_c3(src.data(), kWidth, 2, dst.get(), kWidth, kHeight, last_row.m,
                         kTransparent, 0);
  EXPECT_EQ(dst.get()[size - 3 * kWidth - 1], 0);
  EXPECT_TRUE(std::all_of(dst.get() + size - 3 * kWidth, dst.get() + size - 3,
                          [](uint8_t byte) { return byte == 77; }));
  EXPECT_EQ(dst.get()[size - 1], 0) << "the last column has no right neighbour";
}

// Far from the origin a float's last bit is a whole unit: rounding a row start twice changes bytes.
TEST(Warp, RowStartsAreRoundedOnce) {
  std::mt19937 random(14);
  ExpectEqualsReference({3, 30000, 8, 8000, {{0, 0, 0.5f, 0, 10 / 3.0f, 0.7f}}, 0, 0}, random);
  ExpectEqualsReference({10000, 3, 8, 3000, {{0, 10 / 3.0f, 0.7f, 0, 0, 0.5f}}, 0, 0}, random);
}

TEST(Warp, KnownValues) {
  const uint8_t two[] = {0, 0, 0, 255, 255, 255};
  EXPECT_EQ(Warp({2, 1, 2, 1, {{1, 0, -0.5f, 0, 1, 0}}, 0, 0}, two),
            (Bytes{0, 0, 0, 127, 127, 127}));
  EXPECT_EQ(Warp({2, 1, 1, 1, {{1, 0, 1 / 1024.0f, 0, 1, 0}}, 0, 0}, two), (Bytes{0, 0, 0}));
  EXPECT_EQ(Warp({2, 1, 1, 1, {{1, 0, 1023 / 1024.0f, 0, 1, 0}}, 0, 0}, two),
            (Bytes{254, 254, 254}));
  for (int border_type : {0, 1, -1, 233, INT_MIN}) {
    EXPECT_EQ(Warp({2, 1, 1, 1, {{1, 0, 5, 0, 1, 0}}, border_type, 0x77FF8040}, two),
              (Bytes{0x40, 0x80, 0xFF}));
  }
}

TEST(Warp, IdentityCopiesAndATransparentBorderSparesTheLastColumnAndRow) {
  Bytes src(3 * 20 * 11);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i * 37 + 1);
  const Matrix identity = {{1, 0, 0, 0, 1, 0}};
  EXPECT_EQ(Warp({20, 11, 20, 11, identity, 0, 0xFFFFFF}, src.data()), src);
  const Bytes transparent = Warp({20, 11, 20, 11, identity, kTransparent, 0}, src.data());
  for (size_t i = 0; i < src.size(); ++i) {
    const bool is_last = i / 60 == 10 || i % 60 / 3 == 19;
    ASSERT_EQ(transparent[i], is_last ? kOld : src[i]) << i;
  }
}

TEST(Warp, ReadsNothingWithoutASourceAndWritesNothingWithoutADestination) {
  const Matrix identity = {{1, 0, 0, 0, 1, 0}};
  for (int extent : {0, -1, INT_MIN}) {
    EXPECT_EQ(Warp({extent, 5, 2, 1, identity, 0, 0x030201}, nullptr), (Bytes{1, 2, 3, 1, 2, 3}));
    EXPECT_EQ(Warp({5, extent, 1, 1, identity, kTransparent, 7}, nullptr),
              (Bytes{kOld, kOld, kOld}));
    warpaffine_bilinear_c3(nullptr, 1, 1, nullptr, 9, extent, identity.m, 0, 0);
  }
  warpaffine_bilinear_c3(nullptr, 1, 1, nullptr, 0, 9, identity.m, 0, 0);
}

TEST(Warp, ANegativeWidthAndAFailedTableEndInBadAlloc) {
  const uint8_t src[12] = {};
  uint8_t dst[27] = {};
  const Matrix identity = {{1, 0, 0, 0, 1, 0}};
  for (int width : {-1, INT_MIN}) {
    for (int height : {1, 0, -1}) {
      EXPECT_THROW(warpaffine_bilinear_c3(src, 2, 2, dst, width, height, identity.m, 0, ~0u),
                   std::bad_alloc);
    }
  }
  const long tables = corvane_test::FailEachAllocation(
      [&] { warpaffine_bilinear_c3(src, 2, 2, dst, 9, 1, identity.m, 0, 0); },
      [&](long nth, bool threw, long leaked) {
        EXPECT_TRUE(threw) << nth;
        EXPECT_EQ(leaked, 0) << nth;
        EXPECT_EQ(dst[26], 0);
      });
  EXPECT_EQ(tables, 2);
}

// An FNV-1a hash over warps of one synthetic photograph, the same on every machine.
TEST(Warp, ChecksumsAreTheSameEverywhere) {
  const int width = 192, height = 108;
  Bytes src(ByteCount(width, height));
  std::mt19937 random(12);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i / 90 + random() % 32);
  uint64_t hash = 0xcbf29ce484222325u;
  for (int degrees = 0; degrees < 360; degrees += 15) {
    for (int border_type : {kTransparent, 0}) {
      const Matrix matrix = Turned(degrees, 0.9, 96, 54, 56, 56);
      for (uint8_t byte :
           Warp({width, height, 112, 112, matrix, border_type, 0x336699}, src.data())) {
        hash = (hash ^ byte) * 0x100000001b3u;
      }
    }
  }
  EXPECT_EQ(hash, 0x5f50909b0459ef35u);
}

TEST(Hiive, IsNotThere) {
  uint8_t target[3] = {1, 2, 3};
  EXPECT_EQ(HiIVE_Resize(nullptr, 1, 1, 3, 1, 1, target, 0), -1);
  EXPECT_EQ(HiIVE_cvtColor(target, 1, 1, target, -7), -1);
  EXPECT_EQ(target[0], 1);
}

}  // namespace
}  // namespace corvane

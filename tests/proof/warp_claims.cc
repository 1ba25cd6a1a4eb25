// Claims on the warp: the scalar blend, whole blocks of the vector loop, its addresses.
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <random>

#include "src/image/warp_rules.h"
#include "tests/proof/leaves.h"
#include "tests/proof/reference.h"

namespace corvane {
namespace {

// The scalar blend is a function of the two row blends; with a uniform row below, whose blend is
// 32 times its byte, eight weights show every row blend above to the last bit or nearly so.
uint64_t CheckScalarBlends(uint64_t left) {
  const auto a0 = static_cast<int>(left);
  for (int a1 = 0; a1 < 256; ++a1) {
    for (int x = 0; x < 1024; ++x) {
      const auto top = static_cast<int>(
          RowBlend(static_cast<uint32_t>(a0), static_cast<uint32_t>(a1), static_cast<uint32_t>(x)));
      for (int i = 0; i < 8; ++i) {
        const int below = (a0 * 7 + a1 * 3 + i * 31) % 256, y = (x * 5 + i * 137) % 1024;
        const uint32_t results[] = {Blend(a0, a1, below, below, x, y),
                                    Blend(below, below, a0, a1, x, y)};
        const uint32_t wanted[] = {ColumnBlend(top, 32 * below, y),
                                   ColumnBlend(32 * below, top, y)};
        if (results[0] != wanted[0] || results[1] != wanted[1]) {
          Counterexample("0x%02X 0x%02X beside 0x%02X, fractions 0x%03X 0x%03X: 0x%02X 0x%02X", a0,
                         a1, below, x, y, results[0], results[1]);
        }
      }
    }
  }
  return 256 * 1024 * 8 * 2;
}

// Runs of 8 to 40 pixels from a small source against the rule: each pixel has neighbours and
// fractions of its own, so a lane in the wrong place shows.
uint64_t CheckRuns(uint64_t seed) {
  constexpr int kWidth = 64, kHeight = 48;
  uint8_t pixels[3 * kWidth * kHeight];
  std::mt19937 random(static_cast<uint32_t>(seed));
  const auto next = [&] { return static_cast<uint32_t>(random() >> 1); };
  for (uint8_t& byte : pixels) byte = static_cast<uint8_t>(next());
  const Source source = {pixels, kWidth, kHeight, {}};
  for (int count = kInsideRunBlock; count <= 40; ++count) {
    int32_t column_x[40], column_y[40];
    uint8_t target[3 * 40], wanted[3 * 40];
    const auto row_x = static_cast<int32_t>(next()), row_y = -static_cast<int32_t>(next());
    for (int i = 0; i < count; ++i) {
      const auto x = static_cast<int32_t>(next() % ((kWidth - 3) * 1024));
      const auto y = static_cast<int32_t>(next() % ((kHeight - 1) * 1024));
      column_x[i] = AddWrapping(x, -row_x);
      column_y[i] = AddWrapping(y, -row_y);
      WarpPixel(source, false, x, y, wanted + 3 * i);
    }
    kVectorInsideRun(
        {pixels, pixels + 3 * kWidth, 3 * kWidth, column_x, column_y, row_x, row_y, count, target});
    const std::size_t i = FirstDifference(target, wanted, static_cast<std::size_t>(3 * count));
    if (i < static_cast<std::size_t>(3 * count)) {
      Counterexample("seed 0x%X: pixel %zu of %d, channel %zu is 0x%02X, not 0x%02X",
                     static_cast<unsigned>(seed), i / 3, count, i % 3, target[i], wanted[i]);
    }
  }
  return 33 * 24;
}

// Two small readable windows in a wide region that is not: whatever address the loop forms from
// another offset than the right one is in the region, and an access there ends the program.
class Windows {
 public:
  static constexpr int kBytes = 7 * 3 + 8;  // what a block of 8 columns in a row may load

  Windows() {
    void* region =
        mmap(nullptr, kReach * 3, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (region == MAP_FAILED) Counterexample("no address space for the windows");
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    for (int i = 0; i < 2; ++i) {
      uint8_t* begin = static_cast<uint8_t*>(region) + kReach + 4 * page * static_cast<unsigned>(i);
      if (mprotect(begin, page, PROT_READ | PROT_WRITE) != 0) Counterexample("no window");
      windows_[i] = begin + page - kBytes;  // the window ends with its page
      for (int b = 0; b < kBytes; ++b) windows_[i][b] = ByteOf(i, b);
    }
  }
  static uint8_t ByteOf(int window, int b) { return static_cast<uint8_t>(2 * b + 100 * window); }
  // A source pointer from which the window is at the offset.
  const uint8_t* SourceFor(int window, int64_t offset) const {
    const auto at = reinterpret_cast<std::uintptr_t>(windows_[window]);
    return reinterpret_cast<const uint8_t*>(at - static_cast<std::uintptr_t>(offset));
  }

 private:
  static constexpr std::size_t kReach = std::size_t{5} << 30;  // beyond what 32 bits can add
  uint8_t* windows_[2];
};

thread_local int current_width, current_row;

void ReportFault(int) {
  char text[128];
  const int length = std::snprintf(text, sizeof(text),
                                   "addresses/vector FALSE: width 0x%X, row 0x%X: a load "
                                   "outside the neighbours\n",
                                   current_width, current_row);
  if (write(STDOUT_FILENO, text, static_cast<std::size_t>(length)) != length) _exit(2);
  _exit(1);
}

// Each row of a source; in it the first and the last eight columns that have a right neighbour.
// Under emulation, which is slow, the rows take one of the two in turn.
uint64_t CheckAddresses(const Windows& windows, int width) {
#if defined(__aarch64__)
  constexpr bool kTakesTurns = true;
#else
  constexpr bool kTakesTurns = false;
#endif
  static const int32_t no_offsets[kInsideRunBlock] = {};
  current_width = width;
  uint64_t cases = 0;
  for (int row = 0; row <= 32767 - 2; ++row) {
    current_row = row;
    for (const int side : {0, 1}) {
      if (kTakesTurns && (row + width) % 2 != side) continue;
      const int first = side * std::max(0, width - 9);
      int32_t column_x[kInsideRunBlock];
      for (int i = 0; i < kInsideRunBlock; ++i) column_x[i] = std::min(i, width - 2 - first) * 1024;
      const int64_t offset = int64_t{row} * 3 * width + 3 * first;
      uint8_t target[3 * kInsideRunBlock];
      kVectorInsideRun({windows.SourceFor(0, offset), windows.SourceFor(1, offset), 3 * width,
                        column_x, no_offsets, first * 1024, row * 1024 + 512, kInsideRunBlock,
                        target});
      for (int i = 0; i < 3 * kInsideRunBlock; ++i) {
        const int b = column_x[i / 3] / 1024 * 3 + i % 3;
        const int wanted = (Windows::ByteOf(0, b) + Windows::ByteOf(1, b)) / 2;
        if (target[i] != wanted) {
          Counterexample("width 0x%X, row 0x%X, column 0x%X gives 0x%02X, not 0x%02X", width, row,
                         first + i / 3, target[i], wanted);
        }
      }
      cases += kInsideRunBlock;
    }
  }
  return cases;
}

uint64_t CheckAllAddresses() {
  static const Windows windows;
  std::signal(SIGSEGV, ReportFault);
  return ForAll(10922 - 1,
                [](uint64_t item) { return CheckAddresses(windows, static_cast<int>(item) + 2); });
}

}  // namespace

std::vector<Claim> WarpClaims() {
  std::vector<Claim> claims = VectorBlendClaims();
  claims.push_back({"row-blend/scalar", "every two bytes and fraction, 8 rows above and below each",
                    [] { return ForAll(256, CheckScalarBlends); }});
  claims.push_back({"runs/vector", "runs of any pixels equal the rule, each lane by itself",
                    [] { return ForAll(2000, CheckRuns); }});
  claims.push_back(
      {"addresses/vector", "every width and row of a source within the limits", CheckAllAddresses});
  return claims;
}

}  // namespace corvane

// Claims on the blend of the AVX2 warp loop.
#include <array>
#include <atomic>

#include "src/image/inside_run_avx2.cc"
#include "src/image/warp_rules.h"
#include "tests/proof/leaves.h"
#include "tests/proof/reference.h"

namespace corvane {
namespace {

constexpr int kRows = 8161;  // row blends: 0 to 32 * 255

// Two neighbours of each of four pixels, as LoadPairs4() gives them.
struct Pairs {
  uint8_t bytes[4][8];
  __m256i Load() const { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes)); }
};

__m256i TimesThirtyTwo(int fraction) {
  return _mm256_set1_epi16(static_cast<int16_t>(fraction << 5));
}

// Every right byte stands in every pixel and channel once, with a fraction of its own there.
void CheckRowBlends(uint64_t left) {
  for (int right = 0; right < 256; ++right) {
    Pairs pairs = {};
    for (int lane = 0; lane < 12; ++lane) {
      pairs.bytes[lane / 3][lane % 3] = static_cast<uint8_t>(left + lane * 20);
      pairs.bytes[lane / 3][lane % 3 + 3] = static_cast<uint8_t>(right + lane * 52);
    }
    const __m256i loaded = pairs.Load();
    for (int fraction = 0; fraction < 1024; ++fraction) {
      uint16_t fractions[4], spread[16], blends[16];
      for (int p = 0; p < 4; ++p) {
        fractions[p] = static_cast<uint16_t>((fraction + 341 * p) % 1024);
        std::fill_n(spread + 4 * p, 4, static_cast<uint16_t>(fractions[p] << 5));
      }
      const __m256i result =
          BlendAcross(loaded, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(spread)));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(blends), result);
      for (int lane = 0; lane < 12; ++lane) {
        const uint8_t* pixel = pairs.bytes[lane / 3];
        const uint32_t wanted = RowBlend(pixel[lane % 3], pixel[lane % 3 + 3], fractions[lane / 3]);
        if (blends[lane / 3 * 4 + lane % 3] != wanted) {
          Counterexample("bytes 0x%02X 0x%02X, fraction 0x%03X in pixel %d give 0x%04X, not 0x%04X",
                         pixel[lane % 3], pixel[lane % 3 + 3], fractions[lane / 3], lane / 3,
                         blends[lane / 3 * 4 + lane % 3], wanted);
        }
      }
    }
  }
}

// Which row blends two bytes give at each fraction, and by which bytes.
class Reachable {
 public:
  Reachable() : left_(1024 * kRows), right_(1024 * kRows) {
    for (uint32_t fraction = 0; fraction < 1024; ++fraction) {
      for (uint32_t left = 0; left < 256; ++left) {
        for (uint32_t right = 0; right < 256; ++right) {
          const uint32_t blend = RowBlend(left, right, fraction);
          rows_[fraction][blend / 64] |= uint64_t{1} << blend % 64;
          left_[fraction * kRows + blend] = static_cast<uint8_t>(left);
          right_[fraction * kRows + blend] = static_cast<uint8_t>(right);
        }
      }
    }
  }
  using Set = std::array<uint64_t, 128>;
  const Set& At(int fraction) const { return rows_[static_cast<std::size_t>(fraction)]; }
  bool Has(int fraction, int blend) const {
    return At(fraction)[static_cast<std::size_t>(blend / 64)] >> blend % 64 & 1;
  }
  void Put(int fraction, int blend, int channel, uint8_t* pixel) const {
    const auto at = static_cast<std::size_t>(fraction * kRows + blend);
    pixel[channel] = left_[at];
    pixel[channel + 3] = right_[at];
  }

 private:
  std::array<Set, 1024> rows_ = {};
  std::vector<uint8_t> left_, right_;
};

// One top row with up to twelve bottom rows, one in each lane, all of which the fraction gives.
void CheckColumnBlends(const Reachable& reachable, int top, const std::vector<int>& bottoms,
                       int fraction_x) {
  Pairs top_pairs = {}, bottom_pairs = {};
  int bottom_of[16] = {};
  for (int lane = 0; lane < 16; ++lane) {
    if (lane % 4 == 3) continue;
    const auto i = static_cast<std::size_t>(lane) % bottoms.size();
    bottom_of[lane] = bottoms[i];
    reachable.Put(fraction_x, top, lane % 4, top_pairs.bytes[lane / 4]);
    reachable.Put(fraction_x, bottoms[i], lane % 4, bottom_pairs.bytes[lane / 4]);
  }
  const __m256i tops = top_pairs.Load(), below = bottom_pairs.Load();
  for (int fraction = 0; fraction < 1024; ++fraction) {
    uint16_t wanted[16], result[16];
    for (int lane = 0; lane < 16; ++lane) {
      wanted[lane] = static_cast<uint16_t>(ColumnBlend(top, bottom_of[lane], fraction));
    }
    const __m256i blends =
        Blend4(tops, below, TimesThirtyTwo(fraction_x), TimesThirtyTwo(fraction));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(result), blends);
    uint16_t different = 0;
    for (int lane = 0; lane < 16; ++lane) {
      different |= lane % 4 == 3 ? 0 : static_cast<uint16_t>(result[lane] ^ wanted[lane]);
    }
    if (different == 0) continue;
    for (int lane = 0; lane < 16; ++lane) {
      if (lane % 4 == 3 || result[lane] == wanted[lane]) continue;
      Counterexample("rows 0x%04X 0x%04X, fractions 0x%03X 0x%03X give 0x%04X, not 0x%02X", top,
                     bottom_of[lane], fraction_x, fraction, result[lane], wanted[lane]);
    }
  }
}

uint64_t CheckPairsOfTop(const Reachable& reachable, int top) {
  uint64_t pairs = 0;
  Reachable::Set done = {};
  for (int i = 0; i < 1024; ++i) {
    const int fraction = (341 + 683 * i) % 1024;  // fractions with many row blends come early
    if (!reachable.Has(fraction, top)) continue;
    std::vector<int> bottoms;
    const auto flush = [&] {
      if (!bottoms.empty()) CheckColumnBlends(reachable, top, bottoms, fraction);
      pairs += bottoms.size();
      bottoms.clear();
    };
    for (std::size_t word = 0; word < done.size(); ++word) {
      uint64_t added = reachable.At(fraction)[word] & ~done[word];
      done[word] |= added;
      for (; added != 0; added &= added - 1) {
        bottoms.push_back(static_cast<int>(word) * 64 + __builtin_ctzll(added));
        if (bottoms.size() == 12) flush();
      }
    }
    flush();
  }
  return pairs;
}

}  // namespace

const WarpInsideRun kVectorInsideRun = WarpInsideRunAvx2;

std::vector<Claim> VectorBlendClaims() {
  return {
      {"row-blend/avx2", "every two bytes and fraction, in every lane",
       [](Enumeration& enumeration) { enumeration.ForAll(256, 256 * 1024 * 12, CheckRowBlends); }},
      {"column-blend/avx2", "every two rows that bytes can give, every fraction",
       [](Enumeration& enumeration) {
         const Reachable reachable;
         std::atomic<uint64_t> pairs{0};
         enumeration.ForAll(kRows, 0, [&](uint64_t top) {
           pairs += CheckPairsOfTop(reachable, static_cast<int>(top));
         });
         enumeration.Count(pairs * 1024);
       }}};
}

}  // namespace corvane

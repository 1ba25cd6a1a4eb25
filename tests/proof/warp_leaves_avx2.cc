// Claims on the blend of the AVX2 warp loop.
#include <array>

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

// Every right byte with every fraction; each lane has bytes and each pixel a fraction of its own.
uint64_t CheckRowBlends(uint64_t left) {
  for (int right = 0; right < 256; ++right) {
    Pairs pairs = {};
    for (int lane = 0; lane < 12; ++lane) {
      pairs.bytes[lane / 3][lane % 3] = static_cast<uint8_t>(left + lane * 20);
      pairs.bytes[lane / 3][lane % 3 + 3] = static_cast<uint8_t>(right + lane * 52);
    }
    const __m256i loaded = pairs.Load();
    for (uint32_t fraction = 0; fraction < 1024; ++fraction) {
      uint16_t fractions[16], blends[16];
      for (uint32_t lane = 0; lane < 16; ++lane) {
        fractions[lane] = static_cast<uint16_t>((fraction + lane / 4 * 341) % 1024 << 5);
      }
      const __m256i result =
          BlendAcross(loaded, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(fractions)));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(blends), result);
      for (int lane = 0; lane < 16; ++lane) {
        const uint8_t* bytes = pairs.bytes[lane / 4] + lane % 4;
        const uint32_t wanted = RowBlend(bytes[0], bytes[3], fractions[lane] / 32U);
        if (lane % 4 < 3 && blends[lane] != wanted) {
          Counterexample("bytes 0x%02X 0x%02X, fraction 0x%03X in lane %d give 0x%04X, not 0x%04X",
                         bytes[0], bytes[3], fractions[lane] / 32U, lane, blends[lane], wanted);
        }
      }
    }
  }
  return 256 * 1024 * 12;
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
  void Put(int fraction, int blend, uint8_t* bytes) const {
    const auto at = static_cast<std::size_t>(fraction * kRows + blend);
    bytes[0] = left_[at];
    bytes[3] = right_[at];
  }

 private:
  std::array<Set, 1024> rows_ = {};
  std::vector<uint8_t> left_, right_;
};

// One top row with up to twelve bottom rows, one in each lane, all of which the fraction gives.
void CheckColumnBlends(const Reachable& reachable, int top, const std::vector<int>& bottoms,
                       int fraction_x) {
  Pairs tops = {}, below = {};
  int bottom_of[16] = {};
  for (int lane = 0; lane < 16; ++lane) {
    if (lane % 4 == 3) continue;
    bottom_of[lane] = bottoms[static_cast<std::size_t>(lane) % bottoms.size()];
    reachable.Put(fraction_x, top, tops.bytes[lane / 4] + lane % 4);
    reachable.Put(fraction_x, bottom_of[lane], below.bytes[lane / 4] + lane % 4);
  }
  const __m256i top_pairs = tops.Load(), bottom_pairs = below.Load();
  for (int fraction = 0; fraction < 1024; ++fraction) {
    uint16_t wanted[16], blends[16];
    _mm256_storeu_si256(
        reinterpret_cast<__m256i*>(blends),
        Blend4(top_pairs, bottom_pairs, TimesThirtyTwo(fraction_x), TimesThirtyTwo(fraction)));
    for (int lane = 0; lane < 16; ++lane) {
      const auto blend = static_cast<uint16_t>(ColumnBlend(top, bottom_of[lane], fraction));
      wanted[lane] = lane % 4 == 3 ? blends[lane] : blend;
    }
    const std::size_t lane = FirstDifference(blends, wanted, 16);
    if (lane == 16) continue;
    Counterexample("rows 0x%04X 0x%04X, fractions 0x%03X 0x%03X give 0x%04X, not 0x%02X", top,
                   bottom_of[lane], fraction_x, fraction, blends[lane], wanted[lane]);
  }
}

// Every bottom row that some fraction gives together with this top row.
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
  return {{"row-blend/avx2", "every two bytes and fraction, in every lane",
           [] { return ForAll(256, CheckRowBlends); }},
          {"column-blend/avx2", "every two rows that bytes can give, every fraction", [] {
             const Reachable reachable;
             return ForAll(kRows, [&](uint64_t top) {
               return CheckPairsOfTop(reachable, static_cast<int>(top)) * 1024;
             });
           }}};
}

}  // namespace corvane

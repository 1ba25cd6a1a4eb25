// Warps inside pixels in blocks of 8 pixels with AVX2.
//
// In 16-bit lanes the blend of warp_rules.h is exact in this form, because nested floors combine:
//   top    = 32 * a0 + ((a1 - a0) * fx >> 5)
//   result = (top + ((bottom - top) * fy >> 10)) >> 5
// A high-half multiplication by fx << 5 (or fy << 5) performs the shift if the other factor
// supplies the missing powers of two: (a1 - a0) * 64, (bottom - top) * 2. All values fit 16 signed
// bits.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "src/image/inside_run.h"

namespace corvane {
namespace {

// Loads two pairs of neighbours, 8 bytes each of which 6 are used.
inline __m128i LoadPairs(const uint8_t* first, const uint8_t* second) {
  const __m128i low = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(first));
  return _mm_castps_si128(
      _mm_loadh_pi(_mm_castsi128_ps(low), reinterpret_cast<const __m64*>(second)));
}

// Loads the pairs of four pixels: 0 and 1 into the low half, 2 and 3 into the high one.
inline __m256i LoadPairs4(const uint8_t* row, uint32_t at0, uint32_t at1, uint32_t at2,
                          uint32_t at3) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(LoadPairs(row + at0, row + at1)),
                                 LoadPairs(row + at2, row + at3), 1);
}

// Gives each pixel four lanes, of which three hold channels.
inline __m256i BlendAcross(__m256i pairs, __m256i fraction) {
  const __m256i both = _mm256_shuffle_epi8(
      pairs, _mm256_setr_epi8(0, 3, 1, 4, 2, 5, -1, -1, 8, 11, 9, 12, 10, 13, -1, -1,  //
                              0, 3, 1, 4, 2, 5, -1, -1, 8, 11, 9, 12, 10, 13, -1, -1));
  const __m256i left = _mm256_maddubs_epi16(both, _mm256_set1_epi16(32));
  const __m256i change = _mm256_maddubs_epi16(both, _mm256_set1_epi16(0x40C0));  // -64, 64
  return _mm256_add_epi16(left, _mm256_mulhi_epi16(change, fraction));
}

inline __m256i Blend4(__m256i top_pairs, __m256i bottom_pairs, __m256i fraction_x,
                      __m256i fraction_y) {
  const __m256i top = BlendAcross(top_pairs, fraction_x);
  const __m256i change = _mm256_sub_epi16(BlendAcross(bottom_pairs, fraction_x), top);
  const __m256i moved = _mm256_mulhi_epi16(_mm256_add_epi16(change, change), fraction_y);
  return _mm256_srli_epi16(_mm256_add_epi16(top, moved), 5);
}

// Spreads one 32-bit lane for each of 8 pixels to four 16-bit lanes each, for pixels 0 1 | 4 5 and
// for 2 3 | 6 7.
inline __m256i SpreadFirst(__m256i fractions) {
  return _mm256_shuffle_epi8(fractions,
                             _mm256_setr_epi8(0, 1, 0, 1, 0, 1, 0, 1, 4, 5, 4, 5, 4, 5, 4, 5,  //
                                              0, 1, 0, 1, 0, 1, 0, 1, 4, 5, 4, 5, 4, 5, 4, 5));
}
inline __m256i SpreadSecond(__m256i fractions) {
  return _mm256_shuffle_epi8(
      fractions, _mm256_setr_epi8(8, 9, 8, 9, 8, 9, 8, 9, 12, 13, 12, 13, 12, 13, 12, 13,  //
                                  8, 9, 8, 9, 8, 9, 8, 9, 12, 13, 12, 13, 12, 13, 12, 13));
}

inline __m256i Positions(const int32_t* columns, int32_t row) {
  return _mm256_add_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(columns)),
                          _mm256_set1_epi32(row));
}

// The fraction of 10 bits, times 32.
inline __m256i Fractions(__m256i positions) {
  return _mm256_slli_epi32(_mm256_and_si256(positions, _mm256_set1_epi32(1023)), 5);
}

// Extracts two offsets at a time: transfers to the integer registers limit this loop, and halving
// their number saves a tenth of its time.
inline void GetOffsets(__m256i offsets, uint32_t (&at)[kInsideRunBlock]) {
  const __m128i low = _mm256_castsi256_si128(offsets);
  const __m128i high = _mm256_extracti128_si256(offsets, 1);
  const long long twos[] = {_mm_cvtsi128_si64(low), _mm_extract_epi64(low, 1),
                            _mm_cvtsi128_si64(high), _mm_extract_epi64(high, 1)};
  for (int i = 0; i < kInsideRunBlock; i += 2) {
    at[i] = static_cast<uint32_t>(twos[i / 2]);
    at[i + 1] = static_cast<uint32_t>(static_cast<uint64_t>(twos[i / 2]) >> 32);
  }
}

inline void WarpBlock(const InsideRun& run) {
  const __m256i position_x = Positions(run.column_x, run.row_x);
  const __m256i position_y = Positions(run.column_y, run.row_y);

  // One multiply-add of 16-bit pairs computes the byte offset, row * stride + column * 3.
  const __m256i column = _mm256_srli_epi32(position_x, 10);
  const __m256i row = _mm256_srli_epi32(position_y, 10);
  const __m256i offset = _mm256_madd_epi16(_mm256_or_si256(column, _mm256_slli_epi32(row, 16)),
                                           _mm256_set1_epi32(run.source_stride << 16 | 3));
  uint32_t at[kInsideRunBlock];
  GetOffsets(offset, at);

  const __m256i fraction_x = Fractions(position_x);
  const __m256i fraction_y = Fractions(position_y);
  const uint8_t* const top = run.source;
  const uint8_t* const bottom = run.source_below;
  const __m256i first = Blend4(LoadPairs4(top, at[0], at[1], at[4], at[5]),
                               LoadPairs4(bottom, at[0], at[1], at[4], at[5]),
                               SpreadFirst(fraction_x), SpreadFirst(fraction_y));
  const __m256i second = Blend4(LoadPairs4(top, at[2], at[3], at[6], at[7]),
                                LoadPairs4(bottom, at[2], at[3], at[6], at[7]),
                                SpreadSecond(fraction_x), SpreadSecond(fraction_y));

  // The pixels lie as 0 1 2 3 | 4 5 6 7, four bytes each: drop every fourth byte, join the halves.
  const __m256i bytes = _mm256_shuffle_epi8(
      _mm256_packus_epi16(first, second),
      _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,  //
                       0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  const __m256i joined =
      _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
  uint8_t* const target = run.target;
  _mm_storeu_si128(reinterpret_cast<__m128i*>(target), _mm256_castsi256_si128(joined));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(target + 16), _mm256_extracti128_si256(joined, 1));
}

}  // namespace

void WarpInsideRunAvx2(const InsideRun& whole) {
  InsideRun run = whole;  // a local copy: stores through target cannot alias it
  for (; run.count >= kInsideRunBlock; run = StartingAt(run, kInsideRunBlock)) WarpBlock(run);
  if (run.count > 0) WarpBlock(StartingAt(run, run.count - kInsideRunBlock));
}

}  // namespace corvane

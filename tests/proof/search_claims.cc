// Claims on the search for the columns of a row whose positions lie in an interval.
#include "src/image/column_table.h"
#include "tests/proof/enumeration.h"

namespace corvane {
namespace {

void CheckSearch(const ColumnTable& table, const Interval& interval, int32_t start) {
  const Run run = table.FindWithin(interval, start);
  for (int x = 0; x < table.width(); ++x) {
    const int64_t lowest = interval.lowest, length = interval.length;
    // The position on the circle of 2^32, counted from the lowest.
    int64_t offset = (int64_t{start} + table[x] - lowest) % (int64_t{1} << 32);
    if (offset < 0) offset += int64_t{1} << 32;
    if ((offset < length) != (x >= run.begin && x < run.end)) {
      Counterexample(
          "start 0x%08X, column %d moved by 0x%08X, interval 0x%08X + 0x%X: run %d to %d",
          static_cast<uint32_t>(start), x, static_cast<uint32_t>(table[x]),
          static_cast<uint32_t>(interval.lowest), interval.length, run.begin, run.end);
    }
  }
}

// Every start and length about a table of a few units a column.
uint64_t CheckSmallTables(uint64_t item) {
  const int width = static_cast<int>(item % 12) + 1, units = static_cast<int>(item / 12) - 9;
  ColumnTable table(width);
  table.Fill(static_cast<float>(units) / 1024);
  for (uint32_t length = 0; length <= 64; ++length) {
    for (int32_t start = -200; start <= 200; ++start) {
      CheckSearch(table, {0, length}, start);
      CheckSearch(table, {-16, length}, start);
    }
  }
  return 65U * 401 * 2 * static_cast<uint64_t>(width);
}

// Tables up to the ends of the range, with steps that saturate or are no numbers: every start at
// which a column enters or leaves the interval, and its neighbours; such positions wrap.
uint64_t CheckWrappingTables() {
  uint64_t cases = 0;
  for (const float scale : {0.0F, 1e-30F, 0.3F, 1.0F, 77.7F, 1023.4F, 99999.5F, 524287.9F, 1e6F,
                            2097151.9F, 2.1e6F, 1e9F, 3e38F, INFINITY, NAN}) {
    for (const float step : {scale, -scale}) {
      for (const int width : {1, 2, 3, 8, 33, 200}) {
        ColumnTable table(width);
        table.Fill(step);
        for (const uint32_t length : {0U, 1U, 1024U, 10921U * 1024, 32768U * 1024}) {
          for (const int32_t lowest : {0, -1024}) {
            for (int x = 0; x < width; ++x) {
              for (const int64_t edge : {int64_t{lowest}, int64_t{lowest} + length,
                                         int64_t{INT32_MAX}, int64_t{INT32_MIN} + table[x]}) {
                for (int near = -1; near <= 1; ++near) {
                  const auto start =
                      static_cast<int32_t>(static_cast<uint32_t>(edge - table[x] + near));
                  CheckSearch(table, {lowest, length}, start);
                  cases += static_cast<uint64_t>(width);
                }
              }
            }
          }
        }
      }
    }
  }
  return cases;
}

}  // namespace

std::vector<Claim> SearchClaims() {
  return {{"run-search/small", "a scan finds the same run, every start and length",
           [] { return ForAll(12 * 19, CheckSmallTables); }},
          {"run-search/wrapping", "the same where columns enter or leave, to the ends of the range",
           CheckWrappingTables}};
}

}  // namespace corvane

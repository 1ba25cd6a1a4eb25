#include "tools/pictures/orientation.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace corvane_tool {

Image Upright(const Image& stored, unsigned orientation) {
  Image result = stored;
  const bool is_transposed = orientation >= 5;
  if (is_transposed) std::swap(result.width, result.height);
  const bool is_from_right =
      orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool is_from_bottom =
      orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  uint8_t* to = result.pixels.data();
  for (int y = 0; y < result.height; ++y) {
    for (int x = 0; x < result.width; ++x, to += 3) {
      int from_x = is_transposed ? y : x;
      int from_y = is_transposed ? x : y;
      if (is_from_right) from_x = stored.width - 1 - from_x;
      if (is_from_bottom) from_y = stored.height - 1 - from_y;
      const auto from = int64_t{from_y} * stored.width + from_x;
      std::copy_n(&stored.pixels[static_cast<std::size_t>(3 * from)], 3, to);
    }
  }
  return result;
}

}  // namespace corvane_tool

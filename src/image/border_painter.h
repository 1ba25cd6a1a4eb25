// Fills destination pixels with one colour.
#ifndef CORVANE_SRC_IMAGE_BORDER_PAINTER_H_
#define CORVANE_SRC_IMAGE_BORDER_PAINTER_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace corvane {
namespace {

// Copies chunks of a constant size, which compilers turn into stores instead of calls.
class BorderPainter {
 public:
  explicit BorderPainter(const uint8_t (&pixel)[3]) {
    for (std::size_t i = 0; i < sizeof(chunk_); ++i) chunk_[i] = pixel[i % 3];
  }
  void Paint(std::size_t pixel_count, uint8_t* target) const {
    std::size_t bytes = 3 * pixel_count;
    for (; bytes >= sizeof(chunk_); bytes -= sizeof(chunk_), target += sizeof(chunk_)) {
      std::memcpy(target, chunk_, sizeof(chunk_));
    }
    std::memcpy(target, chunk_, bytes);
  }

 private:
  uint8_t chunk_[48];
};

}  // namespace
}  // namespace corvane

#endif  // CORVANE_SRC_IMAGE_BORDER_PAINTER_H_

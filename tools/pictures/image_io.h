// PNG and JPEG files as packed R, G, B bytes.
#ifndef CORVANE_TOOLS_PICTURES_IMAGE_IO_H_
#define CORVANE_TOOLS_PICTURES_IMAGE_IO_H_

#include <cstdint>
#include <string>
#include <vector>

namespace corvane_tool {

struct Image {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> pixels;  // 3 * width * height: R, G, B, row after row without padding
};

// Larger pictures are refused before memory is taken for them: a few hundred bytes of file can
// claim any size.
constexpr int64_t kMaxPixels = int64_t{1} << 26;

// Reads a PNG or JPEG file; its first bytes decide which, not its name. 16-bit and palette PNGs
// come out as 8-bit colour, transparency over black, gray as R = G = B. A JPEG that its EXIF data
// calls turned is turned upright if applies_exif, else left as it is stored, with a line on
// standard error. Throws Failure, which names the file, for anything that cannot be read whole.
Image ReadImage(const std::string& path, bool applies_exif = false);

void WritePng(const std::string& path, const Image& image);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_PICTURES_IMAGE_IO_H_

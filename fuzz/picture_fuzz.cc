// Any bytes as a PNG or JPEG file. What must hold: the file is refused by a Failure that names it,
// or the pixels fit the size, and a small picture written as PNG is read back the same.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/byte_reader.h"
#include "fuzz/scratch_file.h"
#include "tools/pictures/image_io.h"
#include "tools/support/failure.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  using corvane_fuzz::Require;
  static const corvane_fuzz::ScratchFile file;
  file.Write(corvane_fuzz::ByteReader(data, size).TakeText());
  corvane_tool::Image image;
  try {
    image = corvane_tool::ReadImage(file.path());
  } catch (const corvane_tool::Failure& failure) {
    const std::string message = failure.what();
    Require(message.find(file.path()) != std::string::npos, "a message without the file's name");
    return 0;
  }
  Require(image.width > 0 && image.height > 0, "a picture without pixels");
  const auto pixels = static_cast<int64_t>(image.width) * image.height;
  Require(pixels <= corvane_tool::kMaxPixels, "a picture beyond the limit");
  Require(image.pixels.size() == static_cast<std::size_t>(3 * pixels), "a wrong number of bytes");
  if (pixels > 4096) return 0;
  corvane_tool::WritePng(file.path(), image);
  const corvane_tool::Image again = corvane_tool::ReadImage(file.path());
  Require(again.width == image.width && again.height == image.height, "a PNG of another size");
  Require(again.pixels == image.pixels, "a PNG with other pixels");
  return 0;
}

// For builds without libpng and libjpeg, as on a board's bare image.
#include "tools/pictures/image_io.h"
#include "tools/support/failure.h"

namespace corvane_tool {

namespace {

[[noreturn]] void Refuse(const std::string& path) {
  throw Failure(path +
                ": this corvane was built without libpng and libjpeg, and knows no pictures");
}

}  // namespace

Image ReadImage(const std::string& path, bool /*applies_exif*/) { Refuse(path); }

void WritePng(const std::string& path, const Image& /*image*/) { Refuse(path); }

}  // namespace corvane_tool

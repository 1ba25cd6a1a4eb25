#include <cstdio>

#include "tools/commands.h"
#include "tools/face.h"
#include "tools/image_io.h"
#include "tools/settings.h"

namespace corvane_tool {

int Align(const AlignOptions& options) {
  const Landmarks landmarks = ParseLandmarks("--landmarks", options.landmarks);
  const Image picture = ReadImage(options.image);
  double fit_error = 0;
  const Image face = AlignedFace(options.image, picture, landmarks, &fit_error);
  WritePng(options.output, face);
  std::printf("%s: %d x %d, landmarks fit the template within %.2f pixels\n",
              options.output.c_str(), face.width, face.height, fit_error);
  return 0;
}

}  // namespace corvane_tool

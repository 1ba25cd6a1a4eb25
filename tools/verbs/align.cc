#include <cstdio>
#include <filesystem>

#include "tools/commands.h"
#include "tools/pictures/face.h"
#include "tools/pictures/image_io.h"
#include "tools/settings/numbers.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

int Align(const AlignOptions& options) {
  FileNames({options.image}).AddOutput(options.output);
  const std::string end = std::filesystem::path(options.output).extension().string();
  if (end == ".jpg" || end == ".jpeg") throw Failure(options.output + ": PNG is what is written");
  const Landmarks landmarks = ParseLandmarks("--landmarks", options.landmarks);
  const FaceTemplate* const wanted =
      FindFaceTemplate("--template", options.face.empty() ? "112" : options.face);
  const Image picture = ReadImage(options.image);
  WarnOfLandmarks(options.image, picture, landmarks);
  double fit_error = 0;
  const Image face = AlignedFace(options.image, picture, landmarks, *wanted, &fit_error);
  WritePng(options.output, face);
  std::printf("%s: %d x %d, landmarks fit the template within %.2f pixels\n",
              options.output.c_str(), face.width, face.height, fit_error);
  return 0;
}

}  // namespace corvane_tool

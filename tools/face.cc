#include "tools/face.h"

#include <cstddef>
#include <cstdio>

#include "corvane/align.h"
#include "corvane/image.h"
#include "tools/failure.h"

namespace corvane_tool {

namespace {

Image Warped(const Image& picture, const float* matrix, int width, int height) {
  Image result;
  result.width = width;
  result.height = height;
  result.pixels.resize(3 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  corvane::warpaffine_bilinear_c3(picture.pixels.data(), picture.width, picture.height,
                                  result.pixels.data(), width, height, matrix, 0, 0);
  return result;
}

}  // namespace

Image AlignedFace(const std::string& path, const Image& picture, const Landmarks& landmarks,
                  double* fit_error) {
  float matrix[6];
  if (!corvane::AlignFace112(landmarks.data(), matrix, fit_error)) {
    throw Failure(path + ": no face can be aligned by these landmarks (are they all one point?)");
  }
  const Landmarks& l = landmarks;
  const Landmarks swapped = {l[2], l[3], l[0], l[1], l[4], l[5], l[8], l[9], l[6], l[7]};
  float unused[6];
  double swapped_error = 0;
  if (corvane::AlignFace112(swapped.data(), unused, &swapped_error) &&
      swapped_error < *fit_error / 2) {
    std::fprintf(
        stderr,
        "corvane: %s: left and right look swapped in the landmarks: the eye and the corner "
        "of the mouth that are further left in the picture come first\n",
        path.c_str());
  }
  bool is_any_inside = false;
  for (std::size_t i = 0; i < l.size(); i += 2) {
    is_any_inside |= l[i] >= 0 && l[i] < static_cast<float>(picture.width) && l[i + 1] >= 0 &&
                     l[i + 1] < static_cast<float>(picture.height);
  }
  if (!is_any_inside) {
    std::fprintf(stderr, "corvane: %s: no landmark lies inside the picture of %d x %d pixels\n",
                 path.c_str(), picture.width, picture.height);
  }
  return Warped(picture, matrix, kFaceSize, kFaceSize);
}

Image Resized(const Image& picture, int width, int height) {
  // Pixels stand for squares: the centre of the first, at 0, lies half a pixel inside the picture.
  const float step_x = static_cast<float>(picture.width) / static_cast<float>(width);
  const float step_y = static_cast<float>(picture.height) / static_cast<float>(height);
  const float matrix[6] = {step_x, 0, step_x / 2 - 0.5f, 0, step_y, step_y / 2 - 0.5f};
  return Warped(picture, matrix, width, height);
}

}  // namespace corvane_tool

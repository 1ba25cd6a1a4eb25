#include "tools/pictures/face.h"

#include <cstddef>
#include <cstdio>

#include "corvane/align.h"
#include "corvane/image.h"
#include "tools/support/failure.h"

namespace corvane_tool {

Landmarks FaceTemplate::Points() const {
  Landmarks points;
  for (std::size_t i = 0; i < points.size(); ++i) {
    points[i] = corvane::FaceTemplate112()[i] * factor + (i % 2 == 0 ? shift_x : shift_y);
  }
  return points;
}

const std::vector<FaceTemplate>& FaceTemplates() {
  static const std::vector<FaceTemplate> templates = {
      {"112", 112, 112, 1, 0, 0},
      {"96x112", 96, 112, 1, -8, 0},
      {"96-scaled", 96, 96, 96.0F / 112, 0, 0},
      {"128", 128, 128, 1, 8, 0},
      {"128-scaled", 128, 128, 128.0F / 112, 0, 0},
      {"224", 224, 224, 2, 0, 0},
      {"256", 256, 256, 2, 16, 0},
      {"256-scaled", 256, 256, 256.0F / 112, 0, 0},
  };
  return templates;
}

const FaceTemplate* FindFaceTemplate(const std::string& setting, const std::string& name) {
  std::string known;
  for (const FaceTemplate& face : FaceTemplates()) {
    if (face.name == name) return &face;
    known += (known.empty() ? "" : ", ") + face.name;
  }
  throw Failure(setting + ": '" + name + "' is none of " + known);
}

Image Warped(const Image& picture, const float* matrix, int width, int height) {
  Image result;
  result.width = width;
  result.height = height;
  result.pixels.resize(3 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  corvane::warpaffine_bilinear_c3(picture.pixels.data(), picture.width, picture.height,
                                  result.pixels.data(), width, height, matrix, 0, 0);
  return result;
}

Image AlignedFace(const std::string& path, const Image& picture, const Landmarks& landmarks,
                  const FaceTemplate& face, double* fit_error) {
  float matrix[6];
  if (!corvane::SimilarityToSource(landmarks.data(), face.Points().data(), 5, matrix, fit_error)) {
    throw Failure(path + ": no face can be aligned by these landmarks (are they all one point?)");
  }
  return Warped(picture, matrix, face.width, face.height);
}

Landmarks FittedLandmarks(const Landmarks& landmarks, const FaceTemplate& face) {
  float m[6];
  Landmarks fitted = {};
  if (!corvane::SimilarityToSource(landmarks.data(), face.Points().data(), 5, m)) return fitted;
  const float determinant = m[0] * m[4] - m[1] * m[3];
  for (std::size_t i = 0; i < fitted.size(); i += 2) {
    const float dx = landmarks[i] - m[2];
    const float dy = landmarks[i + 1] - m[5];
    fitted[i] = (m[4] * dx - m[1] * dy) / determinant;
    fitted[i + 1] = (m[0] * dy - m[3] * dx) / determinant;
  }
  return fitted;
}

Landmarks Swapped(const Landmarks& l) {
  return {l[2], l[3], l[0], l[1], l[4], l[5], l[8], l[9], l[6], l[7]};
}

void WarnOfLandmarks(const std::string& path, const Image& picture, const Landmarks& landmarks) {
  float unused[6];
  double error = 0;
  double swapped_error = 0;
  if (corvane::AlignFace112(landmarks.data(), unused, &error) &&
      corvane::AlignFace112(Swapped(landmarks).data(), unused, &swapped_error) &&
      swapped_error < error / 2) {
    std::fprintf(
        stderr,
        "corvane: %s: left and right look swapped in the landmarks: the eye and the corner "
        "of the mouth that are further left in the picture come first\n",
        path.c_str());
  }
  for (std::size_t i = 0; i < landmarks.size(); i += 2) {
    if (landmarks[i] >= 0 && landmarks[i] < static_cast<float>(picture.width) &&
        landmarks[i + 1] >= 0 && landmarks[i + 1] < static_cast<float>(picture.height)) {
      return;
    }
  }
  std::fprintf(stderr, "corvane: %s: no landmark lies inside the picture of %d x %d pixels\n",
               path.c_str(), picture.width, picture.height);
}

}  // namespace corvane_tool

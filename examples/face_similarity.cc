// The library from C++, all of it: is this the same face?
//
//   face_similarity SETTINGS.ini PHOTO.png PICTURE.png
//
// Reads its settings with IniFile, aligns the face of the photograph with AlignFace112 and
// warpaffine_bilinear_c3, describes it with a model through InitBackend and TryForward, and
// compares that with the descriptions of the same face turned by 25 degrees and of another part of
// the photograph. PICTURE.png then shows the photograph with its landmarks, the aligned face, and
// what was compared.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvane/align.h"
#include "corvane/backend.h"
#include "corvane/image.h"
#include "corvane/ini_file.h"
#include "corvane/util.h"
#include "examples/picture.h"
#include "tools/pictures/image_io.h"

namespace {

using examples::Compared;
using examples::Image;
using examples::kFaceSize;
using examples::Matrix;
using examples::Warp;
using Backend = corvane::Backend_<float>;

constexpr float kDegrees = 25;

std::vector<float> Numbers(const corvane::IniFile& ini, const std::string& section,
                           const std::string& key) {
  std::string text;
  if (ini.GetStringValue(section, key, &text) != corvane::INI_OK) {
    throw std::runtime_error("the settings lack [" + section + "] " + key);
  }
  std::vector<float> numbers;
  for (const std::string& field : corvane::SplitByChar(text, ',')) {
    numbers.push_back(std::strtof(field.c_str(), nullptr));
  }
  return numbers;
}

// A view as large as that of m, upright, around (x, y) of the source.
Matrix UprightAround(const Matrix& m, float x, float y) {
  const float scale = std::hypot(m[0], m[3]);
  const float half = static_cast<float>(kFaceSize - 1) / 2;
  return {scale, 0, x - scale * half, 0, scale, y - scale * half};
}

Matrix AlignedBy(const std::vector<float>& landmarks) {
  Matrix matrix;
  if (landmarks.size() != 10 || !corvane::AlignFace112(landmarks.data(), matrix.data())) {
    throw std::runtime_error("five landmarks are needed, and not all in one place");
  }
  return matrix;
}

// False when the model did not run: the frame is lost, and errno has the reason.
bool Describe(Backend& backend, const Image& face, std::vector<float>* description) {
  std::vector<corvane::OutputTensor> outputs;
  if (!corvane::TryForward(backend, face.pixels.data(), corvane::PIXEL_RGB, face.width, face.height,
                           &outputs)) {
    return false;
  }
  if (outputs.empty()) throw std::runtime_error("the model has no output");
  description->assign(outputs[0].data, outputs[0].data + outputs[0].count);
  return true;
}

double Cosine(const std::vector<float>& a, const std::vector<float>& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += double{a[i]} * double{b[i]};
  return sum;
}

// The photograph, turned around (x, y); and the points that turn with it.
Matrix Turned(float degrees, float x, float y) {
  const float radians = degrees * std::acos(-1.0f) / 180;
  const float c = std::cos(radians), s = std::sin(radians);
  return {c, s, x - c * x - s * y, -s, c, y + s * x - c * y};
}
std::vector<float> TurnedPoints(const std::vector<float>& points, float degrees, float x, float y) {
  const Matrix m = Turned(-degrees, x, y);  // source to destination
  std::vector<float> turned;
  for (std::size_t i = 0; i + 1 < points.size(); i += 2) {
    turned.push_back(m[0] * points[i] + m[1] * points[i + 1] + m[2]);
    turned.push_back(m[3] * points[i] + m[4] * points[i + 1] + m[5]);
  }
  return turned;
}

void Run(const std::string& settings_path, const std::string& photo_path,
         const std::string& picture_path) {
  corvane::IniFile settings;
  if (settings.Load(settings_path) != corvane::INI_OK) {
    throw std::runtime_error(settings_path + " cannot be loaded");
  }
  std::string model;
  settings.GetStringValue("model", "file", &model);
  const auto backend = corvane::InitBackend(
      (std::filesystem::path(settings_path).parent_path() / model).lexically_normal().string(), "",
      {}, Numbers(settings, "input", "means"), Numbers(settings, "input", "scales"),
      corvane::RKNN_INPUT_FLOAT32);

  const Image photo = corvane_tool::ReadImage(photo_path);
  const std::vector<float> landmarks =
      Numbers(settings, "landmarks", std::filesystem::path(photo_path).filename().string());
  const Matrix matrix = AlignedBy(landmarks);
  std::vector<float> description;
  if (!Describe(*backend, Warp(photo, matrix, kFaceSize, kFaceSize), &description)) {
    throw std::runtime_error(std::string("the model did not run: ") + std::strerror(errno));
  }

  // The middle of the aligned view, about which the photograph is turned.
  const float half = static_cast<float>(kFaceSize - 1) / 2;
  const float x = (matrix[0] + matrix[1]) * half + matrix[2];
  const float y = (matrix[3] + matrix[4]) * half + matrix[5];
  const Image turned = Warp(photo, Turned(kDegrees, x, y), photo.width, photo.height);
  const Matrix turned_matrix = AlignedBy(TurnedPoints(landmarks, kDegrees, x, y));
  const struct {
    const char* what;
    const Image& image;
    Matrix view;
  } views[] = {
      {"the same face turned by 25 degrees, cut out as it is", turned, UprightAround(matrix, x, y)},
      {"the same face turned by 25 degrees, aligned by its landmarks", turned, turned_matrix},
      {"another part of the photograph", photo, UprightAround(matrix, 400, 150)},
  };
  std::printf("\nCosine similarity of %zu numbers to those of the aligned face:\n",
              description.size());
  std::vector<Compared> compared;
  for (const auto& view : views) {
    Image face = Warp(view.image, view.view, kFaceSize, kFaceSize);
    std::vector<float> other;
    if (!Describe(*backend, face, &other)) {
      std::printf("  failed  %s: %s\n", view.what, std::strerror(errno));
      continue;
    }
    const double similarity = Cosine(description, other);
    std::printf("  %6.3f  %s\n", similarity, view.what);
    compared.push_back({std::move(face), similarity});
  }
  corvane_tool::WritePng(picture_path,
                         examples::ComparisonPicture(photo, landmarks, matrix, compared));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: face_similarity SETTINGS.ini PHOTO.png PICTURE.png\n");
    return 2;
  }
  try {
    Run(argv[1], argv[2], argv[3]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "face_similarity: %s\n", error.what());
    return 1;
  }
}

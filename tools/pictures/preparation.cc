#include "tools/pictures/preparation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "tools/support/failure.h"

namespace corvane_tool {

PreparedPicture Prepare(const std::string& path, const RunSettings& settings,
                        const ModelInput& input) {
  PreparedPicture prepared;
  Image picture = ReadImage(path, settings.applies_exif);
  prepared.file_width = picture.width;
  prepared.file_height = picture.height;
  prepared.landmarks = settings.LandmarksOf(path);
  const auto fits = [&] { return picture.width == input.width && picture.height == input.height; };
  if (prepared.landmarks != nullptr) {
    WarnOfLandmarks(path, picture, *prepared.landmarks);
    picture = AlignedFace(path, picture, *prepared.landmarks, *settings.face, &prepared.fit_error);
  } else if (settings.resize != ResizeRule::kNone && input.width > 0 && !fits()) {
    picture = Resized(picture, input.width, input.height, settings.resize);
  }
  if (input.width > 0 && !fits()) {
    const bool is_aligned = prepared.landmarks != nullptr;
    throw Failure(path + ": " + (is_aligned ? "its aligned face has " : "") +
                  std::to_string(picture.width) + " x " + std::to_string(picture.height) +
                  " pixels, the model takes " + std::to_string(input.width) + " x " +
                  std::to_string(input.height) +
                  (is_aligned ? "; template chooses the face's size"
                              : "; landmarks or resize bring it to size"));
  }
  prepared.image = std::move(picture);
  return prepared;
}

std::vector<uint8_t> InPixelOrder(const Image& image, corvane::PixelType type) {
  std::vector<uint8_t> pixels = image.pixels;
  if (type == corvane::PIXEL_BGR || type == corvane::PIXEL_BGR2RGB) {
    for (std::size_t i = 0; i < pixels.size(); i += 3) std::swap(pixels[i], pixels[i + 2]);
  } else if (type == corvane::PIXEL_GRAY) {
    const std::size_t count = pixels.size() / 3;
    for (std::size_t i = 0; i < count; ++i) {
      const uint8_t* rgb = &pixels[3 * i];  // 0.299, 0.587, 0.114 in 65536ths
      pixels[i] =
          static_cast<uint8_t>((19595u * rgb[0] + 38470u * rgb[1] + 7471u * rgb[2] + 32768u) >> 16);
    }
    pixels.resize(count);
  }
  return pixels;
}

namespace {

void DrawCross(float x, float y, Image* image) {
  constexpr int kArm = 2;
  const uint8_t green[3] = {0, 255, 0};
  const auto draw = [&](long at_x, long at_y) {
    if (at_x < 0 || at_y < 0 || at_x >= image->width || at_y >= image->height) return;
    std::copy_n(green, 3,
                &image->pixels[static_cast<std::size_t>(3 * (at_y * image->width + at_x))]);
  };
  if (!(std::fabs(x) < 1e6F && std::fabs(y) < 1e6F)) return;
  for (int i = -kArm; i <= kArm; ++i) {
    draw(std::lround(x) + i, std::lround(y));
    draw(std::lround(x), std::lround(y) + i);
  }
}

}  // namespace

Image Shown(const PreparedPicture& picture, const RunSettings& settings) {
  Image shown = picture.image;
  const corvane::PixelType type = settings.pixel_type;
  if (type == corvane::PIXEL_GRAY) {
    const std::vector<uint8_t> bytes = InPixelOrder(shown, type);
    for (std::size_t i = 0; i < shown.pixels.size(); ++i) shown.pixels[i] = bytes[i / 3];
  } else if (type == corvane::PIXEL_BGR || type == corvane::PIXEL_RGB2BGR) {
    // The first plane is the picture's blue, in either way to hand the bytes over.
    for (std::size_t i = 0; i < shown.pixels.size(); i += 3) {
      std::swap(shown.pixels[i], shown.pixels[i + 2]);
    }
  }
  if (picture.landmarks != nullptr) {
    const Landmarks marks = FittedLandmarks(*picture.landmarks, *settings.face);
    for (std::size_t i = 0; i < marks.size(); i += 2) DrawCross(marks[i], marks[i + 1], &shown);
  }
  return shown;
}

}  // namespace corvane_tool

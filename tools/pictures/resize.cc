#include "tools/pictures/resize.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "tools/pictures/face.h"

namespace corvane_tool {

namespace {

const uint8_t* PixelAt(const Image& image, int64_t x, int64_t y) {
  return &image.pixels[static_cast<std::size_t>(3 * (y * image.width + x))];
}

Image Blank(int width, int height, uint8_t gray) {
  Image image;
  image.width = width;
  image.height = height;
  image.pixels.assign(3 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height), gray);
  return image;
}

// The picture with its outermost pixels repeated once around it, so that a sample in the outer half
// of a pixel at the rim does not blend with black.
Image WithRim(const Image& picture) {
  Image result = Blank(picture.width + 2, picture.height + 2, 0);
  uint8_t* to = result.pixels.data();
  for (int y = -1; y <= picture.height; ++y) {
    for (int x = -1; x <= picture.width; ++x, to += 3) {
      std::copy_n(PixelAt(picture, std::clamp(x, 0, picture.width - 1),
                          std::clamp(y, 0, picture.height - 1)),
                  3, to);
    }
  }
  return result;
}

Image Bilinear(const Image& picture, int width, int height) {
  const float step_x = static_cast<float>(picture.width) / static_cast<float>(width);
  const float step_y = static_cast<float>(picture.height) / static_cast<float>(height);
  const float matrix[6] = {step_x, 0, step_x / 2 + 0.5f, 0, step_y, step_y / 2 + 0.5f};
  return Warped(WithRim(picture), matrix, width, height);
}

// For each destination pixel the source pixel in which its centre lies. Centres on the edge between
// two pixels are common (7 to 3), so the sum is made as Pillow makes it, step by step.
std::vector<int> NearestPixels(int source, int destination) {
  const double step = static_cast<double>(source) / destination;
  std::vector<int> nearest(static_cast<std::size_t>(destination));
  double place = step / 2;
  for (int& pixel : nearest) {
    pixel = std::min(static_cast<int>(place), source - 1);
    place += step;
  }
  return nearest;
}

Image Nearest(const Image& picture, int width, int height) {
  const std::vector<int> columns = NearestPixels(picture.width, width);
  Image result = Blank(width, height, 0);
  uint8_t* to = result.pixels.data();
  for (const int y : NearestPixels(picture.height, height)) {
    for (const int x : columns) {
      std::copy_n(PixelAt(picture, x, y), 3, to);
      to += 3;
    }
  }
  return result;
}

// The source pixels that make up one destination pixel, with weights of sum 1.
struct Taps {
  int begin = 0;
  std::vector<double> weights;
};

std::vector<Taps> TriangleTaps(int source, int destination) {
  const double step = static_cast<double>(source) / destination;
  const double radius = std::max(step, 1.0);
  std::vector<Taps> all(static_cast<std::size_t>(destination));
  for (std::size_t i = 0; i < all.size(); ++i) {
    const double centre = (static_cast<double>(i) + 0.5) * step;
    Taps& taps = all[i];
    taps.begin = std::max(0, static_cast<int>(std::lround(centre - radius)));
    const int end = std::min(source, static_cast<int>(std::lround(centre + radius)));
    double sum = 0;
    for (int k = taps.begin; k < end; ++k) {
      taps.weights.push_back(std::max(0.0, 1 - std::fabs((k + 0.5 - centre) / radius)));
      sum += taps.weights.back();
    }
    for (double& weight : taps.weights) weight /= sum;
  }
  return all;
}

// The rows' direction only, rounded to bytes; the picture comes out transposed, so that two calls
// do both directions.
Image NarrowedAndTransposed(const Image& picture, int width) {
  const std::vector<Taps> columns = TriangleTaps(picture.width, width);
  const auto rows = static_cast<std::size_t>(picture.height);
  Image result = Blank(picture.height, width, 0);
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Taps& taps = columns[static_cast<std::size_t>(x)];
      const uint8_t* const from = PixelAt(picture, taps.begin, y);
      uint8_t* const to =
          &result.pixels[3 * (static_cast<std::size_t>(x) * rows + static_cast<std::size_t>(y))];
      for (std::size_t c = 0; c < 3; ++c) {
        double sum = 0.5;
        for (std::size_t k = 0; k < taps.weights.size(); ++k) {
          sum += taps.weights[k] * from[3 * k + c];
        }
        to[c] = static_cast<uint8_t>(sum);
      }
    }
  }
  return result;
}

}  // namespace

Image Letterboxed(const Image& picture, int width, int height, uint8_t bars) {
  const double ratio = std::min(static_cast<double>(width) / picture.width,
                                static_cast<double>(height) / picture.height);
  const int inner_width = std::max(1, static_cast<int>(std::lround(picture.width * ratio)));
  const int inner_height = std::max(1, static_cast<int>(std::lround(picture.height * ratio)));
  const Image inner = Bilinear(picture, inner_width, inner_height);
  Image result = Blank(width, height, bars);
  const int left = (width - inner_width) / 2;
  const int top = (height - inner_height) / 2;
  for (int y = 0; y < inner_height; ++y) {
    std::copy_n(PixelAt(inner, 0, y), 3 * static_cast<std::size_t>(inner_width),
                &result.pixels[static_cast<std::size_t>(3 * (int64_t{top + y} * width + left))]);
  }
  return result;
}

Image Resized(const Image& picture, int width, int height, ResizeRule rule) {
  switch (rule) {
    case ResizeRule::kAntialias:
      return NarrowedAndTransposed(NarrowedAndTransposed(picture, width), height);
    case ResizeRule::kNearest:
      return Nearest(picture, width, height);
    case ResizeRule::kLetterbox:
      return Letterboxed(picture, width, height, 0);
    case ResizeRule::kNone:
    case ResizeRule::kBilinear:
      break;
  }
  return Bilinear(picture, width, height);
}

}  // namespace corvane_tool

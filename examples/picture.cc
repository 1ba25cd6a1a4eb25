#include "examples/picture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "corvane/image.h"

namespace examples {

namespace {

using Colour = std::array<uint8_t, 3>;

Image Canvas(int width, int height, const Colour& colour) {
  Image image;
  image.width = width;
  image.height = height;
  for (int i = 0; i < width * height; ++i) {
    image.pixels.insert(image.pixels.end(), colour.begin(), colour.end());
  }
  return image;
}

uint8_t* PixelAt(Image* image, int x, int y) {
  return &image->pixels[3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(image->width) +
                             static_cast<std::size_t>(x))];
}

// tile must fit in.
void Place(const Image& tile, int left, int top, Image* onto) {
  for (int y = 0; y < tile.height; ++y) {
    const std::size_t row_bytes = 3 * static_cast<std::size_t>(tile.width);
    std::copy_n(tile.pixels.data() + static_cast<std::size_t>(y) * row_bytes, row_bytes,
                PixelAt(onto, left, top + y));
  }
}

// A line with round ends, or a dot where both ends are one point; smooth edges, clipped.
void Stroke(float x0, float y0, float x1, float y1, float radius, const Colour& colour,
            Image* image) {
  const float dx = x1 - x0, dy = y1 - y0;
  const float length2 = dx * dx + dy * dy;
  const int left = std::max(0, static_cast<int>(std::min(x0, x1) - radius - 1));
  const int right = std::min(image->width - 1, static_cast<int>(std::max(x0, x1) + radius + 2));
  const int top = std::max(0, static_cast<int>(std::min(y0, y1) - radius - 1));
  const int bottom = std::min(image->height - 1, static_cast<int>(std::max(y0, y1) + radius + 2));
  for (int y = top; y <= bottom; ++y) {
    for (int x = left; x <= right; ++x) {
      const float px = static_cast<float>(x) - x0, py = static_cast<float>(y) - y0;
      const float along =
          length2 > 0 ? std::min(1.0f, std::max(0.0f, (px * dx + py * dy) / length2)) : 0.0f;
      const float distance = std::hypot(px - along * dx, py - along * dy);
      const float cover = std::min(1.0f, std::max(0.0f, radius + 0.5f - distance));
      uint8_t* pixel = PixelAt(image, x, y);
      for (std::size_t c = 0; c < 3; ++c) {
        const float blended =
            static_cast<float>(pixel[c]) * (1 - cover) + static_cast<float>(colour[c]) * cover;
        pixel[c] = static_cast<uint8_t>(std::lround(blended));
      }
    }
  }
}

void Dot(float x, float y, float radius, const Colour& colour, Image* image) {
  Stroke(x, y, x, y, radius, colour, image);
}

// The same view in more pixels: each is a step of 1 / factor in the old ones.
Matrix Enlarged(const Matrix& m, float factor) {
  return {m[0] / factor, m[1] / factor, m[2], m[3] / factor, m[4] / factor, m[5]};
}

}  // namespace

Image Warp(const Image& source, const Matrix& matrix, int width, int height) {
  Image image = Canvas(width, height, {0, 0, 0});
  corvane::warpaffine_bilinear_c3(source.pixels.data(), source.width, source.height,
                                  image.pixels.data(), width, height, matrix.data(), 0, 0);
  return image;
}

Image ComparisonPicture(Image photo, const std::vector<float>& landmarks, const Matrix& matrix,
                        const std::vector<Compared>& compared) {
  constexpr int kMargin = 16, kGap = 12, kBarHeight = 16;
  constexpr int kColumn = 3 * kFaceSize + 2 * kGap;
  constexpr float kFactor = static_cast<float>(kColumn) / kFaceSize;
  const Colour paper = {250, 250, 247}, frame = {255, 255, 255}, mark = {0, 229, 255};
  const Colour track = {222, 222, 216}, alike = {46, 160, 67}, unlike = {224, 123, 57};

  Image face = Warp(photo, Enlarged(matrix, kFactor), kColumn, kColumn);
  const Matrix& m = matrix;
  const float determinant = m[0] * m[4] - m[1] * m[3];
  for (std::size_t i = 0; i + 1 < landmarks.size(); i += 2) {
    const float x = landmarks[i] - m[2], y = landmarks[i + 1] - m[5];
    Dot(kFactor * (m[4] * x - m[1] * y) / determinant,
        kFactor * (m[0] * y - m[3] * x) / determinant, 4, mark, &face);
  }
  constexpr float kEdge = kFaceSize - 0.5f;
  const float corners[5][2] = {
      {-0.5f, -0.5f}, {kEdge, -0.5f}, {kEdge, kEdge}, {-0.5f, kEdge}, {-0.5f, -0.5f}};
  const auto x_of = [&](const float* p) { return m[0] * p[0] + m[1] * p[1] + m[2]; };
  const auto y_of = [&](const float* p) { return m[3] * p[0] + m[4] * p[1] + m[5]; };
  for (int i = 0; i < 4; ++i) {
    Stroke(x_of(corners[i]), y_of(corners[i]), x_of(corners[i + 1]), y_of(corners[i + 1]), 1, frame,
           &photo);
  }
  for (std::size_t i = 0; i + 1 < landmarks.size(); i += 2) {
    Dot(landmarks[i], landmarks[i + 1], 2.5f, mark, &photo);
  }

  const int bars_top = 2 * kMargin + kColumn + kFaceSize + kGap;
  const int height = std::max(photo.height, bars_top + kBarHeight - kMargin) + 2 * kMargin;
  const int column_left = 2 * kMargin + photo.width;
  Image picture = Canvas(column_left + kColumn + kMargin, height, paper);
  Place(photo, kMargin, kMargin, &picture);
  Place(face, column_left, kMargin, &picture);
  int left = column_left;
  for (const Compared& entry : compared) {
    Place(entry.face, left, 2 * kMargin + kColumn, &picture);
    Place(Canvas(kFaceSize, kBarHeight, track), left, bars_top, &picture);
    const double shown = std::min(1.0, std::max(0.0, entry.similarity));
    const int length = static_cast<int>(std::lround(kFaceSize * shown));
    Place(Canvas(length, kBarHeight, entry.similarity > 0.7 ? alike : unlike), left, bars_top,
          &picture);
    left += kFaceSize + kGap;
  }
  return picture;
}

}  // namespace examples

#include "tools/explain/recipe.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "tools/pictures/orientation.h"

namespace corvane_tool {

namespace {

Image NearestCorner(const Image& picture, int width, int height) {
  Image result;
  result.width = width;
  result.height = height;
  for (int64_t y = 0; y < height; ++y) {
    for (int64_t x = 0; x < width; ++x) {
      const int64_t from = y * picture.height / height * picture.width + x * picture.width / width;
      const auto pixel = picture.pixels.begin() + 3 * from;
      result.pixels.insert(result.pixels.end(), pixel, pixel + 3);
    }
  }
  return result;
}

Image CornersAligned(const Image& picture, int width, int height) {
  const auto step = [](int from, int to) {
    return to > 1 ? static_cast<float>(from - 1) / static_cast<float>(to - 1) : 0.0F;
  };
  const float matrix[6] = {step(picture.width, width), 0, 0, 0, step(picture.height, height), 0};
  return Warped(picture, matrix, width, height);
}

Image CentreCrop(const Image& picture, int width, int height) {
  const float step = std::min(static_cast<float>(picture.width) / static_cast<float>(width),
                              static_cast<float>(picture.height) / static_cast<float>(height));
  const float left = (static_cast<float>(picture.width) - step * static_cast<float>(width)) / 2;
  const float top = (static_cast<float>(picture.height) - step * static_cast<float>(height)) / 2;
  const float matrix[6] = {step, 0, left + step / 2 - 0.5F, 0, step, top + step / 2 - 0.5F};
  return Warped(picture, matrix, width, height);
}

Image Fitted(const Image& picture, int width, int height, Fit fit) {
  switch (fit) {
    case Fit::kNone:
      return picture;
    case Fit::kBilinear:
      return Resized(picture, width, height, ResizeRule::kBilinear);
    case Fit::kAntialias:
      return Resized(picture, width, height, ResizeRule::kAntialias);
    case Fit::kNearest:
      return Resized(picture, width, height, ResizeRule::kNearest);
    case Fit::kLetterbox:
      return Letterboxed(picture, width, height, 0);
    case Fit::kLetterbox114:
      return Letterboxed(picture, width, height, 114);
    case Fit::kLetterbox128:
      return Letterboxed(picture, width, height, 128);
    case Fit::kNearestCorner:
      return NearestCorner(picture, width, height);
    case Fit::kCornersAligned:
      return CornersAligned(picture, width, height);
    case Fit::kCentreCrop:
      return CentreCrop(picture, width, height);
    case Fit::kSidesExchanged:
      break;
  }
  Image exchanged = Resized(picture, height, width, ResizeRule::kBilinear);
  std::swap(exchanged.width, exchanged.height);
  return exchanged;
}

float GrayOf(const uint8_t* rgb, Gray gray) {
  const auto luma = [](unsigned r, unsigned g, unsigned b) {
    return static_cast<float>((19595u * r + 38470u * g + 7471u * b + 32768u) >> 16);
  };
  switch (gray) {
    case Gray::kLumaOfBgr:
      return luma(rgb[2], rgb[1], rgb[0]);
    case Gray::kAverage:
      return static_cast<float>(std::lround((rgb[0] + rgb[1] + rgb[2]) / 3.0));
    case Gray::kGreen:
      return rgb[1];
    case Gray::kNone:
    case Gray::kLuma:
      break;
  }
  return luma(rgb[0], rgb[1], rgb[2]);
}

}  // namespace

// A gray model's plane is made gray last, as Forward's caller does; a colour model's picture first.
const Image& RecipeMaker::FileOf(const Recipe& recipe) {
  const Gray gray = channels_ == 3 ? recipe.gray : Gray::kNone;
  const auto key = std::make_pair(recipe.applies_exif, gray);
  const auto found = files_.find(key);
  if (found != files_.end()) return found->second;
  Image picture = ReadImage(path_, recipe.applies_exif);
  for (std::size_t i = 0; gray != Gray::kNone && i < picture.pixels.size(); i += 3) {
    const auto level = static_cast<uint8_t>(GrayOf(&picture.pixels[i], gray));
    std::fill_n(&picture.pixels[i], 3, level);
  }
  return files_.emplace(key, std::move(picture)).first->second;
}

const Image& RecipeMaker::PictureOf(const Recipe& recipe) {
  std::string key = std::to_string(recipe.orientation) + (recipe.applies_exif ? "e" : "") +
                    std::to_string(static_cast<int>(recipe.fit));
  if (channels_ == 3) key += "g" + std::to_string(static_cast<int>(recipe.gray));
  if (recipe.is_aligned) {
    key += " " + NumbersText(recipe.landmarks.data(), recipe.landmarks.size()) + " " +
           NumbersText(recipe.face.Points().data(), 10);
  }
  const auto found = pictures_.find(key);
  if (found != pictures_.end()) return found->second;

  const Image& file = FileOf(recipe);
  Image picture;
  if (recipe.is_aligned) {
    double unused = 0;
    picture = Upright(AlignedFace(path_, file, recipe.landmarks, recipe.face, &unused),
                      recipe.orientation);
  } else {
    picture = Fitted(Upright(file, recipe.orientation), input_.width, input_.height, recipe.fit);
  }
  return pictures_.emplace(key, std::move(picture)).first->second;
}

std::vector<float> RecipeMaker::Make(const Recipe& recipe) {
  const Image& picture = PictureOf(recipe);
  if (picture.width != input_.width || picture.height != input_.height) return {};
  const auto channels = static_cast<std::size_t>(channels_);
  const std::size_t pixels = picture.pixels.size() / 3;
  std::vector<float> tensor(channels * pixels);
  for (std::size_t c = 0; c < channels; ++c) {
    const float mean = recipe.normalisation.means[c];
    const float scale = recipe.normalisation.scales[c];
    const std::size_t source = recipe.is_bgr ? 2 - c : c;
    for (std::size_t i = 0; i < pixels; ++i) {
      const uint8_t* const rgb = &picture.pixels[3 * i];
      const float byte = channels == 1 ? GrayOf(rgb, recipe.gray) : static_cast<float>(rgb[source]);
      tensor[recipe.is_interleaved ? i * channels + c : c * pixels + i] = (byte - mean) * scale;
    }
  }
  return tensor;
}

}  // namespace corvane_tool

#include <utility>

#include "tools/explain/hypotheses.h"

namespace corvane_tool {

namespace {

void AddFits(const Recipe& base, std::vector<Hypothesis>* all) {
  const std::pair<Fit, const char*> fits[] = {
      {Fit::kBilinear, "bilinear, without averaging"},
      {Fit::kAntialias, "bilinear with averaging (antialiased)"},
      {Fit::kNearest, "by the nearest pixel"},
      {Fit::kLetterbox, "into a letterbox with black bars"},
      {Fit::kLetterbox114, "into a letterbox with bars of gray 114"},
      {Fit::kLetterbox128, "into a letterbox with bars of gray 128"},
      {Fit::kNearestCorner, "by the nearest pixel, counted from the corners"},
      {Fit::kCornersAligned, "bilinear, with the corner pixels on each other"},
      {Fit::kCentreCrop, "by its shorter side, and the middle is cut out"},
      {Fit::kSidesExchanged, "with width and height exchanged"}};
  for (const auto& fit : fits) {
    const std::string prefix =
        base.is_aligned ? "the picture is not aligned but resized " : "the picture is resized ";
    all->push_back({prefix + fit.second, kGeometry, [value = fit.first](Recipe* recipe) {
                      recipe->is_aligned = false;
                      recipe->fit = value;
                      return true;
                    }});
  }
}

void AddTemplates(const Recipe& base, const ModelInput& input, std::vector<Hypothesis>* all) {
  const auto add = [&](std::string words, const FaceTemplate& face) {
    all->push_back({std::move(words), kGeometry, [face](Recipe* recipe) {
                      recipe->face = face;
                      return true;
                    }});
  };
  for (const FaceTemplate& face : FaceTemplates()) {
    const float ratio = static_cast<float>(input.width) / static_cast<float>(face.width);
    if (face.width * input.height != face.height * input.width) continue;
    FaceTemplate scaled = face;
    scaled.width = input.width;
    scaled.height = input.height;
    scaled.factor *= ratio;
    scaled.shift_x *= ratio;
    if (ratio == 1) {
      add("the face is aligned by the template " + face.name, scaled);
      continue;
    }
    scaled.name.clear();
    add("the face is aligned by the template " + face.name + ", scaled to this size", scaled);
    scaled.shift_x += ratio / 2 - 0.5F;
    scaled.shift_y += ratio / 2 - 0.5F;
    add("the face is aligned by the template " + face.name + " and then resized to this size",
        scaled);
  }
  for (const float shift : {0.5F, -0.5F}) {
    FaceTemplate shifted = base.face;
    shifted.name.clear();
    shifted.shift_x += shift;
    shifted.shift_y += shift;
    add(std::string("the face is aligned half a pixel further ") +
            (shift > 0 ? "right and down" : "left and up"),
        shifted);
  }
}

}  // namespace

void AddGeometry(const Recipe& base, const ModelInput& input, bool is_turned_by_exif,
                 std::vector<Hypothesis>* all) {
  if (is_turned_by_exif) {
    all->push_back(
        {"the picture is turned as its EXIF data says", kOrientation, [](Recipe* recipe) {
           recipe->applies_exif = !recipe->applies_exif;
           return true;
         }});
  }
  const char* const orientations[] = {
      "mirrored, left to right",
      "turned by 180 degrees",
      "mirrored, top to bottom",
      "transposed: rows and columns (width and height) are exchanged",
      "turned by 90 degrees clockwise",
      "transposed and turned by 180 degrees",
      "turned by 90 degrees counterclockwise"};
  for (unsigned i = 0; i < 7; ++i) {
    all->push_back(
        {std::string("the picture is ") + orientations[i], kOrientation, [i](Recipe* recipe) {
           recipe->orientation = i + 2;
           return true;
         }});
  }
  if (base.is_aligned) {
    all->push_back({"left and right of the landmarks are exchanged", kGeometry, [](Recipe* recipe) {
                      recipe->landmarks = Swapped(recipe->landmarks);
                      return true;
                    }});
    AddTemplates(base, input, all);
  }
  AddFits(base, all);
}

}  // namespace corvane_tool

#include "tools/hypotheses.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace corvane_tool {

namespace {

using Numbers = std::vector<float>;

Numbers Reversed(Numbers numbers) {
  std::reverse(numbers.begin(), numbers.end());
  return numbers;
}

template <typename Function>
Numbers Each(const Numbers& a, const Numbers& b, Function function) {
  Numbers result(a.size());
  for (std::size_t c = 0; c < a.size(); ++c) result[c] = function(a[c], b[c]);
  return result;
}

// ------------------------------------------------------------------------------------- colours

void AddColours(int channels, std::vector<Hypothesis>* all) {
  if (channels == 3) {
    all->push_back({"the picture's channels are in the other order (RGB for BGR, or BGR for RGB)",
                    kColour, [](Recipe* recipe) {
                      recipe->is_bgr = !recipe->is_bgr;
                      return true;
                    }});
    all->push_back({"the picture's channels, with their means and scales, are in the other order",
                    kColour | kOrder, [](Recipe* recipe) {
                      recipe->is_bgr = !recipe->is_bgr;
                      recipe->normalisation.means = Reversed(recipe->normalisation.means);
                      recipe->normalisation.scales = Reversed(recipe->normalisation.scales);
                      return true;
                    }});
  }
  const std::pair<Gray, const char*> grays[] = {
      {Gray::kLuma, "the picture is gray: 0.299 R + 0.587 G + 0.114 B"},
      {Gray::kLumaOfBgr,
       "the picture is gray, with R and B exchanged: 0.114 R + 0.587 G + 0.299 B"},
      {Gray::kAverage, "the picture is gray: the average of R, G and B"},
      {Gray::kGreen, "the picture is gray: G alone"}};
  for (const auto& gray : grays) {
    all->push_back({gray.second, kColour, [value = gray.first](Recipe* recipe) {
                      recipe->gray = value;
                      return true;
                    }});
  }
}

// ------------------------------------------------------------------------------- normalisation

using Change = std::function<Normalisation(const Numbers& means, const Numbers& scales)>;

void AddNormalisation(std::string words, unsigned aspects, Change change,
                      std::vector<Hypothesis>* all) {
  all->push_back({std::move(words), aspects, [change = std::move(change)](Recipe* recipe) {
                    const Normalisation& now = recipe->normalisation;
                    recipe->normalisation = change(now.means, now.scales);
                    return true;
                  }});
}

void AddNormalisations(std::vector<Hypothesis>* all) {
  const auto zeros = [](const Numbers& like) { return Numbers(like.size(), 0.0F); };
  const auto ones = [](const Numbers& like) { return Numbers(like.size(), 1.0F); };
  const auto times = [](float factor) { return [factor](float a, float) { return a * factor; }; };
  using Result = Normalisation;
  const unsigned both = kMeans | kScales;
  AddNormalisation(
      "the means are in the other order", kOrder | kMeans,
      [](const Numbers& m, const Numbers& s) {
        return Result{Reversed(m), s};
      },
      all);
  AddNormalisation(
      "the scales are in the other order", kOrder | kScales,
      [](const Numbers& m, const Numbers& s) {
        return Result{m, Reversed(s)};
      },
      all);
  AddNormalisation(
      "means and scales are in the other order", kOrder,
      [](const Numbers& m, const Numbers& s) {
        return Result{Reversed(m), Reversed(s)};
      },
      all);
  AddNormalisation(
      "no means are subtracted", kMeans,
      [=](const Numbers& m, const Numbers& s) {
        return Result{zeros(m), s};
      },
      all);
  AddNormalisation(
      "nothing is scaled", kScales,
      [=](const Numbers& m, const Numbers& s) {
        return Result{m, ones(s)};
      },
      all);
  AddNormalisation(
      "the picture is not normalised at all", both,
      [=](const Numbers& m, const Numbers& s) {
        return Result{zeros(m), ones(s)};
      },
      all);
  AddNormalisation(
      "the scales are divisors (their inverse multiplies)", kScales,
      [](const Numbers& m, const Numbers& s) {
        return Result{m, Each(s, s, [](float a, float) { return 1 / a; })};
      },
      all);
  AddNormalisation(
      "means and scales are meant for pictures of 0 to 1 (bytes divided by 255 first)", both,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(255.0F)), Each(s, s, times(1 / 255.0F))};
      },
      all);
  AddNormalisation(
      "means and divisors are meant for pictures of 0 to 1 (bytes divided by 255 first)", both,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(255.0F)),
                      Each(s, s, [](float a, float) { return 1 / (255 * a); })};
      },
      all);
  AddNormalisation(
      "means and scales are meant for bytes, not for 0 to 1", both,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(1 / 255.0F)), Each(s, s, times(255.0F))};
      },
      all);
  AddNormalisation(
      "the means are meant for pictures of 0 to 1", kMeans,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(255.0F)), s};
      },
      all);
  AddNormalisation(
      "the means are 255 times smaller", kMeans,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(1 / 255.0F)), s};
      },
      all);
  AddNormalisation(
      "the scales are 255 times smaller (they are meant for pictures of 0 to 1)", kScales,
      [=](const Numbers& m, const Numbers& s) {
        return Result{m, Each(s, s, times(1 / 255.0F))};
      },
      all);
  AddNormalisation(
      "the scales are 255 times larger", kScales,
      [=](const Numbers& m, const Numbers& s) {
        return Result{m, Each(s, s, times(255.0F))};
      },
      all);
  AddNormalisation(
      "the picture is normalised twice", both,
      [](const Numbers& m, const Numbers& s) {
        return Result{Each(m, s, [](float a, float b) { return a + a / b; }),
                      Each(s, s, [](float a, float b) { return a * b; })};
      },
      all);
  AddNormalisation(
      "the scales multiply before the means are subtracted", kMeans,
      [](const Numbers& m, const Numbers& s) {
        return Result{Each(m, s, [](float a, float b) { return a / b; }), s};
      },
      all);
  AddNormalisation(
      "the means are added, not subtracted", kMeans,
      [=](const Numbers& m, const Numbers& s) {
        return Result{Each(m, m, times(-1.0F)), s};
      },
      all);
}

// The constants in use, for settings that have others or none.
void AddUsualConstants(int channels, std::vector<Hypothesis>* all) {
  struct Usual {
    const char* words;
    Numbers means, scales;
  };
  const Usual usual[] = {{"means 127.5, scales 1/127.5", {127.5F}, {1 / 127.5F}},
                         {"means 127.5, scales 1/128", {127.5F}, {1 / 128.0F}},
                         {"means 128, scales 1/128", {128.0F}, {1 / 128.0F}},
                         {"no means, scales 1/255", {0.0F}, {1 / 255.0F}},
                         {"the ImageNet constants",
                          {123.675F, 116.28F, 103.53F},
                          {1 / 58.395F, 1 / 57.12F, 1 / 57.375F}},
                         {"the ImageNet constants in the order B, G, R",
                          {103.53F, 116.28F, 123.675F},
                          {1 / 57.375F, 1 / 57.12F, 1 / 58.395F}},
                         {"means 104, 117, 123 and no scales", {104.0F, 117.0F, 123.0F}, {1.0F}},
                         {"means 123, 117, 104 and no scales", {123.0F, 117.0F, 104.0F}, {1.0F}}};
  const auto count = static_cast<std::size_t>(channels);
  for (const Usual& row : usual) {
    if (row.means.size() > count) continue;
    Normalisation value = {row.means, row.scales};
    value.means.resize(count, row.means[0]);
    value.scales.resize(count, row.scales[0]);
    AddNormalisation(
        std::string("the normalisation is another: ") + row.words, kMeans | kScales,
        [value](const Numbers&, const Numbers&) { return value; }, all);
    AddNormalisation(
        std::string("the means are those of: ") + row.words, kMeans,
        [value](const Numbers&, const Numbers& s) {
          return Normalisation{value.means, s};
        },
        all);
  }
}

// ------------------------------------------------------------------------------------ geometry

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

}  // namespace

std::vector<Hypothesis> Hypotheses(const Recipe& base, const Normalisation& settings,
                                   const Normalisation& own, const ModelInput& input,
                                   bool is_turned_by_exif) {
  std::vector<Hypothesis> all;
  AddNormalisation(
      "the model's own normalisation is not applied", kMeans | kScales,
      [=](const Numbers&, const Numbers&) { return settings; }, &all);
  AddNormalisation(
      "only the model's own normalisation is applied", kMeans | kScales,
      [=](const Numbers&, const Numbers&) { return own; }, &all);
  const int channels = static_cast<int>(own.means.size());
  AddColours(channels, &all);
  AddNormalisations(&all);
  AddUsualConstants(channels, &all);
  AddGeometry(base, input, is_turned_by_exif, &all);
  if (channels == 3) {
    all.push_back({"the pixels' bytes are fed as they lie (NHWC where the model takes NCHW)",
                   kLayout, [](Recipe* recipe) {
                     recipe->is_interleaved = true;
                     return true;
                   }});
  }
  return all;
}

}  // namespace corvane_tool

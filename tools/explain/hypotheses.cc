#include "tools/explain/hypotheses.h"

#include <algorithm>
#include <utility>

namespace corvane_tool {

namespace {

void Reverse(std::vector<float>* numbers) { std::reverse(numbers->begin(), numbers->end()); }

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
                      Reverse(&recipe->normalisation.means);
                      Reverse(&recipe->normalisation.scales);
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

}  // namespace

std::vector<Hypothesis> Hypotheses(const Recipe& base, const Normalisation& settings,
                                   const Normalisation& own, const ModelInput& input,
                                   bool is_turned_by_exif) {
  std::vector<Hypothesis> all;
  const int channels = static_cast<int>(own.means.size());
  AddColours(channels, &all);
  AddNormalisations(settings, own, &all);
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

// One way to make a model's input of a picture: what the settings do, or what somebody else may
// have done.
#ifndef CORVANE_TOOLS_EXPLAIN_RECIPE_H_
#define CORVANE_TOOLS_EXPLAIN_RECIPE_H_

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/pictures/face.h"
#include "tools/pictures/image_io.h"
#include "tools/pictures/preparation.h"
#include "tools/pictures/resize.h"
#include "tools/settings/normalisation.h"

namespace corvane_tool {

// How a picture that is not aligned comes to the model's size. The first five are the settings'.
enum class Fit {
  kNone,
  kBilinear,
  kAntialias,
  kNearest,
  kLetterbox,
  kLetterbox114,  // gray bars
  kLetterbox128,
  kNearestCorner,   // the pixel in which the destination pixel's corner lies
  kCornersAligned,  // bilinear, with the outermost pixels' centres on each other
  kCentreCrop,      // the shorter side fitted, the middle cut out
  kSidesExchanged,  // resized to height x width, the bytes then read as width x height
};

enum class Gray { kNone, kLuma, kLumaOfBgr, kAverage, kGreen };

struct Recipe {
  bool applies_exif = false;
  unsigned orientation = 1;  // how the model's picture is turned and mirrored
  bool is_aligned = false;
  Landmarks landmarks = {};
  FaceTemplate face;
  Fit fit = Fit::kNone;
  bool is_bgr = false;      // the first plane is the picture's blue
  Gray gray = Gray::kNone;  // also the one plane of a gray model
  Normalisation normalisation;
  bool is_interleaved = false;  // the pixels' bytes go where the planes belong
};

// Makes inputs of one picture. Pictures of equal geometry are made once.
class RecipeMaker {
 public:
  RecipeMaker(std::string path, const ModelInput& input, int channels)
      : path_(std::move(path)), input_(input), channels_(channels) {}

  // NCHW. Empty where the recipe does not lead to the model's size.
  std::vector<float> Make(const Recipe& recipe);

 private:
  const Image& FileOf(const Recipe& recipe);
  const Image& PictureOf(const Recipe& recipe);

  std::string path_;
  ModelInput input_;
  int channels_;
  std::map<std::pair<bool, Gray>, Image> files_;  // by whether EXIF is applied
  std::map<std::string, Image> pictures_;         // by all that decides the geometry
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_EXPLAIN_RECIPE_H_

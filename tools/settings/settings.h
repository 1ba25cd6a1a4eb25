// The settings of a run: from an INI file, each overridden by its option.
#ifndef CORVANE_TOOLS_SETTINGS_SETTINGS_H_
#define CORVANE_TOOLS_SETTINGS_SETTINGS_H_

#include <map>
#include <string>
#include <vector>

#include "corvane/backend.h"
#include "tools/commands.h"
#include "tools/pictures/face.h"
#include "tools/pictures/resize.h"
#include "tools/settings/numbers.h"

namespace corvane_tool {

struct RunSettings {
  std::string model;
  corvane::RKNNInputType input_type = corvane::RKNN_INPUT_FLOAT32;
  corvane::PixelType pixel_type = corvane::PIXEL_RGB;
  std::string input_type_name, pixel_type_name;
  std::vector<float> means, scales;
  ResizeRule resize = ResizeRule::kNone;
  const FaceTemplate* face = nullptr;  // never null once read
  bool applies_exif = false;
  std::map<std::string, Landmarks> landmarks;  // by the image's path or its file name alone
  std::string output_folder;                   // empty: none

  int channels() const { return pixel_type == corvane::PIXEL_GRAY ? 1 : 3; }
  // Null where the settings have none for this image.
  const Landmarks* LandmarksOf(const std::string& image) const;
};

// Throws Failure, which names the file and the setting, for a setting that is missing, unknown,
// given twice, or wrong. Relative paths in the file are taken from the file's own folder.
// images: of the command line, in full.
RunSettings ReadSettings(const SettingsOptions& options, const std::vector<std::string>& images);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SETTINGS_SETTINGS_H_

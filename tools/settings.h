// The settings of a run: from an INI file, each overridden by its option.
#ifndef CORVANE_TOOLS_SETTINGS_H_
#define CORVANE_TOOLS_SETTINGS_H_

#include <array>
#include <map>
#include <string>
#include <vector>

#include "corvane/backend.h"
#include "tools/commands.h"

namespace corvane_tool {

using Landmarks =
    std::array<float, 10>;  // x, y of five points; the order is that of corvane/align.h

struct RunSettings {
  std::string model;
  corvane::RKNNInputType input_type = corvane::RKNN_INPUT_FLOAT32;
  corvane::PixelType pixel_type = corvane::PIXEL_RGB;
  std::string input_type_name, pixel_type_name;
  std::vector<float> means, scales;
  bool resize = false;
  std::map<std::string, Landmarks> landmarks;  // by the image's file name, without its folder
  std::string output_folder;                   // empty: none

  int channels() const { return pixel_type == corvane::PIXEL_GRAY ? 1 : 3; }
};

// Throws Failure, which names the file and the setting, for a setting that is missing, unknown,
// given twice, or wrong. Relative paths in the file are taken from the file's own folder.
RunSettings ReadSettings(const RunOptions& options);

// Numbers between commas, all finite; the library's own number getters would take "1x" for 1. name
// says in messages where the text comes from.
std::vector<float> ParseNumbers(const std::string& name, const std::string& text);
Landmarks ParseLandmarks(const std::string& name, const std::string& text);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SETTINGS_H_

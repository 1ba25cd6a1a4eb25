// From a picture file to the bytes that Forward gets.
#ifndef CORVANE_TOOLS_PICTURES_PREPARATION_H_
#define CORVANE_TOOLS_PICTURES_PREPARATION_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/pictures/image_io.h"
#include "tools/settings/settings.h"

namespace corvane_tool {

// What the model wants, as far as its first input tells. 0: it does not.
struct ModelInput {
  int width = 0;
  int height = 0;
};

struct PreparedPicture {
  int file_width = 0;
  int file_height = 0;
  const Landmarks* landmarks = nullptr;  // null: it was not aligned
  double fit_error = 0;
  Image image;  // R, G, B as in the file, at the model's size
};

// Reads, turns, aligns or resizes as the settings say. Throws Failure, which names the picture,
// where it then has another size than the model wants.
PreparedPicture Prepare(const std::string& path, const RunSettings& settings,
                        const ModelInput& input);

// The bytes that Forward is to get: the R, G, B of the file in the order that the pixel type names.
std::vector<uint8_t> InPixelOrder(const Image& image, corvane::PixelType type);

// What the model sees, as a picture: its planes in their order as R, G and B (one plane: gray), and
// a cross on each landmark.
Image Shown(const PreparedPicture& picture, const RunSettings& settings);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_PICTURES_PREPARATION_H_

// Bringing a whole picture to the model's size, by the rules that training pipelines use.
#ifndef CORVANE_TOOLS_PICTURES_RESIZE_H_
#define CORVANE_TOOLS_PICTURES_RESIZE_H_

#include <cstdint>

#include "tools/pictures/image_io.h"

namespace corvane_tool {

// All but kLetterbox stretch: they do not keep the ratio of the sides. Pixels stand for squares, so
// the centre of the first destination pixel lies half a source step inside the picture.
enum class ResizeRule {
  kNone,
  kBilinear,   // between the four nearest pixels; a picture made smaller is sampled, not averaged
  kAntialias,  // bilinear, with a triangle as wide as the step: averages when made smaller
               // (Pillow's)
  kNearest,    // the pixel in which the destination pixel's centre lies (Pillow's)
  kLetterbox,  // keeps the ratio: bilinear into the middle, black bars at two sides
};

// rule is not kNone.
Image Resized(const Image& picture, int width, int height, ResizeRule rule);

// kLetterbox with bars of another gray.
Image Letterboxed(const Image& picture, int width, int height, uint8_t bars);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_PICTURES_RESIZE_H_

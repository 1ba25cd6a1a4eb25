// The picture of the quick start, and the warp in the form that it and the example use.
#ifndef CORVANE_EXAMPLES_PICTURE_H_
#define CORVANE_EXAMPLES_PICTURE_H_

#include <array>
#include <vector>

#include "tools/pictures/image_io.h"

namespace examples {

using corvane_tool::Image;
using Matrix = std::array<float, 6>;  // destination to source, as warpaffine_bilinear_c3 wants it

constexpr int kFaceSize = 112;

Image Warp(const Image& source, const Matrix& matrix, int width, int height);

struct Compared {
  Image face;
  double similarity;
};

// Left the photograph with the landmarks and the frame of the aligned face, right that face, below
// it what it was compared with, each over a bar as long as the similarity.
Image ComparisonPicture(Image photo, const std::vector<float>& landmarks, const Matrix& matrix,
                        const std::vector<Compared>& compared);

}  // namespace examples

#endif  // CORVANE_EXAMPLES_PICTURE_H_

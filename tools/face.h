// Cutting and scaling pictures with the library's warp.
#ifndef CORVANE_TOOLS_FACE_H_
#define CORVANE_TOOLS_FACE_H_

#include <string>

#include "tools/image_io.h"
#include "tools/settings.h"

namespace corvane_tool {

constexpr int kFaceSize = 112;

// The face that the landmarks show, upright, 112 x 112; black where it reaches out of the picture.
// *fit_error is the distance between fitted and wanted landmarks in its pixels. path names the
// picture in messages; landmarks that look as if left and right were swapped, or all lie outside of
// the picture, are warned about on standard error.
Image AlignedFace(const std::string& path, const Image& picture, const Landmarks& landmarks,
                  double* fit_error);

// The whole picture at another size. Each pixel is sampled at one point, without smoothing.
Image Resized(const Image& picture, int width, int height);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_FACE_H_

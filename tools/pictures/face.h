// Cutting faces out of pictures with the library's warp.
#ifndef CORVANE_TOOLS_PICTURES_FACE_H_
#define CORVANE_TOOLS_PICTURES_FACE_H_

#include <string>
#include <vector>

#include "tools/pictures/image_io.h"
#include "tools/settings/numbers.h"

namespace corvane_tool {

// Where the five landmarks stand in an aligned face. All conventions in use derive from the 112 x
// 112 template of corvane/align.h, by a factor and a shift to the right.
struct FaceTemplate {
  std::string name;
  int width;
  int height;
  float factor;
  float shift_x;
  float shift_y;  // 0 in every convention

  Landmarks Points() const;
};

// 112; 96x112 (cut at the sides); 128 and 256 (wider by 16 in 112ths, not scaled to the rim); 224;
// and 96-scaled, 128-scaled, 256-scaled, where the whole template is scaled.
const std::vector<FaceTemplate>& FaceTemplates();
// Throws Failure, which begins with setting and lists the names.
const FaceTemplate* FindFaceTemplate(const std::string& setting, const std::string& name);

// The face that the landmarks show, upright, of the template's size; black where it reaches out of
// the picture. *fit_error is the distance between fitted and wanted landmarks in its pixels. path
// names the picture in messages.
Image AlignedFace(const std::string& path, const Image& picture, const Landmarks& landmarks,
                  const FaceTemplate& face, double* fit_error);

// Where the landmarks of the picture come to lie in the aligned face.
Landmarks FittedLandmarks(const Landmarks& landmarks, const FaceTemplate& face);

// Landmarks with left and right exchanged.
Landmarks Swapped(const Landmarks& landmarks);

// Landmarks that look as if left and right were swapped, or all lie outside of the picture, get a
// line on standard error.
void WarnOfLandmarks(const std::string& path, const Image& picture, const Landmarks& landmarks);

// warpaffine_bilinear_c3 on whole pictures.
Image Warped(const Image& picture, const float* matrix, int width, int height);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_PICTURES_FACE_H_

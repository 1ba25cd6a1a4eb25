// The eight ways to turn and mirror a picture, numbered as EXIF numbers them.
#ifndef CORVANE_TOOLS_PICTURES_ORIENTATION_H_
#define CORVANE_TOOLS_PICTURES_ORIENTATION_H_

#include "tools/pictures/image_io.h"

namespace corvane_tool {

// The picture upright, if it was stored with this orientation: 1 as it is, 2 mirrored left-right,
// 3 turned by 180 degrees, 4 mirrored top-bottom, 5 rows become columns, 6 turned by 90 degrees
// clockwise, 7 as 5 and turned by 180, 8 turned by 90 degrees counterclockwise.
Image Upright(const Image& stored, unsigned orientation);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_PICTURES_ORIENTATION_H_

// Image geometry: an affine warp defined to the bit, and the entry points of a hardware image
// engine that this build does not have.
//
// Images are packed rows of 3-byte pixels without padding: pixel (x, y), column x of row y, is the
// three bytes from 3 * (y * width + x). The functions treat all three bytes alike, whatever colours
// they are.
//
// Nothing here keeps state: calls may run in any number of threads at once and share a source.
#ifndef CORVANE_IMAGE_H_
#define CORVANE_IMAGE_H_

#include <cstdint>

#include "corvane/export.h"

namespace corvane {

// Fills dst by sampling src through an affine matrix, with bilinear interpolation.
//
//        dst (x, y)                           src
//      +--------------+                  +-----------------+
//      |              |     matrix       |       /\        |    source_x = m0 * x + m1 * y + m2
//      |   . (x, y) ----------------------->   /  . \      |    source_y = m3 * x + m4 * y + m5
//      |              |                  |     \    /      |
//      +--------------+                  +-------\/--------+
//
// The matrix {m0 ... m5} maps destination to source; the call does not invert it. To apply a
// transform from source to destination, pass its inverse. Pixel (i, j) lies at the point (i, j) of
// either image: there is no half-pixel offset.
//
// A sample between four pixels blends them with weights of 1/1024 of a pixel, truncating: a uniform
// neighbourhood keeps its value, a sample 1023/1024 of the way from 0 to 255 is 254.
//
// border_type -233, transparent: a destination pixel whose four neighbours are not all in the
//   source keeps its three bytes. So the identity leaves the last column and the last row
//   unchanged: their right or lower neighbours are outside. A source one pixel wide or high writes
//   nothing.
// Any other border_type, constant: a neighbour outside counts as border_color, of which bits 0-7
//   are the first byte of a pixel, 8-15 the second, 16-23 the third. The identity copies
//   everything, also the last column and row (their outside neighbours have weight 0); samples less
//   than a pixel outside blend into the border, samples further outside give the border.
//
// src:    3 * src_width * src_height bytes. Only pixels that are sampled are read, none outside.
//         Not read (and may be null) if either extent is 0 or negative: every sample is then
//         outside.
// dst:    3 * dst_width * dst_height bytes, which must not overlap src: the call would
//         sample pixels that it has already written. Untouched (and may be null) if either extent
//         is 0, or dst_height is negative.
// matrix: six floats, any values (not read, and may be null, if dst is untouched). NaN counts as
//         position 0, infinities and values beyond +-2^21 pixels as the ends of that range; the sum
//         of a row's and a column's position wraps at 2^22 pixels.
//
// Exactness: positions are computed in 32-bit float, for each column as x * (m0 * 1024) and for
// each row as fma(m1, y, m2) * 1024, rounded to 1/1024 pixel (halves away from zero) and added as
// integers; everything after that is integer arithmetic. The bytes are the same on every machine in
// a thread that flushes subnormals to zero, as threads do once this library is loaded (see
// corvane/backend.h).
//
// Sizes: sources up to 10922 x 32767 take the fast path. Larger ones follow the same rule more
// slowly. No position reaches pixels beyond 2^21, so they are never sampled.
//
// Throws std::bad_alloc, before anything is written, when the two tables of dst_width 32-bit
// entries cannot be allocated (also where dst_height leaves nothing to write), and when dst_width
// is negative.
CORVANE_EXPORT void warpaffine_bilinear_c3(const uint8_t* src, int src_width, int src_height,
                                           uint8_t* dst, int dst_width, int dst_height,
                                           const float* matrix, int border_type,
                                           uint32_t border_color);

// The entry points of the HiIVE hardware image engine, for resizing and colour conversion. This
// build has no such engine: both return -1, read nothing and write nothing, whatever the
// arguments.
CORVANE_EXPORT int HiIVE_Resize(const uint8_t* src, int, int, int, int, int, uint8_t* dst, int);
CORVANE_EXPORT int HiIVE_cvtColor(const uint8_t* src, int, int, uint8_t* dst, int);

}  // namespace corvane

#endif  // CORVANE_IMAGE_H_

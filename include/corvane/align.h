// Face alignment: the matrix with which warpaffine_bilinear_c3 (corvane/image.h) cuts a face out of
// a picture, upright and at a fixed size, by its five landmarks.
//
//   const float landmarks[10] = {202, 101, 248, 102, 225, 123, 206, 143, 241, 143};
//   float matrix[6];
//   if (corvane::AlignFace112(landmarks, matrix)) {
//     std::vector<uint8_t> face(3 * 112 * 112);
//     corvane::warpaffine_bilinear_c3(photo, width, height, face.data(), 112, 112, matrix, 0, 0);
//   }
//
// Direction. Points are fitted from the picture (source) to the template (destination), so that the
// error is measured in pixels of the aligned face. The functions return the inverse of that fit,
// because the warp needs the source position of each destination pixel:
//   source x = m[0] * x + m[1] * y + m[2],   source y = m[3] * x + m[4] * y + m[5].
// For a face that is larger in the picture than in the template, m therefore magnifies.
//
// Order of the landmarks. The two eyes, the nose tip, the two corners of the mouth; of each pair
// the one further left IN THE PICTURE comes first (the person's own right one). x runs to the
// right, y runs DOWN, (0, 0) is the centre of the picture's first pixel.
//
// Mirrored faces. The fit is a similarity: one scale, one rotation, one shift. It never mirrors:
// the determinant m[0] * m[4] - m[1] * m[3] is positive. Landmarks of a mirrored picture in the
// order given above are simply another face. No rotation fits a pair in the wrong order: the call
// then succeeds with a large fitting error (some 20 pixels, against 1 to 5 for a good face).
//
// All functions are inline, allocate nothing, keep no state and may run in any number of threads.
// Their results do not depend on -ffast-math beyond rounding.
#ifndef CORVANE_ALIGN_H_
#define CORVANE_ALIGN_H_

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "corvane/export.h"

namespace corvane {

// The usual five-point template of a 112 x 112 face as x, y pairs: left eye, right eye, nose tip,
// left and right corner of the mouth.
CORVANE_INLINE const float* FaceTemplate112() {
  static const float points[10] = {38.2946f, 51.6963f, 73.5318f, 51.5014f, 56.0252f,
                                   71.7366f, 41.5493f, 92.3655f, 70.7299f, 92.2041f};
  return points;
}

// Computes the least-squares similarity that takes count source points to count destination points
// (both as x, y pairs, in the same order), in closed form and double precision, and returns its
// inverse.
//
// matrix:    six floats, destination to source, as warpaffine_bilinear_c3 takes them. Must not
//            overlap the points.
// rms_error: receives, unless null, the root mean square distance in destination pixels between the
//            fitted and the wanted points: 0 for a perfect fit.
//
// Returns false where no such matrix exists: fewer than two points, all source or all destination
// points in one place, a NaN or an infinity among them, points between which no rotation is better
// than any other, or a result beyond the range of float. All six values of matrix are then 0 and
// *rms_error is -1, so a caller that ignores the result gets a face of one colour.
CORVANE_INLINE bool SimilarityToSource(const float* source, const float* destination, int count,
                                       float* matrix, double* rms_error = nullptr) {
  for (int i = 0; i < 6; ++i) matrix[i] = 0;
  if (rms_error != nullptr) *rms_error = -1;
  if (count < 2) return false;
  // Tests the bits, because -ffast-math lets compilers assume that no NaN and no infinity exists.
  // Finite floats keep every double below in range.
  const std::size_t values = 2 * static_cast<std::size_t>(count);
  for (std::size_t i = 0; i < 2 * values; ++i) {
    uint32_t bits = 0;
    std::memcpy(&bits, i < values ? source + i : destination + (i - values), sizeof(bits));
    if ((bits & 0x7F800000) == 0x7F800000) return false;
  }

  // Relative to the first point of each set: equal points then have differences of exactly 0.
  const auto x_of = [](const float* points, int i) {
    return static_cast<double>(points[2 * static_cast<std::size_t>(i)]) -
           static_cast<double>(points[0]);
  };
  const auto y_of = [](const float* points, int i) {
    return static_cast<double>(points[2 * static_cast<std::size_t>(i) + 1]) -
           static_cast<double>(points[1]);
  };
  double px = 0, py = 0, qx = 0, qy = 0;
  for (int i = 1; i < count; ++i) {
    px += x_of(source, i);
    py += y_of(source, i);
    qx += x_of(destination, i);
    qy += y_of(destination, i);
  }
  px /= count;
  py /= count;
  qx /= count;
  qy /= count;

  // As complex numbers, with p and q relative to their means, q = a * p is best for
  // a = sum(conj(p) * q) / sum(|p|^2). Multiplying by a complex number cannot mirror.
  double dot = 0, cross = 0, source_spread = 0, destination_spread = 0;
  for (int i = 0; i < count; ++i) {
    const double sx = x_of(source, i) - px;
    const double sy = y_of(source, i) - py;
    const double dx = x_of(destination, i) - qx;
    const double dy = y_of(destination, i) - qy;
    dot += sx * dx + sy * dy;
    cross += sx * dy - sy * dx;
    source_spread += sx * sx + sy * sy;
    destination_spread += dx * dx + dy * dy;
  }
  // |dot, cross| is at most sqrt(source_spread * destination_spread). Below a billionth of that it
  // is rounding error, and its direction means nothing.
  const double strength = dot * dot + cross * cross;
  if (strength <= 1e-18 * source_spread * destination_spread) return false;

  // The inverse, 1 / a, and the shift that takes the mean of the destination to that of the source.
  const double c = dot * source_spread / strength;
  const double s = -cross * source_spread / strength;
  const double mean_x = static_cast<double>(destination[0]) + qx;
  const double mean_y = static_cast<double>(destination[1]) + qy;
  const double shift_x = static_cast<double>(source[0]) + px - (c * mean_x - s * mean_y);
  const double shift_y = static_cast<double>(source[1]) + py - (s * mean_x + c * mean_y);
  const double inverse[6] = {c, -s, shift_x, s, c, shift_y};
  for (const double value : inverse) {
    if (std::fabs(value) > static_cast<double>(FLT_MAX)) return false;
  }
  for (int i = 0; i < 6; ++i) matrix[i] = static_cast<float>(inverse[i]);
  if (rms_error != nullptr) {
    // Rounding can make the sum of the squared errors of a perfect fit negative.
    const double squares = destination_spread - strength / source_spread;
    *rms_error = squares > 0 ? std::sqrt(squares / count) : 0;
  }
  return true;
}

// SimilarityToSource from five landmarks of a picture to the template above: the matrix that cuts
// the aligned 112 x 112 face out of that picture.
CORVANE_INLINE bool AlignFace112(const float* landmarks, float* matrix,
                                 double* rms_error = nullptr) {
  return SimilarityToSource(landmarks, FaceTemplate112(), 5, matrix, rms_error);
}

}  // namespace corvane

#endif  // CORVANE_ALIGN_H_

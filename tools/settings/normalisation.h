// Means and scales, as the planes of a model's input see them.
#ifndef CORVANE_TOOLS_SETTINGS_NORMALISATION_H_
#define CORVANE_TOOLS_SETTINGS_NORMALISATION_H_

#include <cstdint>
#include <vector>

#include "tools/settings/settings.h"

namespace corvane_tool {

// A byte x of plane c becomes (x - means[c]) * scales[c]. One entry for each plane.
struct Normalisation {
  std::vector<float> means, scales;
};

// Whether the model's planes are the pixel's bytes in reverse.
bool ReversesBytes(corvane::PixelType type);

// The settings' own, in the order of the planes: the settings have it in the order of the bytes.
Normalisation OfSettings(const RunSettings& settings);

// What an ONNX model has in its properties (see corvane pack --mean); of others nothing is known,
// and it is taken for none. The runtime applies it to float32 and uint8 input.
Normalisation OfModel(const std::vector<uint8_t>& model, int channels);

// Both, one after the other.
Normalisation Then(const Normalisation& first, const Normalisation& second);

// What must come before the second so that both together are this. A scale of 0 counts as 1.
Normalisation Before(const Normalisation& both, const Normalisation& second);

// Everything that happens to a byte, with these settings and this model.
Normalisation Effective(const RunSettings& settings, const std::vector<uint8_t>& model);

// From the order of the planes to that of the pixel's bytes and back.
std::vector<float> Reordered(std::vector<float> values, corvane::PixelType type);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_SETTINGS_NORMALISATION_H_

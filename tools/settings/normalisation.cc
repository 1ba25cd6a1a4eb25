#include "tools/settings/normalisation.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>

#include "tools/runtime/onnx_metadata.h"
#include "tools/settings/numbers.h"

namespace corvane_tool {

bool ReversesBytes(corvane::PixelType type) {
  return type == corvane::PIXEL_BGR2RGB || type == corvane::PIXEL_RGB2BGR;
}

std::vector<float> Reordered(std::vector<float> values, corvane::PixelType type) {
  if (ReversesBytes(type)) std::reverse(values.begin(), values.end());
  return values;
}

namespace {

Normalisation Filled(std::vector<float> means, std::vector<float> scales, int channels) {
  const auto count = static_cast<std::size_t>(channels);
  means.resize(count, means.size() == 1 ? means[0] : 0.0F);
  scales.resize(count, scales.size() == 1 ? scales[0] : 1.0F);
  return {means, scales};
}

}  // namespace

Normalisation OfSettings(const RunSettings& settings) {
  return Filled(Reordered(settings.means, settings.pixel_type),
                Reordered(settings.scales, settings.pixel_type), settings.channels());
}

Normalisation OfModel(const std::vector<uint8_t>& model, int channels) {
  const std::map<std::string, std::string> properties = ReadMetadata(model);
  const auto numbers = [&](const char* name) {
    const auto found = properties.find(name);
    return found == properties.end() ? std::vector<float>() : ParseNumbers(name, found->second);
  };
  return Filled(numbers("corvane.input.mean"), numbers("corvane.input.scale"), channels);
}

Normalisation Then(const Normalisation& first, const Normalisation& second) {
  // ((x - m) * s - M) * S = (x - (m + M / s)) * (s * S)
  Normalisation both = first;
  for (std::size_t c = 0; c < both.means.size(); ++c) {
    if (second.means[c] != 0) both.means[c] += second.means[c] / first.scales[c];
    both.scales[c] *= second.scales[c];
  }
  return both;
}

Normalisation Before(const Normalisation& both, const Normalisation& second) {
  Normalisation first = both;
  for (std::size_t c = 0; c < both.means.size(); ++c) {
    if (second.scales[c] != 0) first.scales[c] /= second.scales[c];
    if (second.means[c] != 0) first.means[c] -= second.means[c] / first.scales[c];
  }
  return first;
}

Normalisation Effective(const RunSettings& settings, const std::vector<uint8_t>& model) {
  const Normalisation own = OfSettings(settings);
  const bool is_converted = settings.input_type == corvane::RKNN_INPUT_FLOAT32 ||
                            settings.input_type == corvane::RKNN_INPUT_UINT8;
  return is_converted ? Then(own, OfModel(model, settings.channels())) : own;
}

}  // namespace corvane_tool

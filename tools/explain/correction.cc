#include "tools/explain/correction.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>

namespace corvane_tool {

namespace {

// Rounding on the way from one form to the other is no change.
bool AreSame(const std::vector<float>& a, const std::vector<float>& b) {
  for (std::size_t c = 0; c < a.size(); ++c) {
    if (std::fabs(a[c] - b[c]) > 1e-6F * std::max(std::fabs(a[c]), std::fabs(b[c]))) return false;
  }
  return true;
}

std::string Text(const std::vector<float>& numbers) {
  return NumbersText(numbers.data(), numbers.size());
}

// The [input] lines for the colours and their normalisation, with one pixel type.
std::vector<std::string> ColourLines(const RunSettings& settings, const Normalisation& planes,
                                     corvane::PixelType type, const char* type_name) {
  RunSettings plain = settings;
  plain.pixel_type =
      corvane::PIXEL_RGB;  // the settings' numbers as they stand, with none filled in
  if (settings.channels() == 1) plain.pixel_type = corvane::PIXEL_GRAY;
  const Normalisation now = OfSettings(plain);
  const std::vector<float> means = Reordered(planes.means, type);
  const std::vector<float> scales = Reordered(planes.scales, type);
  std::vector<std::string> lines;
  if (type != settings.pixel_type) lines.push_back(std::string("pixel_type = ") + type_name);
  if (!AreSame(means, now.means)) lines.push_back("means = " + Text(means));
  if (!AreSame(scales, now.scales)) lines.push_back("scales = " + Text(scales));
  return lines;
}

struct NamedType {
  corvane::PixelType type;
  const char* name;
};

// Of the pixel types that give the wanted planes, the one that takes the fewest changes.
std::vector<std::string> ShortestColourLines(const RunSettings& settings,
                                             const Normalisation& planes, bool is_bgr,
                                             bool only_raw_bytes) {
  if (settings.channels() == 1) return ColourLines(settings, planes, corvane::PIXEL_GRAY, "GRAY");
  const NamedType plain =
      is_bgr ? NamedType{corvane::PIXEL_BGR, "BGR"} : NamedType{corvane::PIXEL_RGB, "RGB"};
  const NamedType reversing = is_bgr ? NamedType{corvane::PIXEL_RGB2BGR, "RGB2BGR"}
                                     : NamedType{corvane::PIXEL_BGR2RGB, "BGR2RGB"};
  auto by_plain = ColourLines(settings, planes, plain.type, plain.name);
  if (only_raw_bytes) return by_plain;
  auto by_reversing = ColourLines(settings, planes, reversing.type, reversing.name);
  return by_reversing.size() < by_plain.size() ? by_reversing : by_plain;
}

void AddGeometryLines(const Recipe& base, const Recipe& wanted, std::vector<std::string>* input,
                      std::vector<std::string>* remarks) {
  static const char* const resize[] = {"false", "bilinear", "antialias", "nearest", "letterbox"};
  if (wanted.applies_exif != base.applies_exif) {
    input->push_back(std::string("exif = ") + (wanted.applies_exif ? "true" : "false"));
  }
  if (wanted.orientation != base.orientation)
    remarks->push_back("turn or mirror the picture before");
  if (wanted.is_aligned) {
    if (wanted.face.name.empty()) {
      remarks->push_back("no template does that; corvane::SimilarityToSource takes any");
    } else if (wanted.face.name != base.face.name) {
      input->push_back("template = " + wanted.face.name);
    }
  } else if (wanted.fit != base.fit || base.is_aligned) {
    if (wanted.fit <= Fit::kLetterbox) {
      input->push_back(std::string("resize = ") + resize[static_cast<int>(wanted.fit)]);
    } else {
      remarks->push_back("no resize rule does that; bring the picture to size before");
    }
  }
}

}  // namespace

std::vector<std::string> CorrectedLines(const std::string& picture, const RunSettings& settings,
                                        const Recipe& base, const Recipe& wanted,
                                        const Normalisation& own) {
  std::vector<std::string> input;
  std::vector<std::string> remarks;
  AddGeometryLines(base, wanted, &input, &remarks);

  const bool is_raw = settings.input_type == corvane::RKNN_INPUT_UINT8;
  const bool is_same_normalisation =
      AreSame(wanted.normalisation.means, base.normalisation.means) &&
      AreSame(wanted.normalisation.scales, base.normalisation.scales);
  const bool stays_raw = is_raw && is_same_normalisation;
  if (is_raw && !stays_raw) input.push_back("kind = float32");
  const bool is_converted = is_raw || settings.input_type == corvane::RKNN_INPUT_FLOAT32;
  Normalisation planes = is_converted ? Before(wanted.normalisation, own) : wanted.normalisation;
  if (stays_raw) planes = OfSettings(settings);
  for (std::string& line : ShortestColourLines(settings, planes, wanted.is_bgr, stays_raw)) {
    input.push_back(std::move(line));
  }
  if (wanted.gray != base.gray) remarks.push_back("hand over a picture that is made gray that way");
  if (wanted.is_interleaved) {
    remarks.push_back("export the model with channels first (NCHW), or feed the reference NCHW");
  }

  std::vector<std::string> lines;
  if (!input.empty()) lines.push_back("[input]");
  lines.insert(lines.end(), input.begin(), input.end());
  const std::string name = std::filesystem::path(picture).filename().string();
  if (base.is_aligned && wanted.is_aligned && wanted.landmarks != base.landmarks) {
    lines.push_back("[landmarks]");
    lines.push_back(name + " = " + NumbersText(wanted.landmarks.data(), wanted.landmarks.size()));
  }
  if (base.is_aligned && !wanted.is_aligned)
    remarks.push_back("remove the line of " + name + " from [landmarks]");
  for (const std::string& remark : remarks) lines.push_back("# " + remark);
  return lines;
}

}  // namespace corvane_tool

#include "tools/settings/settings.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>

#include "corvane/ini_file.h"
#include "tools/support/failure.h"

namespace corvane_tool {

namespace {

struct NamedValue {
  const char* name;
  int value;
};
constexpr NamedValue kInputTypes[] = {{"float32", corvane::RKNN_INPUT_FLOAT32},
                                      {"float16", corvane::RKNN_INPUT_FLOAT16},
                                      {"int16", corvane::RKNN_INPUT_INT16},
                                      {"uint8", corvane::RKNN_INPUT_UINT8}};
constexpr NamedValue kPixelTypes[] = {{"RGB", corvane::PIXEL_RGB},
                                      {"BGR", corvane::PIXEL_BGR},
                                      {"GRAY", corvane::PIXEL_GRAY},
                                      {"BGR2RGB", corvane::PIXEL_BGR2RGB},
                                      {"RGB2BGR", corvane::PIXEL_RGB2BGR}};
constexpr NamedValue kResizeRules[] = {{"false", static_cast<int>(ResizeRule::kNone)},
                                       {"0", static_cast<int>(ResizeRule::kNone)},
                                       {"true", static_cast<int>(ResizeRule::kBilinear)},
                                       {"1", static_cast<int>(ResizeRule::kBilinear)},
                                       {"bilinear", static_cast<int>(ResizeRule::kBilinear)},
                                       {"antialias", static_cast<int>(ResizeRule::kAntialias)},
                                       {"nearest", static_cast<int>(ResizeRule::kNearest)},
                                       {"letterbox", static_cast<int>(ResizeRule::kLetterbox)}};
constexpr NamedValue kBooleans[] = {{"true", 1}, {"1", 1}, {"false", 0}, {"0", 0}};

constexpr const char* kLandmarksSection = "landmarks";

// The keys of every section but that of the landmarks, whose keys are file names.
const std::map<std::string, std::set<std::string>>& KnownKeys() {
  static const std::map<std::string, std::set<std::string>> keys = {
      {"", {}},
      {"model", {"file"}},
      {"input", {"kind", "pixel_type", "means", "scales", "resize", "template", "exif"}},
      {"output", {"folder"}},
  };
  return keys;
}

template <std::size_t count>
int ParseName(const std::string& name, const std::string& text, const NamedValue (&table)[count]) {
  std::string known;
  for (const NamedValue& row : table) {
    if (text == row.name) return row.value;
    known += (known.empty() ? "" : ", ") + std::string(row.name);
  }
  throw Failure(name + ": '" + text + "' is none of " + known);
}

// The INI file of a run, checked as a whole when it is loaded.
class ConfigFile {
 public:
  explicit ConfigFile(std::string path) : path_(std::move(path)) {
    if (path_.empty()) return;
    if (std::filesystem::is_directory(path_)) Fail(std::strerror(EISDIR));
    const int code = ini_.Load(path_);
    if (code != corvane::INI_OK) Fail(LoadError(code));
    std::vector<std::string> sections;
    ini_.GetSections(&sections);
    for (const std::string& section : sections) CheckKeys(section);
  }

  // False when the file does not hold the setting. *name is what messages call it.
  bool Get(const std::string& section, const std::string& key, std::string* name,
           std::string* text) const {
    *name = NameOf(section, key);
    return ini_.GetStringValue(section, key, text) == corvane::INI_OK;
  }

  std::string NameOf(const std::string& section, const std::string& key) const {
    return path_ + ": " + (section.empty() ? "" : "[" + section + "] ") + key;
  }

  std::string FromItsFolder(const std::string& path) const {
    return (std::filesystem::path(path_).parent_path() / path).lexically_normal().string();
  }

  std::vector<std::pair<std::string, std::string>> Items(const std::string& section) const {
    std::vector<std::pair<std::string, std::string>> items;
    if (const corvane::IniFileSection* found = ini_.getSection(section)) {
      for (const corvane::IniFileItem& item : found->items)
        items.emplace_back(item.key, item.value);
    }
    return items;
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const { throw Failure(path_ + ": " + what); }

  // Everything before the bad line is in the document: its last entry tells where the line is.
  std::string Place() const {
    std::vector<std::string> sections;
    ini_.GetSections(&sections);
    if (sections.empty()) return "";
    std::string last;
    if (!sections.back().empty()) last.append(" [").append(sections.back()).append("]");
    const auto items = Items(sections.back());
    if (!items.empty()) last.append(" ").append(items.back().first);
    return last.empty() ? " at the top" : ", after" + last;
  }

  std::string LoadError(int code) const {
    switch (code) {
      case corvane::INI_ERR_OPEN_FILE:
        return std::strerror(errno);
      case corvane::INI_ERR_NO_CLOSING_BRACKET:
        return "a section header without ']'" + Place();
      case corvane::INI_ERR_EMPTY_SECTION_NAME:
        return "a section header without a name" + Place();
      case corvane::INI_ERR_DUPLICATE_SECTION:
        return "a section for the second time" + Place();
      case corvane::INI_ERR_NO_EQUALS_SIGN:
        return "a line without '='" + Place();
      default:
        return "cannot be loaded (code " + std::to_string(code) + ")";
    }
  }

  void CheckKeys(const std::string& section) const {
    const bool is_landmarks = section == kLandmarksSection;
    const auto known = KnownKeys().find(section);
    if (!is_landmarks && known == KnownKeys().end()) Fail("[" + section + "]: unknown section");
    std::set<std::string> seen;
    for (const auto& item : Items(section)) {
      if (!is_landmarks && known->second.count(item.first) == 0) {
        throw Failure(NameOf(section, item.first) +
                      (section.empty() ? ": is before the first section" : ": unknown setting"));
      }
      if (!seen.insert(item.first).second) {
        throw Failure(NameOf(section, item.first) + ": given twice");
      }
    }
  }

  std::string path_;
  corvane::IniFile ini_;
};

// One setting, wherever it comes from.
struct Setting {
  std::string name;
  std::string text;
  bool is_given = false;
  bool is_from_file = false;
};

Setting Find(const ConfigFile& config, const std::string& option_name, const std::string& option,
             const std::string& section, const std::string& key) {
  Setting setting;
  if (!option.empty()) {
    setting = {option_name, option, true, false};
  } else {
    setting.is_given = config.Get(section, key, &setting.name, &setting.text);
    setting.is_from_file = setting.is_given;
  }
  return setting;
}

Setting Need(const ConfigFile& config, const std::string& option_name, const std::string& option,
             const std::string& section, const std::string& key) {
  Setting setting = Find(config, option_name, option, section, key);
  if (!setting.is_given || setting.text.empty()) {
    throw Failure("missing setting: [" + section + "] " + key + " in the settings file, or " +
                  option_name);
  }
  return setting;
}

// The library takes means and scales from where the pixel's bytes stand, and for raw bytes not at
// all.
std::vector<float> ParseConstants(const Setting& setting, const RunSettings& run) {
  if (!setting.is_given || setting.text.empty()) return {};
  std::vector<float> values = ParseNumbers(setting.name, setting.text);
  if (run.input_type == corvane::RKNN_INPUT_UINT8) {
    throw Failure(setting.name +
                  ": not applied to uint8 input, which goes to the runtime as it is");
  }
  const auto channels = static_cast<std::size_t>(run.channels());
  if (values.size() == 1) values.resize(channels, values[0]);
  if (values.size() != channels) {
    throw Failure(setting.name + ": " + std::to_string(values.size()) + " values, but " +
                  run.pixel_type_name + " has " + std::to_string(channels) +
                  " channel(s); one value stands for all");
  }
  return values;
}

}  // namespace

const Landmarks* RunSettings::LandmarksOf(const std::string& image) const {
  const auto by_path = landmarks.find(image);
  if (by_path != landmarks.end()) return &by_path->second;
  const auto by_name = landmarks.find(std::filesystem::path(image).filename().string());
  return by_name == landmarks.end() ? nullptr : &by_name->second;
}

RunSettings ReadSettings(const SettingsOptions& options, const std::vector<std::string>& images) {
  const ConfigFile config(options.config);
  RunSettings run;

  const Setting model = Need(config, "--model", options.model, "model", "file");
  run.model = model.is_from_file ? config.FromItsFolder(model.text) : model.text;

  const Setting kind = Need(config, "--kind", options.kind, "input", "kind");
  run.input_type =
      static_cast<corvane::RKNNInputType>(ParseName(kind.name, kind.text, kInputTypes));
  run.input_type_name = kind.text;

  const Setting pixels = Need(config, "--pixel-type", options.pixel_type, "input", "pixel_type");
  run.pixel_type =
      static_cast<corvane::PixelType>(ParseName(pixels.name, pixels.text, kPixelTypes));
  run.pixel_type_name = pixels.text;
  if (run.input_type == corvane::RKNN_INPUT_UINT8 && run.pixel_type != corvane::PIXEL_RGB &&
      run.pixel_type != corvane::PIXEL_BGR) {
    throw Failure(pixels.name + ": uint8 input goes to the runtime as it is: RGB or BGR only");
  }

  run.means = ParseConstants(Find(config, "--means", options.means, "input", "means"), run);
  run.scales = ParseConstants(Find(config, "--scales", options.scales, "input", "scales"), run);

  const Setting resize = Find(config, "--resize", options.resize, "input", "resize");
  if (resize.is_given) {
    run.resize = static_cast<ResizeRule>(ParseName(resize.name, resize.text, kResizeRules));
  }
  const Setting face = Find(config, "--template", options.face, "input", "template");
  run.face = FindFaceTemplate(face.name, face.is_given ? face.text : "112");
  const Setting exif = Find(config, "--exif", options.exif, "input", "exif");
  if (exif.is_given) run.applies_exif = ParseName(exif.name, exif.text, kBooleans) != 0;

  for (const auto& item : config.Items(kLandmarksSection)) {
    run.landmarks[item.first] =
        ParseLandmarks(config.NameOf(kLandmarksSection, item.first), item.second);
  }
  if (!options.landmarks.empty()) {
    if (images.size() != 1) {
      throw Failure("--landmarks: for one image only; several have theirs in the settings file");
    }
    run.landmarks[images[0]] = ParseLandmarks("--landmarks", options.landmarks);
  }

  const Setting output = Find(config, "--output", options.output, "output", "folder");
  run.output_folder =
      output.is_from_file && !output.text.empty() ? config.FromItsFolder(output.text) : output.text;
  return run;
}

}  // namespace corvane_tool

// Any bytes as the settings of a run.
//
// Bytes: which settings come as options and not from the file; for each a length and its text; the
// INI file. What must hold: the settings are refused by a Failure, or they are complete and fit
// together.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/byte_reader.h"
#include "fuzz/scratch_file.h"
#include "tools/settings/settings.h"
#include "tools/support/failure.h"

namespace {

using corvane_fuzz::Require;

void RequireConstants(const std::vector<float>& values, const corvane_tool::RunSettings& run) {
  if (values.empty()) return;
  Require(values.size() == static_cast<std::size_t>(run.channels()), "a constant too many or few");
  Require(run.input_type != corvane::RKNN_INPUT_UINT8, "constants for raw bytes");
  for (const float value : values) Require(std::isfinite(value), "a constant is not finite");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const corvane_fuzz::ScratchFile file;
  corvane_fuzz::ByteReader bytes(data, size);
  const auto given = bytes.Take<uint8_t>();
  corvane_tool::SettingsOptions options;
  std::string* const texts[] = {&options.model,  &options.kind,     &options.pixel_type,
                                &options.means,  &options.scales,   &options.resize,
                                &options.output, &options.landmarks};
  for (std::size_t i = 0; i < 8; ++i) {
    if ((given >> i & 1) == 0) continue;
    const std::size_t length = bytes.Take<uint8_t>();
    *texts[i] = bytes.TakeReader(length).TakeText();
  }
  if (!bytes.IsEmpty()) {
    file.Write(bytes.TakeText());
    options.config = file.path();
  }
  corvane_tool::RunSettings run;
  try {
    run = corvane_tool::ReadSettings(options, {"folder/face.png"});
  } catch (const corvane_tool::Failure& failure) {
    Require(*failure.what() != '\0', "a failure without a message");
    return 0;
  }
  Require(!run.model.empty(), "settings without a model");
  Require(run.face != nullptr, "settings without a template");
  Require(!run.input_type_name.empty() && !run.pixel_type_name.empty(), "a kind without a name");
  RequireConstants(run.means, run);
  RequireConstants(run.scales, run);
  for (const auto& face : run.landmarks) {
    for (const float value : face.second) Require(std::isfinite(value), "a landmark is not finite");
  }
  return 0;
}

#include <cstdio>
#include <cstdlib>
#include <map>

#include "simulator/interface/rknn_names.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/model_file.h"
#include "tools/onnx_metadata.h"
#include "tools/settings.h"

namespace corvane_tool {

namespace {

bool IsTensorType(const std::string& name) {
  rknn_tensor_type type;
  return rknn_sim::ParseTensorType(name, &type);
}

void CheckConstants(const std::string& name, const std::string& text) {
  const std::size_t count = ParseNumbers(name, text).size();
  if (count != 1 && count != 3) {
    throw Failure(
        name + ": " + std::to_string(count) +
        " numbers; wanted one, or one for each channel of a gray (1) or colour (3) input");
  }
}

bool IsOnnx(const PackOptions& options, const std::vector<uint8_t>& model) {
  try {
    WithMetadata(options.model, model, {});
    return true;
  } catch (const Failure&) {
    return false;
  }
}

std::map<std::string, std::string> Properties(const PackOptions& options) {
  std::map<std::string, std::string> properties;
  if (!options.type.empty()) {
    if (!IsTensorType(options.type)) {
      throw Failure("--type: '" + options.type +
                    "' is none of float32, float16, int8, uint8, int16");
    }
    properties["corvane.input.type"] = options.type;
  }
  const bool is_fixed_point = options.type == "int16" || options.type == "int8";
  if (options.type == "int16" && options.fl.empty()) {
    throw Failure("--fl: needed with --type int16: the number of fractional bits");
  }
  if (!options.fl.empty()) {
    char* end = nullptr;
    const long fl = std::strtol(options.fl.c_str(), &end, 10);
    if (!is_fixed_point) throw Failure("--fl: only with --type int16 or int8");
    if (*end != '\0' || fl < -128 || fl > 127) {
      throw Failure("--fl: '" + options.fl + "' is not a whole number from -128 to 127");
    }
    properties["corvane.input.fl"] = std::to_string(fl);
  }
  // Kept as written; parsed only to be refused here and not by the runtime.
  if (!options.mean.empty()) {
    CheckConstants("--mean", options.mean);
    properties["corvane.input.mean"] = options.mean;
  }
  if (!options.scale.empty()) {
    CheckConstants("--scale", options.scale);
    properties["corvane.input.scale"] = options.scale;
  }
  return properties;
}

}  // namespace

int Pack(const PackOptions& options) {
  const std::map<std::string, std::string> properties = Properties(options);
  FileNames({options.model}).AddOutput(options.output);
  std::vector<uint8_t> model = ReadFile(options.model);
  if (options.raw) {
    if (!properties.empty()) {
      throw Failure("--raw: a compiled model carries its own input type, fl, mean and scale");
    }
    if (model.empty()) throw Failure(options.model + ": empty");
    if (IsOnnx(options, model)) {
      std::fprintf(stderr, "corvane: %s: looks like an ONNX model, which a board cannot run\n",
                   options.model.c_str());
    }
  } else {
    model = WithMetadata(options.model, model, properties);
  }
  WriteModelFile(options.output, model);
  std::printf("%s: %zu bytes (a prefix of %zu, then the model)\n", options.output.c_str(),
              kModelPrefixBytes + model.size(), kModelPrefixBytes);
  for (const auto& property : properties) {
    std::printf("  %s = %s\n", property.first.c_str(), property.second.c_str());
  }
  return 0;
}

}  // namespace corvane_tool

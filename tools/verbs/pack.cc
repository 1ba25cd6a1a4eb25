#include <cstdio>
#include <cstdlib>
#include <map>

#include "simulator/interface/rknn_names.h"
#include "tools/commands.h"
#include "tools/runtime/model_file.h"
#include "tools/runtime/onnx_metadata.h"
#include "tools/settings/numbers.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

namespace {

bool IsTensorType(const std::string& name) {
  rknn_tensor_type type;
  return rknn_sim::ParseTensorType(name, &type);
}

// As numbers between commas, whatever way they were written.
std::string Constants(const std::string& name, const std::string& text) {
  const std::vector<float> numbers = ParseNumbers(name, text);
  if (numbers.size() != 1 && numbers.size() != 3) {
    throw Failure(
        name + ": " + std::to_string(numbers.size()) +
        " numbers; wanted one, or one for each channel of a gray (1) or colour (3) input");
  }
  return NumbersText(numbers.data(), numbers.size());
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
  if (!options.mean.empty()) {
    properties["corvane.input.mean"] = Constants("--mean", options.mean);
  }
  if (!options.scale.empty()) {
    properties["corvane.input.scale"] = Constants("--scale", options.scale);
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
    if (IsOnnx(model)) {
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

#include "tools/results/results.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <sstream>

#include "corvane/util.h"
#include "tools/pictures/picture_list.h"
#include "tools/results/json.h"
#include "tools/runtime/rknn_names.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

NotFinite CountNotFinite(const std::vector<float>& values) {
  NotFinite count;
  for (const float value : values) {
    count.nan += std::isnan(value) ? 1 : 0;
    count.infinite += std::isinf(value) ? 1 : 0;
  }
  return count;
}

// ----------------------------------------------------------------------------------------- table

namespace {

void PrintValues(const Tensor& tensor) {
  const NotFinite odd = CountNotFinite(tensor.values);
  double sum = 0;
  float lowest = INFINITY;
  float highest = -INFINITY;
  for (const float value : tensor.values) {
    if (!std::isfinite(value)) continue;
    sum += value;
    lowest = std::fmin(lowest, value);
    highest = std::fmax(highest, value);
  }
  const std::size_t finite = tensor.values.size() - odd.nan - odd.infinite;
  if (finite > 0) {
    std::printf("  %10.4g  %10.4g  %10.4g ", double{lowest}, sum / static_cast<double>(finite),
                double{highest});
  } else {
    std::printf("  %10s  %10s  %10s ", "-", "-", "-");
  }
  const std::size_t shown = std::min<std::size_t>(tensor.values.size(), 4);
  for (std::size_t k = 0; k < shown; ++k) std::printf(" %.4g", double{tensor.values[k]});
  std::printf(tensor.values.size() > shown ? " ..." : "");
  if (odd.nan + odd.infinite > 0) std::printf("  (%zu NaN, %zu infinite)", odd.nan, odd.infinite);
  std::printf("\n");
}

}  // namespace

void PrintTable(const ImageResult& result) {
  std::printf("%s: %d x %d", result.file.c_str(), result.width, result.height);
  if (result.landmarks != nullptr) {
    std::printf(", face aligned to %d x %d (landmarks fit within %.2f pixels)", result.input_width,
                result.input_height, result.fit_error);
  } else if (result.input_width != result.width || result.input_height != result.height) {
    std::printf(", resized to %d x %d", result.input_width, result.input_height);
  }
  std::printf("\n  preparation %.3f ms, run %.3f ms\n", result.prepare_ms, result.run_ms);

  std::size_t name_width = 4;
  std::size_t shape_width = 5;
  for (const Tensor& tensor : result.outputs) {
    name_width = std::max(name_width, tensor.name.size());
    shape_width = std::max(shape_width, ShapeText(tensor.shape).size());
  }
  std::printf("  %6s  %-*s  %-*s  %10s  %10s  %10s  %s\n", "output", static_cast<int>(name_width),
              "name", static_cast<int>(shape_width), "shape", "min", "mean", "max", "first values");
  for (std::size_t i = 0; i < result.outputs.size(); ++i) {
    const Tensor& tensor = result.outputs[i];
    std::printf("  %6zu  %-*s  %-*s", i, static_cast<int>(name_width), tensor.name.c_str(),
                static_cast<int>(shape_width), ShapeText(tensor.shape).c_str());
    if (tensor.values.empty()) {
      std::printf("  (empty)\n");
    } else {
      PrintValues(tensor);
    }
  }
}

// ------------------------------------------------------------------------------------------ JSON

std::string ResultLine(const ImageResult& result) {
  Json json = {{"file", result.file}};
  if (!result.error.empty()) {
    json["error"] = result.error;
    return Text(json);
  }
  json["width"] = result.width;
  json["height"] = result.height;
  json["input_width"] = result.input_width;
  json["input_height"] = result.input_height;
  if (result.landmarks != nullptr) {
    json["landmarks"] = *result.landmarks;
    json["fit_error"] = result.fit_error;
  }
  json["prepare_ms"] = result.prepare_ms;
  json["run_ms"] = result.run_ms;
  json["outputs"] = Json::array();
  for (const Tensor& tensor : result.outputs) {
    const NotFinite odd = CountNotFinite(tensor.values);
    json["outputs"].push_back({{"name", tensor.name},
                               {"shape", tensor.shape},
                               {"nan", odd.nan},
                               {"infinite", odd.infinite},
                               {"values", tensor.values}});
  }
  return Text(json);
}

void WriteResults(const std::string& path, const RunSettings& settings,
                  const std::vector<std::string>& lines, const RunSummary& summary) {
  const Json head = {{"library", corvane::version()},    {"model", settings.model},
                     {"kind", settings.input_type_name}, {"pixel_type", settings.pixel_type_name},
                     {"means", settings.means},          {"scales", settings.scales},
                     {"summary", SummaryJson(summary)}};
  // One picture a line, between a head and an end that are put together as text.
  std::string text = Text(head);
  text.back() = ',';
  text += "\n\"images\":[";
  const char* separator = "\n";
  for (const std::string& line : lines) {
    text += separator + line;
    separator = ",\n";
  }
  text += "\n]}\n";
  WriteFile(path, text.data(), text.size());
}

namespace {

Tensor ReadOutput(const Json& output) {
  Tensor tensor;
  tensor.name = output.at("name").get<std::string>();
  tensor.shape = output.at("shape").get<std::vector<uint32_t>>();
  for (const Json& value : output.at("values")) {
    tensor.values.push_back(value.is_null() ? NAN : value.get<float>());
  }
  std::size_t elements = 1;
  for (const uint32_t extent : tensor.shape) elements *= extent;
  if (elements != tensor.values.size()) {
    throw Failure("output " + tensor.name + ": " + std::to_string(tensor.values.size()) +
                  " values do not fill its shape " + ShapeText(tensor.shape));
  }
  return tensor;
}

std::vector<Json> ParseImages(const std::string& path, const std::string& text) {
  std::vector<Json> images;
  if (path.size() > 6 && path.compare(path.size() - 6, 6, ".jsonl") == 0) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      // A run that was killed may have left half a line at the end.
      if (lines.eof()) break;
      images.push_back(Json::parse(line));
    }
  } else {
    const Json whole = Json::parse(text);
    for (const Json& image : whole.at("images")) images.push_back(image);
  }
  return images;
}

}  // namespace

std::map<std::string, Tensor> ReadResults(const std::string& path) {
  const std::vector<uint8_t> bytes = ReadFile(path);
  std::map<std::string, Tensor> tensors;
  try {
    const std::vector<Json> images = ParseImages(path, std::string(bytes.begin(), bytes.end()));
    std::vector<std::string> files;
    files.reserve(images.size());
    for (const Json& image : images) files.push_back(image.at("file").get<std::string>());
    const std::vector<std::string> names = ResultNames(files);
    for (std::size_t i = 0; i < images.size(); ++i) {
      if (images[i].contains("error")) continue;
      const Json& outputs = images[i].at("outputs");
      for (std::size_t k = 0; k < outputs.size(); ++k) {
        tensors.emplace(names[i] + "." + std::to_string(k), ReadOutput(outputs[k]));
      }
    }
  } catch (const Json::exception& error) {
    throw Failure(path + ": no results of corvane run: " + error.what());
  } catch (const Failure& failure) {
    throw Failure(path + ": " + failure.what());
  }
  return tensors;
}

}  // namespace corvane_tool

#include "tools/results.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "corvane/util.h"
#include "tools/files.h"
#include "tools/rknn_names.h"

namespace corvane_tool {

// ----------------------------------------------------------------------------------------- table

void PrintTable(const ImageResult& result) {
  std::printf("%s: %d x %d", result.file.c_str(), result.width, result.height);
  if (result.is_aligned) {
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
    double sum = 0;
    float lowest = INFINITY;
    float highest = -INFINITY;
    for (float value : tensor.values) {
      sum += value;
      lowest = std::fmin(lowest, value);
      highest = std::fmax(highest, value);
    }
    std::printf("  %6zu  %-*s  %-*s", i, static_cast<int>(name_width), tensor.name.c_str(),
                static_cast<int>(shape_width), ShapeText(tensor.shape).c_str());
    if (tensor.values.empty()) {
      std::printf("  (empty)\n");
      continue;
    }
    std::printf("  %10.4g  %10.4g  %10.4g ", double{lowest},
                sum / static_cast<double>(tensor.values.size()), double{highest});
    const std::size_t shown = std::min<std::size_t>(tensor.values.size(), 4);
    for (std::size_t k = 0; k < shown; ++k) std::printf(" %.4g", double{tensor.values[k]});
    std::printf(tensor.values.size() > shown ? " ...\n" : "\n");
  }
}

// ------------------------------------------------------------------------------------------ JSON

namespace {

// How many bytes the UTF-8 character at text[i] has; 0: none is there.
std::size_t Utf8Length(const std::string& text, std::size_t i) {
  const auto byte = [&](std::size_t k) {
    return k < text.size() ? static_cast<unsigned char>(text[k]) : 0u;
  };
  const unsigned lead = byte(i);
  const std::size_t length = lead < 0x80                   ? 1
                             : lead >= 0xC2 && lead < 0xE0 ? 2
                             : lead >= 0xE0 && lead < 0xF0 ? 3
                             : lead >= 0xF0 && lead < 0xF5 ? 4
                                                           : 0;
  for (std::size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0u) != 0x80) return 0;
  }
  const unsigned second = byte(i + 1);
  const bool is_bad = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                      (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
  return is_bad ? 0 : length;
}

std::string Quoted(const std::string& text) {
  std::string json = "\"";
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = Utf8Length(text, i);
    const auto c = static_cast<unsigned char>(text[i]);
    if (length == 0) {
      json += "\\ufffd";  // a byte that is no character: file names may hold any
    } else if (c == '"' || c == '\\') {
      json += '\\';
      json += text[i];
    } else if (c < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned>(c));
      json += escaped;
    } else {
      json.append(text, i, length);
    }
    i += std::max<std::size_t>(length, 1);
  }
  return json + '"';
}

std::string Number(double value, int digits) {
  if (!std::isfinite(value)) return "null";
  char text[40];
  std::snprintf(text, sizeof(text), "%.*g", digits, value);
  return text;
}
std::string Number(float value) { return Number(double{value}, 9); }
std::string Number(uint32_t value) { return std::to_string(value); }

template <typename Values>
std::string List(const Values& values) {
  std::string json = "[";
  for (const auto& value : values) {
    if (json.size() > 1) json += ", ";
    json += Number(value);
  }
  return json + ']';
}

std::string ResultJson(const ImageResult& result, const RunSettings& settings) {
  std::string json = "    {\"file\": " + Quoted(result.file);
  if (!result.error.empty()) return json + ", \"error\": " + Quoted(result.error) + "}";
  json += ", \"width\": " + std::to_string(result.width) +
          ", \"height\": " + std::to_string(result.height) +
          ", \"input_width\": " + std::to_string(result.input_width) +
          ", \"input_height\": " + std::to_string(result.input_height);
  if (result.is_aligned) {
    const std::string name = result.file.substr(result.file.find_last_of('/') + 1);
    json += ",\n     \"landmarks\": " + List(settings.landmarks.at(name)) +
            ", \"fit_error\": " + Number(result.fit_error, 6);
  }
  json += ",\n     \"prepare_ms\": " + Number(result.prepare_ms, 9) +
          ", \"run_ms\": " + Number(result.run_ms, 9) + ",\n     \"outputs\": [";
  const char* separator = "\n";
  for (const Tensor& tensor : result.outputs) {
    json += separator;
    json += "       {\"name\": " + Quoted(tensor.name) + ", \"shape\": " + List(tensor.shape) +
            ",\n        \"values\": " + List(tensor.values) + "}";
    separator = ",\n";
  }
  return json + "]}";
}

}  // namespace

void WriteJson(const std::string& path, const RunSettings& settings,
               const std::vector<ImageResult>& results) {
  std::string json = "{\n  \"library\": " + Quoted(corvane::version()) +
                     ",\n  \"model\": " + Quoted(settings.model) +
                     ",\n  \"kind\": " + Quoted(settings.input_type_name) +
                     ",\n  \"pixel_type\": " + Quoted(settings.pixel_type_name) +
                     ",\n  \"means\": " + List(settings.means) +
                     ",\n  \"scales\": " + List(settings.scales) + ",\n  \"images\": [";
  const char* separator = "\n";
  for (const ImageResult& result : results) {
    json += separator + ResultJson(result, settings);
    separator = ",\n";
  }
  json += "\n  ]\n}\n";
  WriteFile(path, json.data(), json.size());
}

// ------------------------------------------------------------------------------------------- npy

void WriteNpy(const std::string& path, const Tensor& tensor) {
  std::string shape;
  for (uint32_t extent : tensor.shape) shape += std::to_string(extent) + ",";
  std::string header = "{'descr': '<f4', 'fortran_order': False, 'shape': (" + shape + "), }";
  // Magic, version, the header's length; all of it, with the line feed, a multiple of 64 bytes.
  constexpr std::size_t kFixedBytes = 10;
  header.append(63 - (kFixedBytes + header.size()) % 64, ' ');
  header += '\n';
  std::string bytes("\x93NUMPY\x01\x00", 8);
  bytes += static_cast<char>(header.size() & 0xFF);
  bytes += static_cast<char>(header.size() >> 8);
  bytes += header;
  // Every machine this runs on is little-endian.
  const std::size_t begin = bytes.size();
  bytes.resize(begin + tensor.values.size() * sizeof(float));
  if (!tensor.values.empty()) {
    std::memcpy(&bytes[begin], tensor.values.data(), tensor.values.size() * sizeof(float));
  }
  WriteFile(path, bytes.data(), bytes.size());
}

}  // namespace corvane_tool

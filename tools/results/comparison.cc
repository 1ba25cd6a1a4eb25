#include "tools/results/comparison.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "tools/results/npy.h"
#include "tools/results/results.h"
#include "tools/runtime/rknn_names.h"
#include "tools/support/failure.h"

namespace corvane_tool {

namespace {

namespace fs = std::filesystem;

std::vector<uint32_t> WithoutOnes(std::vector<uint32_t> shape) {
  shape.erase(std::remove(shape.begin(), shape.end(), 1u), shape.end());
  return shape;
}

std::vector<uint32_t> IndexOf(std::size_t element, const std::vector<uint32_t>& shape) {
  std::vector<uint32_t> index(shape.size());
  for (std::size_t d = shape.size(); d-- > 0; element /= shape[d]) {
    index[d] = static_cast<uint32_t>(element % shape[d]);
  }
  return index;
}

std::string IndexText(const std::vector<uint32_t>& index) {
  std::string text;
  for (const uint32_t i : index) text += (text.empty() ? "" : ",") + std::to_string(i);
  return "[" + text + "]";
}

double ReadOne(const char* name, const std::string& text, double standard) {
  if (text.empty()) return standard;
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (*end != '\0' || !(number >= 0) || std::isinf(number)) {
    throw Failure(std::string(name) + ": '" + text + "' is no number of at least 0");
  }
  return number;
}

}  // namespace

Tolerance ReadTolerance(const ToleranceOptions& options) {
  Tolerance tolerance;
  tolerance.rtol = ReadOne("--rtol", options.rtol, tolerance.rtol);
  tolerance.atol = ReadOne("--atol", options.atol, tolerance.atol);
  return tolerance;
}

Difference Compare(const std::string& name, const Tensor& reference, const Tensor& test,
                   const Tolerance& tolerance) {
  Difference result;
  result.name = name;
  result.shape = reference.shape;
  if (WithoutOnes(reference.shape) != WithoutOnes(test.shape)) {
    result.problem = "shape " + ShapeText(reference.shape) + " against " + ShapeText(test.shape);
    return result;
  }
  result.elements = reference.values.size();
  std::size_t finite = 0;
  std::size_t largest_at = 0;
  double squares = 0;
  double dot = 0;
  double reference_squares = 0;
  double test_squares = 0;
  for (std::size_t i = 0; i < result.elements; ++i) {
    const double r = reference.values[i];
    const double t = test.values[i];
    result.reference_nan += std::isnan(r) ? 1 : 0;
    result.reference_infinite += std::isinf(r) ? 1 : 0;
    result.test_nan += std::isnan(t) ? 1 : 0;
    result.test_infinite += std::isinf(t) ? 1 : 0;
    if (!std::isfinite(r) || !std::isfinite(t)) {
      result.beyond += (r == t || (std::isnan(r) && std::isnan(t))) ? 0 : 1;
      continue;
    }
    const double distance = std::fabs(t - r);
    result.beyond += distance <= tolerance.atol + tolerance.rtol * std::fabs(r) ? 0 : 1;
    if (finite == 0 || distance > result.largest) {
      result.largest = distance;
      largest_at = i;
    }
    ++finite;
    squares += distance * distance;
    dot += r * t;
    reference_squares += r * r;
    test_squares += t * t;
  }
  if (finite == 0) return result;
  result.largest_index = IndexOf(largest_at, reference.shape);
  result.largest_reference = reference.values[largest_at];
  result.largest_test = test.values[largest_at];
  result.rms = std::sqrt(squares / static_cast<double>(finite));
  const double norms = std::sqrt(reference_squares) * std::sqrt(test_squares);
  result.cosine = norms > 0 ? std::min(1.0, std::max(-1.0, dot / norms))
                            : (reference_squares == test_squares ? 1 : 0);
  return result;
}

namespace {

TensorSet ReadFolder(const std::string& folder) {
  TensorSet tensors;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file() || entry.path().extension() != ".npy") continue;
    const fs::path name = entry.path().lexically_relative(folder).replace_extension();
    tensors.emplace(name.string(), ReadNpy(entry.path().string()));
  }
  if (!tensors.empty()) return tensors;
  const std::string results = (fs::path(folder) / "results.json").string();
  if (!fs::exists(results)) throw Failure(folder + ": holds no .npy file and no results.json");
  return ReadResults(results);
}

}  // namespace

TensorSet ReadTensorSet(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) {
    try {
      return ReadFolder(path);
    } catch (const fs::filesystem_error& problem) {
      throw Failure(path + ": " + problem.code().message());
    }
  }
  const std::string end = fs::path(path).extension().string();
  if (end == ".json" || end == ".jsonl") return ReadResults(path);
  TensorSet single;
  single.emplace("", ReadNpy(path));
  return single;
}

std::vector<Difference> CompareSets(const TensorSet& reference, const TensorSet& test,
                                    const Tolerance& tolerance) {
  std::vector<Difference> rows;
  if (reference.size() == 1 && test.size() == 1) {
    const std::string& name = reference.begin()->first;
    rows.push_back(Compare(name.empty() ? test.begin()->first : name, reference.begin()->second,
                           test.begin()->second, tolerance));
    return rows;
  }
  const auto missing = [&](const std::string& name, const char* where) {
    rows.emplace_back();
    rows.back().name = name;
    rows.back().problem = std::string("missing in ") + where;
  };
  for (const auto& wanted : reference) {
    const auto found = test.find(wanted.first);
    if (found == test.end()) {
      missing(wanted.first, "the test");
    } else {
      rows.push_back(Compare(wanted.first, wanted.second, found->second, tolerance));
    }
  }
  for (const auto& given : test) {
    if (reference.count(given.first) == 0) missing(given.first, "the reference");
  }
  return rows;
}

bool PrintDifferences(const std::vector<Difference>& differences, const Tolerance& tolerance) {
  std::size_t name_width = 6;
  std::size_t bad = 0;
  for (const Difference& row : differences) {
    name_width = std::max(name_width, row.name.size());
    bad += row.is_within() ? 0 : 1;
  }
  const auto width = static_cast<int>(name_width);
  std::printf("%-*s  %9s  %10s  %10s  %9s  %9s  %s\n", width, "output", "elements", "largest",
              "rms", "cosine", "beyond", "largest at: reference, test");
  for (const Difference& row : differences) {
    std::printf("%-*s  ", width, row.name.c_str());
    if (!row.problem.empty()) {
      std::printf("%s\n", row.problem.c_str());
      continue;
    }
    const double share = row.elements == 0 ? 0
                                           : 100 * static_cast<double>(row.beyond) /
                                                 static_cast<double>(row.elements);
    std::printf("%9zu  %10.4g  %10.4g  %9.6f  %7.4g %%  %s: %.6g, %.6g\n", row.elements,
                row.largest, row.rms, row.cosine, share, IndexText(row.largest_index).c_str(),
                double{row.largest_reference}, double{row.largest_test});
    const std::size_t odd =
        row.reference_nan + row.reference_infinite + row.test_nan + row.test_infinite;
    if (odd > 0) {
      std::printf("%-*s  reference: %zu NaN, %zu infinite; test: %zu NaN, %zu infinite\n", width,
                  "", row.reference_nan, row.reference_infinite, row.test_nan, row.test_infinite);
    }
  }
  if (bad == 0) {
    std::printf("all of %zu within rtol %g, atol %g\n", differences.size(), tolerance.rtol,
                tolerance.atol);
  } else {
    std::printf("%zu of %zu beyond rtol %g, atol %g\n", bad, differences.size(), tolerance.rtol,
                tolerance.atol);
  }
  return bad == 0;
}

Json DifferencesJson(const std::vector<Difference>& differences, const Tolerance& tolerance) {
  Json rows = Json::array();
  bool is_within = true;
  for (const Difference& row : differences) {
    is_within = is_within && row.is_within();
    if (!row.problem.empty()) {
      rows.push_back({{"output", row.name}, {"within", false}, {"problem", row.problem}});
      continue;
    }
    rows.push_back({{"output", row.name},
                    {"within", row.is_within()},
                    {"shape", row.shape},
                    {"elements", row.elements},
                    {"largest", row.largest},
                    {"index", row.largest_index},
                    {"reference", row.largest_reference},
                    {"test", row.largest_test},
                    {"rms", row.rms},
                    {"cosine", row.cosine},
                    {"beyond", row.beyond},
                    {"reference_nan", row.reference_nan},
                    {"reference_infinite", row.reference_infinite},
                    {"test_nan", row.test_nan},
                    {"test_infinite", row.test_infinite}});
  }
  return {
      {"within", is_within}, {"rtol", tolerance.rtol}, {"atol", tolerance.atol}, {"outputs", rows}};
}

}  // namespace corvane_tool

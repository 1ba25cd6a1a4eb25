// corvane kinds: every kind of input against float32, on the user's own pictures.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/pictures/picture_list.h"
#include "tools/pictures/preparation.h"
#include "tools/results/comparison.h"
#include "tools/runtime/model_file.h"
#include "tools/runtime/model_runner.h"
#include "tools/runtime/onnx_metadata.h"
#include "tools/settings/normalisation.h"
#include "tools/settings/numbers.h"
#include "tools/support/failure.h"
#include "tools/support/progress.h"
#include "tools/support/quiet_stdout.h"
#include "tools/support/temporary_file.h"

namespace corvane_tool {

namespace {

struct Kind {
  std::string name;
  corvane::RKNNInputType input_type;
  std::map<std::string, std::string> properties;  // of the model
};

// The numbers of fractional bits worth trying: from the largest at which no value wraps down to
// that at which the largest value has four bits left.
std::vector<int> FractionBits(const Normalisation& normalisation) {
  double largest = 0;
  for (std::size_t c = 0; c < normalisation.means.size(); ++c) {
    for (const double byte : {0.0, 255.0}) {
      largest = std::max(largest, std::fabs((byte - double{normalisation.means[c]}) *
                                            double{normalisation.scales[c]}));
    }
  }
  std::vector<int> all;
  if (!(largest > 0) || std::isinf(largest)) return all;
  const int top = static_cast<int>(std::floor(std::log2(32767 / largest)));
  const int bottom = static_cast<int>(std::ceil(std::log2(16 / largest)));
  for (int fl = std::min(top, 127); fl >= std::max(bottom, -128); --fl) all.push_back(fl);
  return all;
}

std::vector<Kind> KindsOf(const Normalisation& normalisation, bool has_bytes) {
  std::vector<Kind> kinds = {
      {"float16", corvane::RKNN_INPUT_FLOAT16, {{"corvane.input.type", "float16"}}}};
  for (const int fl : FractionBits(normalisation)) {
    kinds.push_back({"int16, fl " + std::to_string(fl),
                     corvane::RKNN_INPUT_INT16,
                     {{"corvane.input.type", "int16"}, {"corvane.input.fl", std::to_string(fl)}}});
  }
  if (has_bytes) {
    const auto text = [](const std::vector<float>& numbers) {
      return NumbersText(numbers.data(), numbers.size());
    };
    kinds.push_back({"uint8",
                     corvane::RKNN_INPUT_UINT8,
                     {{"corvane.input.mean", text(normalisation.means)},
                      {"corvane.input.scale", text(normalisation.scales)}}});
  }
  return kinds;
}

// Outputs of all pictures, in their order.
using Answers = std::vector<std::vector<Tensor>>;

struct Cost {
  double mean_cosine = 0;
  double worst_cosine = 2;
  std::size_t worst_picture = 0;
  double largest = 0;
  std::size_t neighbours_changed = 0;
};

// Which other picture's descriptor is nearest by cosine.
std::vector<std::size_t> Neighbours(const Answers& answers) {
  std::vector<std::size_t> nearest(answers.size(), 0);
  for (std::size_t i = 0; i < answers.size(); ++i) {
    double best = -2;
    for (std::size_t k = 0; k < answers.size(); ++k) {
      if (k == i) continue;
      const double cosine = Compare("", answers[i][0], answers[k][0], Tolerance()).cosine;
      if (cosine > best) nearest[i] = k;
      best = std::max(best, cosine);
    }
  }
  return nearest;
}

Cost Measure(const Answers& reference, const Answers& test, bool is_descriptor) {
  Cost cost;
  for (std::size_t i = 0; i < reference.size(); ++i) {
    double cosine = 1;
    for (std::size_t k = 0; k < reference[i].size(); ++k) {
      const Difference row = Compare("", reference[i][k], test[i][k], Tolerance());
      cosine = std::min(cosine, row.cosine);
      cost.largest = std::max(cost.largest, row.largest);
    }
    cost.mean_cosine += cosine / static_cast<double>(reference.size());
    if (cosine < cost.worst_cosine) cost.worst_picture = i;
    cost.worst_cosine = std::min(cost.worst_cosine, cosine);
  }
  if (!is_descriptor) return cost;
  const std::vector<std::size_t> wanted = Neighbours(reference);
  const std::vector<std::size_t> got = Neighbours(test);
  for (std::size_t i = 0; i < wanted.size(); ++i)
    cost.neighbours_changed += wanted[i] != got[i] ? 1 : 0;
  return cost;
}

class Study {
 public:
  Study(const KindsOptions& options)
      : pictures_(ExpandPictures(options.images)),
        settings_(ReadSettings(options.settings, pictures_)),
        model_(ReadModelFile(settings_.model).model),
        is_onnx_(IsOnnx(model_)),
        normalisation_(Effective(settings_, model_)) {
    if (is_onnx_) {
      // From here on the settings have the whole normalisation and the model none.
      settings_.means = Reordered(normalisation_.means, settings_.pixel_type);
      settings_.scales = Reordered(normalisation_.scales, settings_.pixel_type);
    }
  }

  int Print() {
    const Kind base = {"float32", corvane::RKNN_INPUT_FLOAT32, {}};
    const std::vector<Kind> kinds =
        KindsOf(normalisation_, settings_.channels() == 3 && (is_onnx_ || settings_.means.empty()));
    progress_.emplace((kinds.size() + 1) * pictures_.size());
    const Answers reference = RunAll(base);
    const bool is_descriptor = reference.size() >= 3 && reference[0][0].values.size() >= 16;
    std::string table;
    const Kind* best = nullptr;
    Cost best_cost;
    for (const Kind& kind : kinds) {
      Answers answers;
      try {
        answers = RunAll(kind);
      } catch (const Failure& failure) {
        table += kind.name + ": not possible: " + failure.what() + "\n";
        continue;
      }
      const Cost cost = Measure(reference, answers, is_descriptor);
      table += Row(kind, cost, is_descriptor);
      if (best == nullptr || cost.worst_cosine > best_cost.worst_cosine) {
        best = &kind;
        best_cost = cost;
      }
    }
    progress_->Clear();
    std::printf("%s on %zu pictures, against float32\n", settings_.model.c_str(), pictures_.size());
    std::printf("%-14s %11s %11s %11s %10s  %s\n", "kind", "mean cosine", "worst", "largest",
                "neighbours", "worst picture");
    std::fputs(table.c_str(), stdout);
    Recommend(best, best_cost, is_descriptor);
    return 0;
  }

 private:
  std::string Row(const Kind& kind, const Cost& cost, bool is_descriptor) const {
    const std::string changed =
        is_descriptor ? std::to_string(cost.neighbours_changed) + " changed" : "-";
    char row[160];
    std::snprintf(row, sizeof(row), "%-14s %11.7f %11.7f %11.4g %10s  ", kind.name.c_str(),
                  cost.mean_cosine, cost.worst_cosine, cost.largest, changed.c_str());
    return row + pictures_[cost.worst_picture] + "\n";
  }

  void Recommend(const Kind* best, const Cost& cost, bool is_descriptor) const {
    constexpr double kGood = 0.999;
    if (best == nullptr || cost.worst_cosine < kGood ||
        (is_descriptor && cost.neighbours_changed > 0)) {
      std::printf("recommended: float32; no other kind keeps a cosine of %g on every picture%s\n",
                  kGood, is_descriptor ? " and all nearest neighbours" : "");
      return;
    }
    std::printf(
        "recommended besides float32: %s, the nearest to it: worst cosine %.7f, largest "
        "difference %.4g\n",
        best->name.c_str(), cost.worst_cosine, cost.largest);
  }

  Answers RunAll(const Kind& kind) {
    RunSettings settings = settings_;
    settings.input_type = kind.input_type;
    std::optional<TemporaryFile> file;
    if (is_onnx_) {
      std::map<std::string, std::string> properties = {{"corvane.input.type", "float32"},
                                                       {"corvane.input.fl", ""},
                                                       {"corvane.input.mean", ""},
                                                       {"corvane.input.scale", ""}};
      for (const auto& property : kind.properties) properties[property.first] = property.second;
      file.emplace();
      WriteModelFile(file->path(), WithMetadata(settings_.model, model_, properties));
      settings.model = file->path();
    }
    if (kind.input_type == corvane::RKNN_INPUT_UINT8) {
      settings.means.clear();
      settings.scales.clear();
      // Raw bytes have no reversal: the pixel type that hands over the planes' own order.
      if (settings.pixel_type == corvane::PIXEL_BGR2RGB) settings.pixel_type = corvane::PIXEL_RGB;
      if (settings.pixel_type == corvane::PIXEL_RGB2BGR) settings.pixel_type = corvane::PIXEL_BGR;
    }
    std::optional<QuietStdout> quiet(std::in_place);
    ModelRunner model(settings);
    quiet.reset();
    Answers answers;
    for (const std::string& picture : pictures_) {
      progress_->Show(done_++);
      answers.push_back(
          model.Run(picture, Prepare(picture, settings, model.input()).image).outputs);
    }
    return answers;
  }

  std::vector<std::string> pictures_;
  RunSettings settings_;
  std::vector<uint8_t> model_;
  bool is_onnx_;
  Normalisation normalisation_;
  std::optional<Progress> progress_;
  std::size_t done_ = 0;
};

}  // namespace

int Kinds(const KindsOptions& options) { return Study(options).Print(); }

}  // namespace corvane_tool

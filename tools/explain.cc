// corvane explain: which mistake in the settings makes the difference to a reference.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "corvane/util.h"
#include "tools/commands.h"
#include "tools/correction.h"
#include "tools/failure.h"
#include "tools/hypotheses.h"
#include "tools/judges.h"
#include "tools/linear_fit.h"
#include "tools/model_file.h"
#include "tools/model_runner.h"
#include "tools/npy.h"
#include "tools/quiet_stdout.h"
#include "tools/recipe.h"
#include "tools/rknn_names.h"

namespace corvane_tool {

namespace {

// A candidate reproduces the reference if its difference is at most a share of what candidates'
// differences usually are, and of the reference itself. A network may answer to a wrong input
// almost as to the right one; then only small differences tell.
constexpr double kShareOfUsual = 0.02;
constexpr double kShareOfReference = 0.005;
// How many times nearer another candidate must be before it counts as the better one.
constexpr double kClearly = 5;
// Single mistakes are all tried; pairs of them until then. The rest of ten seconds is for loading.
constexpr double kMilliseconds = 7500;
constexpr std::size_t kBatch = 16;
// A single mistake that leaves more than this many times the rounding is looked at again, in the
// likeliest pairs.
constexpr double kRounding = 30;
constexpr std::size_t kFewPairs = 64;

Recipe RecipeOf(const RunSettings& settings, const std::vector<uint8_t>& model,
                const std::string& picture) {
  Recipe recipe;
  recipe.applies_exif = settings.applies_exif;
  const Landmarks* const landmarks = settings.LandmarksOf(picture);
  recipe.is_aligned = landmarks != nullptr;
  if (recipe.is_aligned) recipe.landmarks = *landmarks;
  recipe.face = *settings.face;
  recipe.fit = static_cast<Fit>(settings.resize);  // the same rules in the same order
  recipe.is_bgr =
      settings.pixel_type == corvane::PIXEL_BGR || settings.pixel_type == corvane::PIXEL_RGB2BGR;
  if (settings.channels() == 1) recipe.gray = Gray::kLuma;
  recipe.normalisation = Effective(settings, model);
  return recipe;
}

class Explanation {
 public:
  explicit Explanation(const ExplainOptions& options)
      : picture_(options.image),
        by_input_(!options.expect_input.empty()),
        settings_(ReadSettings(options.settings, {picture_})),
        model_(ReadModelFile(settings_.model).model) {
    if (options.expect.empty() == options.expect_input.empty()) {
      throw Failure(
          "wanted either --expect, of the model's output, or --expect-input, of its input");
    }
    ReadReference(by_input_ ? options.expect_input : options.expect);
  }

  int Run() {
    start_ = corvane::get_current_time();
    AddBase();
    AddSingles();
    JudgeFrom(0, HUGE_VAL);
    const double usual = UsualDifference();
    limit_ = std::max(judges_->noise(), std::min(kShareOfUsual * usual,
                                                 kShareOfReference * judges_->reference_rms()));
    if (usual <= judges_->noise()) {
      std::printf(
          "the model answers to every input alike: no mistake can be told by this reference\n");
      return kDiffers;
    }
    if (SettingsAreRight() && !wrong_kind_.empty()) {
      std::printf(
          "found: kind %s does not fit the model's input; with float32 the settings reproduce "
          "the reference\n",
          wrong_kind_.c_str());
      PrintLines(base_);
      return kDiffers;
    }
    if (SettingsAreRight()) {
      std::printf(
          "nothing is wrong: the settings reproduce the reference (rms difference %.3g; "
          "mistakes make %.3g)\n",
          candidates_[0].rms, usual);
      return 0;
    }
    const double single = Nearest().rms;
    if (single > limit_) {
      TryPairs(limit_, SIZE_MAX);
    } else if (single > kRounding * judges_->noise()) {
      // Near, but perhaps half of a pair that is nearer.
      TryPairs(single / kClearly, kFewPairs);
    }
    Report(usual);
    return kDiffers;
  }

 private:
  void ReadReference(const std::string& path) {
    Tensor reference = ReadNpy(path);
    const QuietStdout quiet;
    AdaptKind();
    runner_.emplace(settings_);
    input_ = runner_->input();
    if (input_.width == 0) throw Failure(settings_.model + ": its input is no picture");
    std::optional<std::size_t> output;
    const auto channels = static_cast<uint32_t>(settings_.channels());
    if (by_input_) {
      const auto width = static_cast<uint32_t>(input_.width);
      const auto height = static_cast<uint32_t>(input_.height);
      if (reference.shape.size() == 4 && reference.shape[0] == 1) {
        reference.shape.erase(reference.shape.begin());
      }
      if (reference.shape == std::vector<uint32_t>{height, width, channels} && channels != height) {
        reference.values = Planes(reference.values, channels);
      } else if (reference.shape != std::vector<uint32_t>{channels, height, width}) {
        throw Failure(path + ": is " + ShapeText(reference.shape) + ", the model's input " +
                      ShapeText({channels, height, width}));
      }
    } else {
      output = FindOutput(path, reference);
    }
    judges_.emplace(settings_.model, model_, std::move(reference.values), output);
  }

  static std::vector<float> Planes(const std::vector<float>& interleaved, std::size_t channels) {
    std::vector<float> planes(interleaved.size());
    const std::size_t pixels = interleaved.size() / channels;
    for (std::size_t i = 0; i < interleaved.size(); ++i) {
      planes[i % channels * pixels + i / channels] = interleaved[i];
    }
    return planes;
  }

  // A kind that the model cannot take is a mistake that is known without a run: the search goes on
  // with float32, which every model takes.
  void AdaptKind() {
    const std::vector<rknn_tensor_attr> inputs = Context(settings_.model, model_).Inputs();
    const rknn_tensor_type wanted =
        settings_.input_type == corvane::RKNN_INPUT_FLOAT16 ? RKNN_TENSOR_FLOAT16
        : settings_.input_type == corvane::RKNN_INPUT_INT16 ? RKNN_TENSOR_INT16
                                                            : inputs.at(0).type;
    if (inputs.at(0).type == wanted) return;
    wrong_kind_ = settings_.input_type_name;
    settings_.input_type = corvane::RKNN_INPUT_FLOAT32;
  }

  std::size_t FindOutput(const std::string& path, const Tensor& reference) const {
    const std::vector<rknn_tensor_attr> outputs = Context(settings_.model, model_).Outputs();
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      if (outputs[i].n_elems == reference.values.size() && !reference.values.empty()) return i;
    }
    throw Failure(path + ": is " + ShapeText(reference.shape) +
                  ", and no output of the model has " + std::to_string(reference.values.size()) +
                  " elements");
  }

  // The settings as the library carries them out; then the same without what the kind rounds.
  void AddBase() {
    own_ = OfModel(model_, settings_.channels());
    base_ = RecipeOf(settings_, model_, picture_);
    maker_.emplace(picture_, input_, settings_.channels());
    candidates_.emplace_back();
    candidates_[0].words = "the settings";
    candidates_[0].recipe = base_;
    const std::vector<float> tensor = maker_->Make(base_);
    if (tensor.empty()) return;  // the settings do not lead to the model's size
    if (by_input_) {
      Judge(judges_->reference(), tensor, &candidates_[0]);
    } else {
      const Image image = Prepare(picture_, settings_, input_).image;
      for (const Tensor& output : runner_->Run(picture_, image).outputs) {
        if (output.values.size() != judges_->reference().size()) continue;
        Judge(judges_->reference(), output.values, &candidates_[0]);
        break;
      }
      Add("the values are not rounded or wrapped by kind " + settings_.input_type_name, 0, base_);
    }
    seen_.insert(Hash(tensor));
  }

  void AddSingles() {
    Image as_stored = ReadImage(picture_);
    const Image upright = ReadImage(picture_, true);
    const bool is_turned = as_stored.pixels != upright.pixels || as_stored.width != upright.width;
    hypotheses_ = Hypotheses(base_, OfSettings(settings_), own_, input_, is_turned);
    for (const Hypothesis& hypothesis : hypotheses_) {
      Recipe recipe = base_;
      if (hypothesis.apply(&recipe)) Add(hypothesis.words, hypothesis.aspects, recipe);
    }
  }

  void Add(const std::string& words, unsigned aspects, const Recipe& recipe) {
    Recipe fed = recipe;
    // The runtime applies the model's own normalisation to what it converts.
    if (!by_input_) fed.normalisation = Before(recipe.normalisation, own_);
    std::vector<float> tensor = maker_->Make(fed);
    if (tensor.empty() || !seen_.insert(Hash(tensor)).second) return;
    candidates_.push_back({words, aspects, recipe, std::move(tensor)});
  }

  static std::size_t Hash(const std::vector<float>& tensor) {
    const auto* bytes = reinterpret_cast<const char*>(tensor.data());
    return std::hash<std::string_view>()({bytes, tensor.size() * sizeof(float)});
  }

  void JudgeFrom(std::size_t first, double deadline) {
    std::vector<Candidate*> unjudged;
    for (std::size_t i = first; i < candidates_.size(); ++i) {
      if (!candidates_[i].tensor.empty()) unjudged.push_back(&candidates_[i]);
    }
    judges_->JudgeAll(unjudged, deadline);
  }

  double UsualDifference() const {
    std::vector<double> differences;
    for (const Candidate& candidate : candidates_) {
      if (std::isfinite(candidate.rms)) differences.push_back(candidate.rms);
    }
    if (differences.empty()) return 0;
    const auto middle = differences.begin() + static_cast<std::ptrdiff_t>(differences.size() / 2);
    std::nth_element(differences.begin(), middle, differences.end());
    return *middle;
  }

  // The first of those that are about as near as the nearest: the likelier ones stand first.
  const Candidate& Nearest() const {
    double least = HUGE_VAL;
    for (std::size_t i = 1; i < candidates_.size(); ++i)
      least = std::min(least, candidates_[i].rms);
    for (std::size_t i = 1; i < candidates_.size(); ++i) {
      if (candidates_[i].rms <= 1.5 * least + judges_->noise()) return candidates_[i];
    }
    return candidates_[0];
  }

  bool SettingsAreRight() const {
    const Candidate& settings = candidates_[0];
    if (settings.rms > limit_) return false;
    const Candidate& nearest = Nearest();
    // That a kind rounds is no mistake.
    return nearest.aspects == 0 || settings.rms <= kClearly * (nearest.rms + judges_->noise());
  }

  // Pairs whose single halves come near are tried first, until one is as near as wanted.
  void TryPairs(double wanted, std::size_t most) {
    struct Pair {
      std::size_t rank;
      const Hypothesis* first;
      const Hypothesis* second;
    };
    std::vector<std::pair<double, const Hypothesis*>> ranked;
    // Those that change nothing by themselves, or the same as another, have no candidate.
    for (const Hypothesis& hypothesis : hypotheses_) {
      for (const Candidate& candidate : candidates_) {
        if (candidate.words == hypothesis.words) ranked.emplace_back(candidate.rms, &hypothesis);
      }
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < ranked.size(); ++i) {
      for (std::size_t k = i + 1; k < ranked.size(); ++k) {
        if ((ranked[i].second->aspects & ranked[k].second->aspects) != 0) continue;
        pairs.push_back({(i + 1) * (k + 1), ranked[i].second, ranked[k].second});
      }
    }
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const Pair& a, const Pair& b) { return a.rank < b.rank; });
    if (pairs.size() > most) pairs.resize(most);
    const double deadline = start_ + kMilliseconds;
    for (std::size_t i = 0; i < pairs.size() && corvane::get_current_time() < deadline;) {
      const std::size_t first = candidates_.size();
      for (; i < pairs.size() && candidates_.size() < first + kBatch; ++i) {
        Recipe recipe = base_;
        if (pairs[i].first->apply(&recipe) && pairs[i].second->apply(&recipe)) {
          Add(pairs[i].first->words + "; and " + pairs[i].second->words,
              pairs[i].first->aspects | pairs[i].second->aspects, recipe);
        }
      }
      JudgeFrom(first, deadline);
      for (std::size_t k = first; k < candidates_.size(); ++k) {
        if (candidates_[k].rms <= wanted) return;
      }
    }
  }

  void Report(double usual) {
    const Candidate& nearest = Nearest();
    std::printf("%s: the settings do not give the reference (rms difference %.3g, cosine %.6f)\n",
                picture_.c_str(), candidates_[0].rms, candidates_[0].cosine);
    if (nearest.rms <= limit_) {
      PrintFound(nearest);
    } else if (!by_input_ || !FindLinear()) {
      PrintNearest(usual);
    }
  }

  void PrintFound(const Candidate& found) const {
    std::printf("found, where the reference comes from: %s\n", found.words.c_str());
    std::printf("  reproduces it (rms difference %.3g)\n", found.rms);
    for (std::size_t i = 1; i < candidates_.size(); ++i) {
      const Candidate& other = candidates_[i];
      if (&other != &found && other.rms <= 1.5 * found.rms + judges_->noise()) {
        std::printf("  as does: %s\n", other.words.c_str());
      }
    }
    PrintLines(found.recipe);
  }

  void PrintLines(const Recipe& wanted) const {
    std::vector<std::string> lines = CorrectedLines(picture_, settings_, base_, wanted, own_);
    if (!wrong_kind_.empty()) {
      if (lines.empty() || lines[0] != "[input]") lines.insert(lines.begin(), "[input]");
      lines.insert(lines.begin() + 1, "kind = float32");
    } else if (lines.empty()) {
      lines = {"[input]", "# a kind that holds the values: see corvane kinds"};
    }
    std::printf("change in the settings:\n");
    for (const std::string& line : lines) std::printf("  %s\n", line.c_str());
  }

  // For constants that nobody thought of: a line through bytes and reference, for each plane.
  bool FindLinear() {
    for (std::size_t i = 0; i < hypotheses_.size() + 1; ++i) {
      Recipe recipe = base_;
      if (i > 0 && ((hypotheses_[i - 1].aspects & (kMeans | kScales)) != 0 ||
                    !hypotheses_[i - 1].apply(&recipe))) {
        continue;
      }
      const auto channels = static_cast<std::size_t>(settings_.channels());
      recipe.normalisation = {std::vector<float>(channels, 0.0F),
                              std::vector<float>(channels, 1.0F)};
      if (recipe.is_interleaved ||
          !FitLines(maker_->Make(recipe), judges_->reference(), &recipe.normalisation))
        continue;
      std::printf("found, where the reference comes from: other means and scales%s%s\n",
                  i == 0 ? "" : "; and ", i == 0 ? "" : hypotheses_[i - 1].words.c_str());
      PrintLines(recipe);
      return true;
    }
    return false;
  }

  void PrintNearest(double usual) const {
    std::vector<const Candidate*> order;
    for (const Candidate& candidate : candidates_) order.push_back(&candidate);
    std::stable_sort(order.begin(), order.end(),
                     [](const Candidate* a, const Candidate* b) { return a->rms < b->rms; });
    std::printf(
        "nothing that was tried reproduces it (%zu ways; the usual rms difference is %.3g). "
        "Nearest:\n",
        candidates_.size(), usual);
    for (std::size_t i = 0; i < order.size() && i < 5; ++i) {
      std::printf("  rms difference %10.4g, cosine %9.6f: %s\n", order[i]->rms, order[i]->cosine,
                  order[i]->words.c_str());
    }
    if (candidates_[0].cosine > 0.9999) {
      std::printf(
          "the settings' answer has the reference's direction and another length: one of "
          "them is normalised\n");
    }
    std::printf(
        "look at next: is the reference of this picture, this model and this output? Does its "
        "decoder give the same bytes (run --show)? What follows the model there?%s\n",
        by_input_ ? "" : " --expect-input, with the tensor that training feeds, tells more");
  }

  std::string picture_;
  bool by_input_;
  RunSettings settings_;
  std::vector<uint8_t> model_;
  std::string wrong_kind_;
  std::optional<ModelRunner> runner_;
  ModelInput input_;
  std::optional<Judges> judges_;
  Normalisation own_;
  Recipe base_;
  std::optional<RecipeMaker> maker_;
  std::vector<Hypothesis> hypotheses_;
  std::vector<Candidate> candidates_;  // [0]: the settings as they are
  std::unordered_set<std::size_t> seen_;
  double start_ = 0;
  double limit_ = 0;
};

}  // namespace

int Explain(const ExplainOptions& options) { return Explanation(options).Run(); }

}  // namespace corvane_tool

// corvane explain: which mistake in the settings makes the difference to a reference.

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/commands.h"
#include "tools/explain/correction.h"
#include "tools/explain/hypotheses.h"
#include "tools/explain/judges.h"
#include "tools/explain/linear_fit.h"
#include "tools/explain/recipe.h"
#include "tools/explain/search.h"
#include "tools/results/npy.h"
#include "tools/runtime/model_file.h"
#include "tools/runtime/model_runner.h"
#include "tools/runtime/onnx_metadata.h"
#include "tools/runtime/rknn_names.h"
#include "tools/support/failure.h"
#include "tools/support/quiet_stdout.h"

namespace corvane_tool {

namespace {

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
    StartSearch();
    search_->TrySingles();
    if (search_->IsBlind()) {
      std::printf(
          "the model answers to every input alike: no mistake can be told by this reference\n");
      return kDiffers;
    }
    const bool are_right = search_->SettingsAreRight();
    if (are_right && wrong_kind_.empty()) {
      std::printf(
          "nothing is wrong: the settings reproduce the reference (rms difference %.3g; mistakes "
          "make %.3g)\n",
          search_->settings()->rms, search_->usual());
      return 0;
    }
    if (are_right) {
      std::printf(
          "found: kind %s does not fit the model's input; with float32 the settings reproduce the "
          "reference\n",
          wrong_kind_.c_str());
      PrintLines(base_);
      return kDiffers;
    }
    search_->TryPairs();
    Report();
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
      output_ = FindOutput(path, reference);
    }
    // An ONNX model is asked without what its properties add: it gets the values as they are.
    judged_model_ = !IsOnnx(model_) ? model_
                                    : WithMetadata(settings_.model, model_,
                                                   {{"corvane.input.type", ""},
                                                    {"corvane.input.fl", ""},
                                                    {"corvane.input.mean", ""},
                                                    {"corvane.input.scale", ""}});
    judges_.emplace(settings_.model, judged_model_, std::move(reference.values),
                    by_input_ ? std::nullopt : std::optional<std::size_t>(output_));
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
  void StartSearch() {
    own_ = OfModel(model_, settings_.channels());
    base_ = RecipeOf(settings_, model_, picture_);
    maker_.emplace(picture_, input_, settings_.channels());
    const Image as_stored = ReadImage(picture_);
    const Image upright = ReadImage(picture_, true);
    const bool is_turned = as_stored.pixels != upright.pixels || as_stored.width != upright.width;
    search_.emplace(&*maker_, &*judges_, base_,
                    Hypotheses(base_, OfSettings(settings_), own_, input_, is_turned));
    const std::vector<float> tensor = maker_->Make(base_);
    if (tensor.empty()) return;  // the settings do not lead to the model's size
    if (by_input_) {
      Judge(judges_->reference(), tensor, search_->settings());
      return;
    }
    const Image image = Prepare(picture_, settings_, input_).image;
    const std::vector<Tensor> outputs = runner_->Run(picture_, image).outputs;
    Judge(judges_->reference(), outputs.at(output_).values, search_->settings());
    search_->AddUnrounded("the values are not rounded or wrapped by kind " +
                          settings_.input_type_name);
  }

  void Report() {
    const Candidate& nearest = search_->Nearest();
    const Candidate& settings = *search_->settings();
    std::printf("%s: the settings do not give the reference (rms difference %.3g, cosine %.6f)\n",
                picture_.c_str(), settings.rms, settings.cosine);
    if (search_->Fits(nearest)) {
      PrintFound(nearest);
    } else if (!by_input_ || !FindLinear()) {
      PrintNearest();
    }
  }

  void PrintFound(const Candidate& found) const {
    std::printf("found, where the reference comes from: %s\n", found.words.c_str());
    std::printf("  reproduces it (rms difference %.3g)\n", found.rms);
    for (const Candidate* other : search_->Equals(found)) {
      std::printf("  as does: %s\n", other->words.c_str());
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
    const std::vector<Hypothesis>& hypotheses = search_->hypotheses();
    for (std::size_t i = 0; i < hypotheses.size() + 1; ++i) {
      Recipe recipe = base_;
      if (i > 0 && ((hypotheses[i - 1].aspects & (kMeans | kScales)) != 0 ||
                    !hypotheses[i - 1].apply(&recipe))) {
        continue;
      }
      const auto channels = static_cast<std::size_t>(settings_.channels());
      recipe.normalisation = {std::vector<float>(channels, 0.0F),
                              std::vector<float>(channels, 1.0F)};
      if (recipe.is_interleaved ||
          !FitLines(maker_->Make(recipe), judges_->reference(), &recipe.normalisation))
        continue;
      std::printf("found, where the reference comes from: other means and scales%s%s\n",
                  i == 0 ? "" : "; and ", i == 0 ? "" : hypotheses[i - 1].words.c_str());
      PrintLines(recipe);
      return true;
    }
    return false;
  }

  void PrintNearest() const {
    std::vector<const Candidate*> order;
    for (const Candidate& candidate : search_->candidates()) order.push_back(&candidate);
    std::stable_sort(order.begin(), order.end(),
                     [](const Candidate* a, const Candidate* b) { return a->rms < b->rms; });
    std::printf(
        "nothing that was tried reproduces it (%zu ways; the usual rms difference is %.3g). "
        "Nearest:\n",
        order.size(), search_->usual());
    for (std::size_t i = 0; i < order.size() && i < 5; ++i) {
      std::printf("  rms difference %10.4g, cosine %9.6f: %s\n", order[i]->rms, order[i]->cosine,
                  order[i]->words.c_str());
    }
    if (search_->candidates()[0].cosine > 0.9999) {
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
  std::vector<uint8_t> judged_model_;
  std::string wrong_kind_;
  std::optional<ModelRunner> runner_;
  ModelInput input_;
  std::size_t output_ = 0;
  std::optional<Judges> judges_;
  Normalisation own_;
  Recipe base_;
  std::optional<RecipeMaker> maker_;
  std::optional<Search> search_;
};

}  // namespace

int Explain(const ExplainOptions& options) { return Explanation(options).Run(); }

}  // namespace corvane_tool

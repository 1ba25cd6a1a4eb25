#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "tools/commands.h"
#include "tools/pictures/picture_list.h"
#include "tools/pictures/preparation.h"
#include "tools/results/comparison.h"
#include "tools/results/npy.h"
#include "tools/results/results.h"
#include "tools/results/run_summary.h"
#include "tools/runtime/model_runner.h"
#include "tools/settings/settings.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"
#include "tools/support/progress.h"
#include "tools/support/stopwatch.h"

namespace corvane_tool {

namespace {

namespace fs = std::filesystem;

constexpr int kSignalStatus = 128;  // plus the signal's number, as shells report it

// Every file that a run writes. Empty: not written.
class Outputs {
 public:
  Outputs(const RunOptions& options, const RunSettings& settings,
          const std::vector<std::string>& pictures)
      : folder_(settings.output_folder),
        npy_(options.npy.empty() ? folder_ : options.npy),
        json_(options.json.empty() && !folder_.empty() ? folder_ + "/results.json" : options.json),
        shows_(options.show),
        // Nothing is named after the pictures otherwise, so equal names do no harm.
        names_(folder_.empty() && npy_.empty() && options.expect.empty() ? pictures
                                                                         : ResultNames(pictures)) {
    if (shows_ && folder_.empty()) throw Failure("--show: needs a folder; --output names one");
    // A device or a pipe takes the final file only.
    std::error_code ignored;
    const fs::file_status json_status = fs::status(json_, ignored);
    has_lines_ = !json_.empty() && (!fs::exists(json_status) || fs::is_regular_file(json_status));
  }

  std::string Json() const { return json_; }
  std::string Lines() const {
    if (!has_lines_) return "";
    const bool is_json = fs::path(json_).extension() == ".json";
    return json_ + (is_json ? "l" : ".jsonl");
  }
  std::string Npy(std::size_t picture, std::size_t output) const {
    return npy_.empty() ? "" : npy_ + "/" + names_[picture] + "." + std::to_string(output) + ".npy";
  }
  std::string Face(std::size_t picture) const {
    return folder_.empty() ? "" : folder_ + "/" + names_[picture] + ".face.png";
  }
  std::string Show(std::size_t picture) const {
    return shows_ ? folder_ + "/" + names_[picture] + ".input.png" : "";
  }
  const std::string& Name(std::size_t picture) const { return names_[picture]; }

  // Fails if one file would replace an input or another output.
  void Check(const std::vector<std::string>& inputs, std::size_t output_count) const {
    FileNames files(inputs);
    const auto add = [&](const std::string& path) {
      if (!path.empty()) files.AddOutput(path);
    };
    add(json_);
    add(Lines());
    for (std::size_t i = 0; i < names_.size(); ++i) {
      add(Face(i));
      add(Show(i));
      for (std::size_t k = 0; k < output_count; ++k) add(Npy(i, k));
    }
  }

  void MakeFolders() const {
    for (const std::string& folder : {folder_, npy_}) {
      if (folder.empty()) continue;
      MakeFolder(folder);
      std::string last;
      for (const std::string& name : names_) {
        const std::string below = (folder / fs::path(name).parent_path()).string();
        if (below != last) MakeFolder(below);
        last = below;
      }
    }
  }

 private:
  std::string folder_, npy_, json_;
  bool shows_;
  bool has_lines_ = false;
  std::vector<std::string> names_;
};

ImageResult RunImage(const RunSettings& settings, const Outputs& files, std::size_t picture,
                     const std::string& path, ModelRunner* model) {
  const PreparedPicture prepared = Prepare(path, settings, model->input());
  if (!files.Show(picture).empty()) WritePng(files.Show(picture), Shown(prepared, settings));
  Answer answer = model->Run(path, prepared.image);

  ImageResult result;
  result.file = path;
  result.width = prepared.file_width;
  result.height = prepared.file_height;
  result.input_width = prepared.image.width;
  result.input_height = prepared.image.height;
  result.landmarks = prepared.landmarks;
  result.fit_error = prepared.fit_error;
  result.prepare_ms = answer.prepare_ms;
  result.run_ms = answer.run_ms;
  result.outputs = std::move(answer.outputs);
  if (result.landmarks != nullptr && !files.Face(picture).empty()) {
    WritePng(files.Face(picture), prepared.image);
  }
  for (std::size_t i = 0; i < result.outputs.size(); ++i) {
    const std::string npy = files.Npy(picture, i);
    if (!npy.empty()) WriteNpy(npy, result.outputs[i]);
  }
  return result;
}

bool WarnOfNotFinite(const ImageResult& result) {
  bool is_finite = true;
  for (std::size_t i = 0; i < result.outputs.size(); ++i) {
    const NotFinite odd = CountNotFinite(result.outputs[i].values);
    if (odd.nan + odd.infinite == 0) continue;
    is_finite = false;
    std::fprintf(stderr, "corvane: %s: output %zu holds %zu NaN and %zu infinite values of %zu\n",
                 result.file.c_str(), i, odd.nan, odd.infinite, result.outputs[i].values.size());
  }
  return is_finite;
}

// The outputs of one run beside those of another.
class Expectation {
 public:
  Expectation(const RunOptions& options, std::size_t pictures)
      : path_(options.expect), tolerance_(ReadTolerance(options.tolerance)) {
    if (path_.empty()) return;
    reference_ = ReadTensorSet(path_);
    is_single_ = reference_.size() == 1 && reference_.begin()->first.empty();
    if (is_single_ && pictures != 1) {
      throw Failure("--expect: one array for " + std::to_string(pictures) +
                    " pictures; wanted a folder or a results file");
    }
  }

  void Add(const std::string& name, const std::vector<Tensor>& outputs) {
    if (path_.empty()) return;
    if (is_single_) {
      test_.emplace("", outputs.at(0));
      return;
    }
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      test_.emplace(name + "." + std::to_string(i), outputs[i]);
    }
  }

  // References of pictures that were not run do not count.
  bool PrintAndJudge(const Outputs& files, std::size_t pictures) {
    if (path_.empty()) return true;
    TensorSet wanted;
    for (const auto& reference : reference_) {
      bool belongs = is_single_;
      for (std::size_t i = 0; i < pictures && !belongs; ++i) {
        const std::string stem = files.Name(i) + ".";
        belongs = reference.first.compare(0, stem.size(), stem) == 0 &&
                  reference.first.find_first_not_of("0123456789", stem.size()) == std::string::npos;
      }
      if (belongs) wanted.insert(reference);
    }
    return PrintDifferences(CompareSets(wanted, test_, tolerance_), tolerance_);
  }

 private:
  std::string path_;
  Tolerance tolerance_;
  TensorSet reference_, test_;
  bool is_single_ = false;
};

// A failure's text without the picture's name in front, so that equal reasons are counted together.
std::string ReasonOf(const std::string& failure, const std::string& picture) {
  const std::string start = picture + ": ";
  return failure.compare(0, start.size(), start) == 0 ? failure.substr(start.size()) : failure;
}

}  // namespace

int Run(const RunOptions& options) {
  const std::vector<std::string> pictures = ExpandPictures(options.images);
  const RunSettings settings = ReadSettings(options.settings, pictures);
  const Outputs files(options, settings, pictures);
  std::vector<std::string> inputs = pictures;
  inputs.insert(inputs.end(), {settings.model, options.settings.config});
  files.Check(inputs, 0);
  Expectation expectation(options, pictures.size());
  ModelRunner model(settings);
  files.Check(inputs, model.output_count());
  files.MakeFolders();
  std::unique_ptr<LineFile> line_file;
  if (!files.Lines().empty()) line_file = std::make_unique<LineFile>(files.Lines());

  std::vector<std::string> lines;  // kept only for the final file
  RunSummary summary;
  std::size_t done = 0;
  const Interruption interruption;
  const double start = SteadyMilliseconds();
  {
    const Progress progress(pictures.size());
    for (; done < pictures.size() && Interruption::signal() == 0; ++done) {
      progress.Show(done);
      ImageResult result;
      try {
        result = RunImage(settings, files, done, pictures[done], &model);
        progress.Clear();
        summary.AddSuccess(result.prepare_ms, result.run_ms, WarnOfNotFinite(result));
        if (!options.quiet) PrintTable(result);
        std::fflush(stdout);
        expectation.Add(files.Name(done), result.outputs);
      } catch (const Failure& failure) {
        // One bad picture does not cost the others.
        progress.Clear();
        std::fprintf(stderr, "corvane: %s\n", failure.what());
        result.file = pictures[done];
        result.error = failure.what();
        summary.AddFailure(ReasonOf(failure.what(), pictures[done]));
      }
      if (files.Json().empty()) continue;
      lines.push_back(ResultLine(result));
      if (line_file != nullptr) line_file->Append(lines.back());
    }
  }
  summary.seconds = (SteadyMilliseconds() - start) / 1000;
  if (!files.Json().empty()) WriteResults(files.Json(), settings, lines, summary);
  if (pictures.size() > 1 || options.quiet) PrintSummary(summary);
  const bool is_expected = expectation.PrintAndJudge(files, done);
  std::fflush(stdout);
  if (done < pictures.size()) {
    std::fprintf(stderr, "corvane: ended by a signal after %zu of %zu pictures\n", done,
                 pictures.size());
    return kSignalStatus + Interruption::signal();
  }
  if (summary.failed() > 0 && pictures.size() > 1) {
    throw Failure(std::to_string(summary.failed()) + " of " + std::to_string(pictures.size()) +
                  " images failed");
  }
  return summary.failed() > 0 ? 1 : is_expected ? 0 : kDiffers;
}

}  // namespace corvane_tool

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>

#include "corvane/backend.h"
#include "corvane/util.h"
#include "tools/commands.h"
#include "tools/face.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/image_io.h"
#include "tools/model_file.h"
#include "tools/results.h"
#include "tools/rknn_names.h"
#include "tools/runtime_watch.h"
#include "tools/settings.h"

namespace corvane_tool {

namespace {

using Backend = corvane::Backend_<float>;

// What the model wants, as far as its first input tells. 0: it does not.
struct ModelInput {
  int width = 0;
  int height = 0;
  int channels = 0;
};

std::unique_ptr<Backend> Load(const RunSettings& settings, ModelInput* input) {
  std::unique_ptr<Backend> backend;
  WatchedRuntime() = RuntimeRecord();
  try {
    backend = corvane::InitBackend(settings.model, "", {}, settings.means, settings.scales,
                                   settings.input_type);
  } catch (const std::runtime_error&) {
    const RuntimeRecord& runtime = WatchedRuntime();
    if (runtime.failed_call == nullptr) {
      ReadModelFile(settings.model);  // says why it fails
      throw Failure(settings.model + ": not loaded: the file cannot be read");
    }
    const bool is_invalid = runtime.failed_code == RKNN_ERR_MODEL_INVALID;
    throw Failure(settings.model + ": not loaded: " + runtime.failed_call + ": " +
                  CodeName(runtime.failed_code) + (is_invalid ? PackingHint(settings.model) : ""));
  }
  const std::vector<rknn_tensor_attr>& inputs = WatchedRuntime().inputs;
  if (inputs.size() != 1) {
    throw Failure(settings.model + ": " + std::to_string(inputs.size()) +
                  " inputs; only models with one can run");
  }
  const std::vector<uint32_t> shape = Shape(inputs[0]);
  if (shape.size() == 4) {
    const bool is_planar = inputs[0].fmt == RKNN_TENSOR_NCHW;
    input->channels = static_cast<int>(is_planar ? shape[1] : shape[3]);
    input->height = static_cast<int>(is_planar ? shape[2] : shape[1]);
    input->width = static_cast<int>(is_planar ? shape[3] : shape[2]);
    if (input->channels != settings.channels()) {
      throw Failure(settings.model + ": takes " + std::to_string(input->channels) +
                    " channel(s), but pixel type " + settings.pixel_type_name + " has " +
                    std::to_string(settings.channels()));
    }
  }
  return backend;
}

// The picture as the model is to get it.
Image Prepared(const std::string& path, const RunSettings& settings, const ModelInput& input,
               ImageResult* result) {
  Image picture = ReadImage(path);
  result->width = picture.width;
  result->height = picture.height;
  const auto landmarks = settings.landmarks.find(std::filesystem::path(path).filename().string());
  if (landmarks != settings.landmarks.end()) {
    picture = AlignedFace(path, picture, landmarks->second, &result->fit_error);
    result->is_aligned = true;
  } else if (settings.resize && input.width > 0 && input.height > 0 &&
             (picture.width != input.width || picture.height != input.height)) {
    picture = Resized(picture, input.width, input.height);
  }
  if (input.width > 0 && (picture.width != input.width || picture.height != input.height)) {
    throw Failure(path + ": " + (result->is_aligned ? "its aligned face has " : "") +
                  std::to_string(picture.width) + " x " + std::to_string(picture.height) +
                  " pixels, the model takes " + std::to_string(input.width) + " x " +
                  std::to_string(input.height) +
                  (result->is_aligned ? "" : "; landmarks or resize bring it to size"));
  }
  result->input_width = picture.width;
  result->input_height = picture.height;
  return picture;
}

// The bytes that Forward is to get: the R, G, B of the file in the order that the pixel type names.
std::vector<uint8_t> InPixelOrder(const Image& image, corvane::PixelType type) {
  std::vector<uint8_t> pixels = image.pixels;
  if (type == corvane::PIXEL_BGR || type == corvane::PIXEL_BGR2RGB) {
    for (std::size_t i = 0; i < pixels.size(); i += 3) std::swap(pixels[i], pixels[i + 2]);
  } else if (type == corvane::PIXEL_GRAY) {
    const std::size_t count = pixels.size() / 3;
    for (std::size_t i = 0; i < count; ++i) {
      const uint8_t* rgb = &pixels[3 * i];  // 0.299, 0.587, 0.114 in 65536ths
      pixels[i] =
          static_cast<uint8_t>((19595u * rgb[0] + 38470u * rgb[1] + 7471u * rgb[2] + 32768u) >> 16);
    }
    pixels.resize(count);
  }
  return pixels;
}

std::string FacePath(const std::string& folder, const std::string& image) {
  return folder + "/" + std::filesystem::path(image).stem().string() + ".face.png";
}

void RunImage(const RunSettings& settings, const ModelInput& input, Backend* backend,
              ImageResult* result) {
  const Image image = Prepared(result->file, settings, input, result);
  const std::vector<uint8_t> pixels = InPixelOrder(image, settings.pixel_type);
  RuntimeRecord& runtime = WatchedRuntime();
  runtime.failed_call = nullptr;
  runtime.input_given = runtime.outputs_back = 0;

  std::vector<corvane::OutputTensor> outputs;
  const double start = corvane::get_current_time();
  if (!corvane::TryForward(*backend, pixels.data(), settings.pixel_type, image.width, image.height,
                           &outputs)) {
    if (runtime.failed_call == nullptr)
      throw Failure(result->file + ": the library did not run it");
    throw Failure(result->file + ": " + runtime.failed_call + ": " + CodeName(runtime.failed_code));
  }
  result->prepare_ms = runtime.input_given - start;
  result->run_ms = runtime.outputs_back - runtime.input_given;
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    Tensor tensor;
    tensor.name = TensorName(runtime.outputs.at(i));
    tensor.shape = Shape(runtime.outputs.at(i));
    tensor.values.assign(outputs[i].data, outputs[i].data + outputs[i].count);
    result->outputs.push_back(std::move(tensor));
  }
  if (!settings.output_folder.empty() && result->is_aligned) {
    WritePng(FacePath(settings.output_folder, result->file), image);
  }
}

std::string NpyPath(const std::string& folder, const std::string& image, std::size_t output) {
  return folder + "/" + std::filesystem::path(image).stem().string() + "." +
         std::to_string(output) + ".npy";
}

// Files are named after the pictures, so two pictures of one name would overwrite each other.
void CheckNames(const std::vector<std::string>& images) {
  std::set<std::string> stems;
  for (const std::string& image : images) {
    if (!stems.insert(std::filesystem::path(image).stem().string()).second) {
      throw Failure(image +
                    ": another image has the same name, and both would be written to one file");
    }
  }
}

// A bar on standard error, only where a person looks at it.
class Progress {
 public:
  explicit Progress(std::size_t total) : total_(total), shows_(total > 1 && isatty(2) == 1) {}
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { Clear(); }

  void Show(std::size_t done) const {
    if (!shows_) return;
    constexpr std::size_t kWidth = 30;
    const std::size_t filled = kWidth * done / total_;
    std::fprintf(stderr, "\r[%s%s] %zu of %zu", std::string(filled, '#').c_str(),
                 std::string(kWidth - filled, '.').c_str(), done, total_);
    std::fflush(stderr);
  }
  // Before anything else is written to the terminal.
  void Clear() const {
    if (shows_) std::fputs("\r\033[K", stderr);
  }

 private:
  std::size_t total_;
  bool shows_;
};

}  // namespace

int Run(const RunOptions& options) {
  const RunSettings settings = ReadSettings(options);
  const bool has_folder = !settings.output_folder.empty();
  const std::string json =
      options.json.empty() && has_folder ? settings.output_folder + "/results.json" : options.json;
  const std::string npy = options.npy.empty() ? settings.output_folder : options.npy;
  if (has_folder || !npy.empty()) CheckNames(options.images);
  std::vector<std::string> inputs = options.images;
  inputs.insert(inputs.end(), {settings.model, options.config});
  FileNames files(inputs);
  if (!json.empty()) files.AddOutput(json);
  for (const std::string& image : options.images) {
    if (has_folder) files.AddOutput(FacePath(settings.output_folder, image));
  }
  if (has_folder) MakeFolder(settings.output_folder);
  if (!npy.empty()) MakeFolder(npy);

  ModelInput input;
  const std::unique_ptr<Backend> backend = Load(settings, &input);
  for (const std::string& image : options.images) {
    for (std::size_t i = 0; !npy.empty() && i < WatchedRuntime().outputs.size(); ++i) {
      files.AddOutput(NpyPath(npy, image, i));
    }
  }

  std::vector<ImageResult> results;
  std::size_t failed = 0;
  {
    const Progress progress(options.images.size());
    for (const std::string& image : options.images) {
      progress.Show(results.size());
      ImageResult result;
      result.file = image;
      try {
        RunImage(settings, input, backend.get(), &result);
        for (std::size_t i = 0; !npy.empty() && i < result.outputs.size(); ++i) {
          WriteNpy(NpyPath(npy, image, i), result.outputs[i]);
        }
        progress.Clear();
        PrintTable(result);
        std::fflush(stdout);
      } catch (const Failure& failure) {
        // One bad picture does not cost the others.
        progress.Clear();
        std::fprintf(stderr, "corvane: %s\n", failure.what());
        result.error = failure.what();
        ++failed;
      }
      // Kept whole only where the end needs it.
      if (json.empty()) result.outputs.clear();
      results.push_back(std::move(result));
    }
  }
  if (!json.empty()) WriteJson(json, settings, results);
  if (failed > 0 && results.size() > 1) {
    throw Failure(std::to_string(failed) + " of " + std::to_string(results.size()) +
                  " images failed");
  }
  return failed == 0 ? 0 : 1;
}

}  // namespace corvane_tool

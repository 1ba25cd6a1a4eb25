#include "tools/runtime/model_runner.h"

#include <stdexcept>
#include <utility>

#include "tools/runtime/input_check.h"
#include "tools/runtime/model_file.h"
#include "tools/runtime/rknn_names.h"
#include "tools/runtime/runtime_watch.h"
#include "tools/support/failure.h"
#include "tools/support/stopwatch.h"

namespace corvane_tool {

namespace {

[[noreturn]] void Refuse(const RunSettings& settings, const std::string& what) {
  throw Failure(settings.model + ": " + what);
}

// The kinds that pass through the runtime unconverted must have the model's own type.
void CheckKind(const RunSettings& settings, const rknn_tensor_attr& input) {
  const bool is_half = settings.input_type == corvane::RKNN_INPUT_FLOAT16;
  const bool is_fixed = settings.input_type == corvane::RKNN_INPUT_INT16;
  if (!is_half && !is_fixed) return;
  if (input.type == (is_half ? RKNN_TENSOR_FLOAT16 : RKNN_TENSOR_INT16)) return;
  Refuse(settings, "kind " + settings.input_type_name +
                       " goes into the model unchanged, but its input is " + TypeName(input.type) +
                       "; use kind float32, or corvane pack --type " +
                       (is_half ? "float16" : "int16 --fl N"));
}

ModelInput CheckInput(const RunSettings& settings, const rknn_tensor_attr& input) {
  const std::vector<uint32_t> shape = Shape(input);
  ModelInput wanted;
  if (shape.size() != 4) return wanted;
  const bool is_planar = input.fmt == RKNN_TENSOR_NCHW;
  const bool passes_planes = settings.input_type == corvane::RKNN_INPUT_FLOAT16 ||
                             settings.input_type == corvane::RKNN_INPUT_INT16;
  if (!is_planar && passes_planes) {
    Refuse(settings, "its input is NHWC, but kind " + settings.input_type_name +
                         " goes into the model unchanged as NCHW; use kind float32");
  }
  wanted.height = static_cast<int>(is_planar ? shape[2] : shape[1]);
  wanted.width = static_cast<int>(is_planar ? shape[3] : shape[2]);
  return wanted;
}

}  // namespace

ModelRunner::ModelRunner(const RunSettings& settings) : settings_(settings) {
  WatchedRuntime() = RuntimeRecord();
  try {
    backend_ = corvane::InitBackend(settings.model, "", {}, settings.means, settings.scales,
                                    settings.input_type);
  } catch (const std::runtime_error&) {
    const RuntimeRecord& runtime = WatchedRuntime();
    if (runtime.failed_call == nullptr) {
      ReadModelFile(settings.model);  // says why it fails
      Refuse(settings, "not loaded: the file cannot be read");
    }
    const bool is_invalid = runtime.failed_code == RKNN_ERR_MODEL_INVALID;
    Refuse(settings, std::string("not loaded: ") + runtime.failed_call + ": " +
                         CodeName(runtime.failed_code) +
                         (is_invalid ? PackingHint(settings.model) : ""));
  }
  const std::vector<rknn_tensor_attr>& inputs = WatchedRuntime().inputs;
  if (inputs.size() == 1) CheckKind(settings, inputs[0]);
  const std::string problem = InputProblem(
      inputs, {static_cast<uint32_t>(settings.channels())},
      "pixel type " + settings.pixel_type_name + " has " + std::to_string(settings.channels()));
  if (!problem.empty()) Refuse(settings, problem);
  input_ = CheckInput(settings, inputs[0]);
  outputs_ = WatchedRuntime().outputs;
}

FrameTimes ModelRunner::Forward(const std::string& path, const uint8_t* pixels, int width,
                                int height, std::vector<corvane::OutputTensor>* outputs) {
  RuntimeRecord& runtime = WatchedRuntime();
  runtime.failed_call = nullptr;
  runtime.input_given = runtime.outputs_back = 0;
  const double start = SteadyMilliseconds();
  if (!corvane::TryForward(*backend_, pixels, settings_.pixel_type, width, height, outputs)) {
    if (runtime.failed_call == nullptr) throw Failure(path + ": the library did not run it");
    throw Failure(path + ": " + runtime.failed_call + ": " + CodeName(runtime.failed_code));
  }
  return {runtime.input_given - start, runtime.outputs_back - runtime.input_given,
          SteadyMilliseconds() - runtime.outputs_back};
}

Answer ModelRunner::Run(const std::string& path, const Image& image) {
  const std::vector<uint8_t> pixels = InPixelOrder(image, settings_.pixel_type);
  std::vector<corvane::OutputTensor> outputs;
  const FrameTimes times = Forward(path, pixels.data(), image.width, image.height, &outputs);
  Answer answer;
  answer.prepare_ms = times.prepare;
  answer.run_ms = times.run;
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    Tensor tensor;
    tensor.name = TensorName(outputs_.at(i));
    tensor.shape = Shape(outputs_.at(i));
    tensor.values.assign(outputs[i].data, outputs[i].data + outputs[i].count);
    answer.outputs.push_back(std::move(tensor));
  }
  return answer;
}

}  // namespace corvane_tool

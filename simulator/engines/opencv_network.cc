#include <algorithm>
#include <cstdio>
#include <map>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>
#include <string>
#include <vector>

#include "simulator/control/environment.h"
#include "simulator/engines/network.h"
#include "simulator/engines/opencv_halves.h"
#include "simulator/engines/opencv_lowering.h"
#include "simulator/engines/opencv_operators.h"
#include "simulator/engines/opencv_rewrite.h"
#include "simulator/engines/opencv_sizes.h"
#include "simulator/onnx/nodes.h"
#include "simulator/onnx/unread_nodes.h"

namespace rknn_sim {

namespace {

using LogLevel = cv::utils::logging::LogLevel;

// Silences OpenCV, as a refusal writes exactly one line.
class QuietOpenCv {
 public:
  QuietOpenCv() : level_(cv::utils::logging::setLogLevel(LogLevel::LOG_LEVEL_SILENT)) {}
  ~QuietOpenCv() { cv::utils::logging::setLogLevel(level_); }
  QuietOpenCv(const QuietOpenCv&) = delete;
  QuietOpenCv& operator=(const QuietOpenCv&) = delete;

 private:
  LogLevel level_;
};

// A file as OpenCV gets it.
struct OpenCvModel {
  explicit OpenCvModel(const OnnxFile& file) {
    const String floats = WidenHalves(file.bytes);
    const OnnxNodes original = ReadOnnxNodes(floats);
    const Vector<int64_t> common = CommonDims(original, *file.graph);
    rank = common.size();
    const String simple = RewriteOnnx(floats, original, *file.graph, common, ProducerFor(original));
    lowered_ = LowerOnnx(simple, ReadOnnxNodes(simple), *file.graph);
    bytes = WithoutUnreadNodes(lowered_, &rest_);
    nodes = ReadOnnxNodes(bytes);
  }

  std::string_view bytes;
  OnnxNodes nodes;   // of the bytes
  std::size_t rank;  // of all inputs; 0: their own

 private:
  String lowered_, rest_;
};

class OpenCvNetwork final : public OnnxNetwork {
 public:
  OpenCvNetwork(const OpenCvModel& model, const OnnxGraph& graph)
      : net_(cv::dnn::readNetFromONNX(model.bytes.data(), model.bytes.size())) {
    net_.enableFusion(MayFuse(model.nodes));
    net_.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    net_.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
    for (const OnnxTensor& input : graph.inputs) {
      input_names_.emplace_back(input.name.data(), input.name.size());
      input_dims_.emplace_back(input.dims.begin(), input.dims.end());
      std::vector<int>& dims = input_dims_.back();
      if (dims.empty()) dims.push_back(1);  // a scalar
      while (dims.size() < model.rank) dims.insert(dims.begin(), 1);
    }
    for (const OnnxTensor& output : graph.outputs) {
      output_names_.emplace_back(output.name.data(), output.name.size());
    }
  }

  // Throws what OpenCV throws.
  void RunOrThrow(const Vector<Vector<float>>& inputs) {
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      // OpenCV reads it only, and not after the run.
      const cv::Mat blob(input_dims_[i], CV_32F, const_cast<float*>(inputs[i].data()));
      net_.setInput(blob, input_names_[i]);
    }
    std::vector<cv::Mat> results;
    net_.forward(results, output_names_);
    outputs_.resize(results.size());
    // Copies: the network's own buffers are the next run's.
    for (std::size_t i = 0; i < results.size(); ++i) results[i].convertTo(outputs_[i], CV_32F);
  }

  bool Run(const Vector<Vector<float>>& inputs, String* why) override;

  // Of the first node that only its sizes show to be wrong; empty: none.
  String FindSizeProblem(const OnnxNodes& nodes) {
    std::map<std::string_view, Vector<int64_t>> dims;  // of values
    for (std::size_t i = 0; i < input_names_.size(); ++i) {
      dims[input_names_[i]].assign(input_dims_[i].begin(), input_dims_[i].end());
    }
    for (const auto& constant : nodes.constants)
      dims[constant.name] = ConstantDims(constant.tensor);
    const std::vector<cv::dnn::MatShape> shapes(input_dims_.begin(), input_dims_.end());
    std::vector<int> layers;
    std::vector<std::vector<cv::dnn::MatShape>> in, out;
    net_.getLayersShapes(shapes, layers, in, out);
    for (const OnnxNode& node : nodes.nodes) {
      const auto found = std::find(layers.begin(), layers.end(), LayerOf(node));
      if (found == layers.end()) continue;
      const auto& outputs = out[static_cast<std::size_t>(found - layers.begin())];
      for (std::size_t i = 0; i < outputs.size() && node.HasOutput(i); ++i) {
        dims[node.outputs[i]].assign(outputs[i].begin(), outputs[i].end());
      }
      OperationSizes sizes;
      for (const std::string_view input : node.inputs) sizes.inputs.push_back(dims[input]);
      sizes.output = dims[node.outputs[0]];
      if (const char* problem = SizeProblem(nodes, node, sizes)) return NodeProblem(node, problem);
    }
    return {};
  }

  Vector<int64_t> OutputDims(std::size_t i) const override {
    const cv::MatSize& size = outputs_[i].size;
    return Vector<int64_t>(size.p, size.p + outputs_[i].dims);
  }
  std::size_t OutputElements(std::size_t i) const override { return outputs_[i].total(); }
  void CopyOutput(std::size_t i, float* to) const override {
    const auto* from = outputs_[i].ptr<float>();
    std::copy(from, from + outputs_[i].total(), to);
  }

 private:
  // -1 for a node that is not a layer of its own.
  int LayerOf(const OnnxNode& node) {
    if (!node.HasOutput(0)) return -1;
    const std::string name = node.name.empty()
                                 ? "onnx_node_output_0!" + std::string(node.outputs[0])
                                 : "onnx_node!" + std::string(node.name);
    return net_.getLayerId(name);
  }

  cv::dnn::Net net_;
  std::vector<std::string> input_names_, output_names_;
  std::vector<std::vector<int>> input_dims_;
  std::vector<cv::Mat> outputs_;
};

// Calls action and turns what it throws into a reason.
template <typename Action>
bool Guarded(const char* what, String* why, Action action) {
  const auto refuse = [&](const char* reason) {
    *why = "OpenCV cannot ";
    *why += what;
    *why += " this ONNX model: ";
    *why += reason;
    *why += "; ONNX Runtime may";
    std::replace(why->begin(), why->end(), '\n', ' ');
    return false;
  };
  try {
    action();
    return true;
  } catch (const cv::Exception& exception) {
    if (exception.code == cv::Error::StsNoMem) throw std::bad_alloc();
    return refuse(exception.err.c_str());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    return refuse(exception.what());
  } catch (...) {
    return refuse("it does not say why");
  }
}

bool OpenCvNetwork::Run(const Vector<Vector<float>>& inputs, String* why) {
  return Guarded("run", why, [&] { RunOrThrow(inputs); });
}

Vector<String> Problems(const OnnxFile& file) {
  return OperatorProblems(OpenCvModel(file).nodes, *file.graph);
}

std::unique_ptr<OnnxNetwork> LoadOnOpenCv(const OnnxFile& file, String* why) {
  const OpenCvModel model(file);
  const OnnxNodes& nodes = model.nodes;
  const Vector<String> problems = OperatorProblems(nodes, *file.graph);
  if (!problems.empty()) {
    *why = problems[0];
    if (problems.size() == 1) return nullptr;
    char others[40];
    std::snprintf(others, sizeof(others), " (and %zu other nodes)", problems.size() - 1);
    *why += others;
    return nullptr;
  }
  cv::setNumThreads(ThreadsWanted());
  const QuietOpenCv quiet;
  std::unique_ptr<OpenCvNetwork> network;
  const auto load = [&] { network = std::make_unique<OpenCvNetwork>(model, *file.graph); };
  if (!Guarded("load", why, load) || !RunFirst(*file.graph, network.get(), why)) return nullptr;
  String problem;
  if (!Guarded("load", why, [&] { problem = network->FindSizeProblem(nodes); })) return nullptr;
  if (problem.empty()) return network;
  *why = problem;
  return nullptr;
}

}  // namespace

bool FindOpenCv(OnnxEngine* engine, String*) {
  engine->name = "OpenCV ";
  engine->name += cv::getVersionString();
  engine->may_be_wrong = true;
  engine->load = LoadOnOpenCv;
  engine->problems = Problems;
  return true;
}

}  // namespace rknn_sim

#include <algorithm>
#include <cstdio>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>
#include <string>
#include <vector>

#include "simulator/control/environment.h"
#include "simulator/engines/network.h"
#include "simulator/engines/opencv_operators.h"
#include "simulator/engines/opencv_rewrite.h"
#include "simulator/onnx/nodes.h"

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

class OpenCvNetwork final : public OnnxNetwork {
 public:
  OpenCvNetwork(const String& model, const OnnxGraph& graph, const OnnxNodes& nodes)
      : net_(cv::dnn::readNetFromONNX(model.data(), model.size())) {
    net_.enableFusion(MayFuse(nodes));
    net_.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    net_.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
    for (const OnnxTensor& input : graph.inputs) {
      input_names_.emplace_back(input.name.data(), input.name.size());
      input_dims_.emplace_back(input.dims.begin(), input.dims.end());
      std::vector<int>& dims = input_dims_.back();
      if (dims.empty()) dims.push_back(1);  // a scalar
      if (dims.size() == 1 && TakesVectorsAsRows(nodes)) dims.insert(dims.begin(), 1);
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

  // The sizes of what a node computes; none where its layer is not found.
  Vector<int64_t> DimsOf(const OnnxNode& node) {
    std::vector<cv::dnn::MatShape> shapes(input_dims_.begin(), input_dims_.end());
    const std::string names[] = {"onnx_node!" + std::string(node.name),
                                 "onnx_node_output_0!" + std::string(node.outputs.at(0))};
    for (const std::string& name : names) {
      const int layer = net_.getLayerId(name);
      if (layer < 0) continue;
      std::vector<cv::dnn::MatShape> in;
      std::vector<cv::dnn::MatShape> out;
      net_.getLayerShapes(shapes, layer, in, out);
      if (!out.empty()) return Vector<int64_t>(out[0].begin(), out[0].end());
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

// Null where there is none.
const OnnxNode* FindWrongSoftmax(const OnnxNodes& nodes, OpenCvNetwork* network) {
  for (const OnnxNode& node : nodes.nodes) {
    const bool is_softmax = node.op == "Softmax" || node.op == "LogSoftmax";
    if (!is_softmax || nodes.opset >= 13) continue;
    if (!IsSoftmaxOverOneAxis(node, nodes.opset, network->DimsOf(node))) return &node;
  }
  return nullptr;
}

Vector<String> Problems(const OnnxFile& file) {
  return OperatorProblems(ReadOnnxNodes(file.bytes), *file.graph);
}

std::unique_ptr<OnnxNetwork> LoadOnOpenCv(const OnnxFile& file, String* why) {
  const OnnxNodes nodes = ReadOnnxNodes(file.bytes);
  const Vector<String> problems = OperatorProblems(nodes, *file.graph);
  if (!problems.empty()) {
    *why = problems[0];
    if (problems.size() == 1) return nullptr;
    char others[40];
    std::snprintf(others, sizeof(others), " (and %zu other nodes)", problems.size() - 1);
    *why += others;
    return nullptr;
  }
  const String model = RewriteOnnx(file.bytes, nodes, ProducerFor(nodes));
  cv::setNumThreads(ThreadsWanted());
  const QuietOpenCv quiet;
  std::unique_ptr<OpenCvNetwork> network;
  const auto load = [&] { network = std::make_unique<OpenCvNetwork>(model, *file.graph, nodes); };
  if (!Guarded("load", why, load) || !RunFirst(*file.graph, network.get(), why)) return nullptr;
  const OnnxNode* wrong_softmax = nullptr;
  const auto find = [&] { wrong_softmax = FindWrongSoftmax(nodes, network.get()); };
  if (!Guarded("load", why, find)) return nullptr;
  if (wrong_softmax == nullptr) return network;
  *why = NodeProblem(*wrong_softmax,
                     "flattens several dimensions, as it did before opset 13; export it with "
                     "opset 13");
  return nullptr;
}

}  // namespace

bool FindOpenCv(OnnxEngine* engine, String*) {
  engine->name = String("OpenCV ") + cv::getVersionString().c_str();
  engine->may_be_wrong = true;
  engine->load = LoadOnOpenCv;
  engine->problems = Problems;
  return true;
}

}  // namespace rknn_sim

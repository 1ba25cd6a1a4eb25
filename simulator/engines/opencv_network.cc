#include <algorithm>
#include <mutex>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>
#include <shared_mutex>
#include <string>
#include <vector>

#include "simulator/control/environment.h"
#include "simulator/engines/network.h"
#include "simulator/engines/opencv_operators.h"
#include "simulator/engines/opencv_rewrite.h"
#include "simulator/engines/trial.h"
#include "simulator/forever.h"
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

// Networks run in parallel, but none runs while one is loaded: the child process of the trial must
// not inherit a lock of OpenCV's that another thread holds.
Forever<std::shared_mutex> loading_or_running;

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
  const std::shared_lock<std::shared_mutex> lock(*loading_or_running);
  return Guarded("run", why, [&] { RunOrThrow(inputs); });
}

struct Loading {
  const String* model;
  const OnnxNodes* nodes;
  const OnnxGraph* graph;
  std::unique_ptr<OpenCvNetwork> network;
};

// Null where there is none.
const OnnxNode* FindWrongSoftmax(const OnnxNodes& nodes, OpenCvNetwork* network) {
  for (const OnnxNode& node : nodes.nodes) {
    const bool is_softmax = node.op == "Softmax" || node.op == "LogSoftmax";
    if (!is_softmax || nodes.opset >= 13) continue;
    if (!IsSoftmaxOverOneAxis(node, nodes.opset, network->DimsOf(node))) return &node;
  }
  return nullptr;
}

bool LoadAndRun(void* subject, String* why) {
  auto& loading = *static_cast<Loading*>(subject);
  Vector<Vector<float>> zeros;
  for (const OnnxTensor& input : loading.graph->inputs) {
    std::size_t elements = 1;
    for (const int64_t dim : input.dims) elements *= static_cast<std::size_t>(dim);
    zeros.emplace_back(elements, 0.0f);
  }
  const QuietOpenCv quiet;
  const OnnxNode* wrong_softmax = nullptr;
  const bool is_loaded = Guarded("load", why, [&] {
    loading.network =
        std::make_unique<OpenCvNetwork>(*loading.model, *loading.graph, *loading.nodes);
    loading.network->RunOrThrow(zeros);
    wrong_softmax = FindWrongSoftmax(*loading.nodes, loading.network.get());
  });
  if (wrong_softmax == nullptr) return is_loaded;
  RefuseNode(*wrong_softmax,
             "flattens several dimensions, as it did before opset 13; export it with opset 13",
             why);
  return false;
}

}  // namespace

OnnxNetworkPointer LoadOnnxNetwork(const uint8_t* bytes, std::size_t size, const OnnxGraph& graph,
                                   String* why) {
  const std::string_view original(reinterpret_cast<const char*>(bytes), size);
  const OnnxNodes nodes = ReadOnnxNodes(original);
  if (!CheckOperators(nodes, graph, why)) return nullptr;
  const String model = RewriteOnnx(original, nodes, ProducerFor(nodes));
  const std::unique_lock<std::shared_mutex> lock(*loading_or_running);
  cv::setNumThreads(ThreadsWanted());
  Loading loading = {&model, &nodes, &graph, nullptr};
  // OpenCV's importer trusts a model's operations and attributes: with some it reads past its
  // buffers, divides by zero or asks for all memory.
  String reason;
  if (!TryInChild(LoadAndRun, &loading, &reason)) {
    const bool is_own = reason.compare(0, 6, "OpenCV") == 0 || reason.compare(0, 4, "node") == 0;
    *why = is_own ? reason : "OpenCV's import of this ONNX model " + reason;
    return nullptr;
  }
  if (!LoadAndRun(&loading, why)) return nullptr;
  return std::move(loading.network);
}

}  // namespace rknn_sim

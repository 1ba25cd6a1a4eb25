#include "simulator/models/onnx_model.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "simulator/engines/load_network.h"
#include "simulator/interface/report.h"
#include "simulator/interface/rknn_names.h"
#include "simulator/models/onnx_properties.h"
#include "simulator/numbers/tensor_codec.h"

namespace rknn_sim {

namespace {

int Shown(const String& text) { return static_cast<int>(std::min<std::size_t>(text.size(), 60)); }

void SetName(const String& name, rknn_tensor_attr* attr) {
  std::memcpy(attr->name, name.data(), std::min<std::size_t>(name.size(), RKNN_MAX_NAME_LEN - 1));
}

// False for sizes that no tensor of the simulator can have.
bool SetDims(const Vector<int64_t>& dims, rknn_tensor_attr* attr) {
  if (dims.size() > RKNN_MAX_DIMS) return false;
  uint64_t elements = 1;
  for (const int64_t dim : dims) {
    if (dim < 1 || static_cast<uint64_t>(dim) > kMaxElements) return false;
    elements *= static_cast<uint64_t>(dim);
    if (elements > kMaxElements) return false;
  }
  attr->n_dims = std::max<uint32_t>(1, static_cast<uint32_t>(dims.size()));
  attr->dims[0] = 1;  // of a scalar
  std::reverse_copy(dims.begin(), dims.end(), attr->dims);
  attr->n_elems = static_cast<uint32_t>(elements);
  return true;
}

// Whether the sizes, some of which the file may leave open, can be the others.
bool Fit(const OnnxTensor& declared, const Vector<int64_t>& dims) {
  if (!declared.has_shape || declared.dims.size() != dims.size()) return !declared.has_shape;
  for (std::size_t i = 0; i < dims.size(); ++i) {
    if (declared.dims[i] != kOpenDim && declared.dims[i] != dims[i]) return false;
  }
  return true;
}

// Whether the sizes are the attribute's, but for those of 1.
bool HasDims(const rknn_tensor_attr& attr, Vector<int64_t> dims) {
  Vector<int64_t> wanted(attr.dims, attr.dims + attr.n_dims);
  std::reverse(wanted.begin(), wanted.end());
  wanted.erase(std::remove(wanted.begin(), wanted.end(), 1), wanted.end());
  dims.erase(std::remove(dims.begin(), dims.end(), 1), dims.end());
  return dims == wanted;
}

// "1x3x112x112", as ONNX has them.
String SizesText(const Vector<int64_t>& dims) {
  String text;
  for (const int64_t dim : dims) {
    char number[24];
    std::snprintf(number, sizeof(number), "%s%lld", text.empty() ? "" : "x",
                  static_cast<long long>(dim));
    text += number;
  }
  return text.empty() ? String("a scalar") : text;
}

bool DescribeInput(OnnxTensor* input, rknn_tensor_attr* attr, String* why) {
  SetName(input->name, attr);
  attr->scale = 1.0f;
  const int shown = Shown(input->name);
  if (!NativeType(input->type, &attr->type)) {
    return Refuse(why,
                  "the model's input '%.*s' has elements of ONNX type %llu; wanted float, float16, "
                  "int8, uint8 or int16",
                  shown, input->name.data(), static_cast<unsigned long long>(input->type));
  }
  if (!input->has_shape) {
    return Refuse(why, "the model's input '%.*s' has no shape; wanted its sizes", shown,
                  input->name.data());
  }
  input->FixBatch();
  const auto open = std::find(input->dims.begin(), input->dims.end(), kOpenDim);
  if (open != input->dims.end()) {
    return Refuse(why,
                  "the model's input '%.*s' leaves dimension %d open; wanted a fixed size: "
                  "export the model with one",
                  shown, input->name.data(), static_cast<int>(open - input->dims.begin()));
  }
  if (SetDims(input->dims, attr)) return true;
  return Refuse(why,
                "the model's input '%.*s' has no possible shape; wanted at most 16 dimensions "
                "and 2^26 elements",
                shown, input->name.data());
}

void SetBytes(rknn_tensor_attr* attr) {
  attr->size = attr->n_elems * static_cast<uint32_t>(ElementBytes(attr->type));
}

class OnnxModel final : public ExecutableModel {
 public:
  bool Load(const uint8_t* bytes, std::size_t size, String* why) {
    OnnxGraph graph;
    if (!ReadOnnx(bytes, size, &graph, why)) return false;
    if (graph.inputs.size() > kMaxTensors || graph.outputs.size() > kMaxTensors) {
      return Refuse(why, "the model has %zu inputs and %zu outputs; wanted at most %zu of a kind",
                    graph.inputs.size(), graph.outputs.size(), kMaxTensors);
    }
    uint64_t elements = 0;
    for (OnnxTensor& input : graph.inputs) {
      rknn_tensor_attr attr = {};
      attr.index = static_cast<uint32_t>(inputs_.size());
      if (!DescribeInput(&input, &attr, why)) return false;
      const bool is_first = inputs_.empty();
      if (is_first && !ReadInputProperties(graph, &attr, &properties_, why)) return false;
      if (!is_first && attr.type == RKNN_TENSOR_INT16) attr.qnt_type = RKNN_TENSOR_QNT_DFP;
      SetBytes(&attr);
      elements += attr.n_elems;
      inputs_.push_back(attr);
    }
    if (elements > kMaxElements)
      return Refuse(why, "the model's inputs have more than 2^26 elements");
    const std::string_view file(reinterpret_cast<const char*>(bytes), size);
    network_ = LoadedNetwork::Load({file, &graph}, why);
    return network_ != nullptr && DescribeOutputs(graph, why);
  }

  const char* computed_by() const override { return network_->engine().name.c_str(); }

  bool NeedsInput(uint32_t) const override { return true; }

  void ConvertInput(uint32_t i, Vector<float>* numbers) const override {
    const rknn_tensor_attr& attr = inputs_[i];
    if (i == 0) {
      const std::size_t channels = ChannelsOf(attr);
      const std::size_t plane = channels == 1 ? attr.n_elems : attr.dims[0] * attr.dims[1];
      for (std::size_t k = 0; k < numbers->size(); ++k) {
        const std::size_t channel = k / plane % channels;
        float& number = (*numbers)[k];
        if (!properties_.means.empty()) number -= properties_.means[channel];
        if (!properties_.scales.empty()) number *= properties_.scales[channel];
      }
    }
    RoundToNative(attr, numbers);
  }

  int Run(const Vector<Vector<float>>& inputs, String* why) override {
    if (!network_->Run(inputs, why)) return RKNN_ERR_FAIL;
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
      const Vector<int64_t> dims = network_->outputs().OutputDims(i);
      const rknn_tensor_attr& attr = outputs_[i];
      if (HasDims(attr, dims)) continue;
      Vector<int64_t> wanted(attr.dims, attr.dims + attr.n_dims);
      std::reverse(wanted.begin(), wanted.end());
      Refuse(why, "output %zu is %s; wanted %s, as at rknn_init", i, SizesText(dims).c_str(),
             SizesText(wanted).c_str());
      return RKNN_ERR_FAIL;
    }
    return RKNN_SUCC;
  }

  void CopyOutput(uint32_t i, float* to) const override { network_->outputs().CopyOutput(i, to); }

 private:
  // As declared where the file fixes the sizes, else as the network's first run had them.
  bool DescribeOutputs(const OnnxGraph& graph, String* why) {
    uint64_t elements = 0;
    for (const OnnxTensor& output : graph.outputs) {
      rknn_tensor_attr attr = {};
      attr.index = static_cast<uint32_t>(outputs_.size());
      SetName(output.name, &attr);
      attr.scale = 1.0f;
      const Vector<int64_t> computed = network_->outputs().OutputDims(outputs_.size());
      const bool is_declared = output.has_shape && SetDims(output.dims, &attr);
      // Another input may give the declared sizes, if the engine is one that computes them right.
      const bool is_right = is_declared ? HasDims(attr, computed) : Fit(output, computed);
      if (network_->engine().may_be_wrong && !is_right) {
        return Refuse(
            why,
            "the model's output '%.*s' has other sizes than the file declares; the engine "
            "computes something else, or the declaration is wrong",
            Shown(output.name), output.name.data());
      }
      if (!is_declared && !SetDims(computed, &attr)) {
        return Refuse(why,
                      "the model's output '%.*s' has %zu elements; wanted 1 to 2^26 in at most "
                      "16 dimensions",
                      Shown(output.name), output.name.data(),
                      network_->outputs().OutputElements(outputs_.size()));
      }
      SetBytes(&attr);
      elements += attr.n_elems;
      outputs_.push_back(attr);
    }
    return elements <= kMaxElements ||
           Refuse(why, "the model's outputs have more than 2^26 elements");
  }

  OnnxInputProperties properties_;
  std::unique_ptr<LoadedNetwork> network_;
};

}  // namespace

ModelPointer MakeOnnxModel(const uint8_t* bytes, std::size_t size, String* why) {
  auto model = std::make_unique<OnnxModel>();
  if (!model->Load(bytes, size, why)) return nullptr;
  return model;
}

}  // namespace rknn_sim

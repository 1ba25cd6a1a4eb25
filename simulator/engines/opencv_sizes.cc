#include "simulator/engines/opencv_sizes.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace rknn_sim {

namespace {

// A Softmax of an opset below 13 flattens all dimensions from its axis on, OpenCV only takes that
// one.
bool IsOverOneAxis(const OnnxNode& node, const Vector<int64_t>& dims) {
  const auto rank = static_cast<int64_t>(dims.size());
  int64_t axis = node.IntOr("axis", 1);
  if (axis < 0) axis += rank;
  if (axis < 0 || axis >= rank) return false;
  return std::all_of(dims.begin() + axis + 1, dims.end(), [](int64_t dim) { return dim == 1; });
}

// ONNX lays a constant's last axis on the value's last one. OpenCV lays all its elements on the
// value's axes from the first or the second on, as many of them as have that many elements.
bool IsLaidAsInOnnx(Vector<int64_t> constant, const Vector<int64_t>& value) {
  int64_t elements = 1;
  for (const int64_t dim : constant) elements *= dim;
  if (elements == 1 || constant == value) return true;
  if (constant.size() > value.size()) return false;
  constant.insert(constant.begin(), value.size() - constant.size(), 1);
  if (constant[0] != 1) return false;
  for (std::size_t first = 0; first < 2; ++first) {
    Vector<int64_t> laid(value.size(), 1);
    int64_t found = 1;
    for (std::size_t axis = first; axis < value.size() && found < elements; ++axis) {
      laid[axis] = value[axis];
      found *= value[axis];
    }
    if (found == elements && constant != laid) return false;
  }
  return true;
}

// ONNX takes the scales as they are, OpenCV the ratio of the sizes.
bool AreScalesExact(const OnnxNodes& nodes, const OnnxNode& node, const OperationSizes& sizes) {
  const std::size_t place = node.op == "Resize" ? 2 : 1;
  Vector<float> scales;
  const auto* constant = node.HasInput(place) ? nodes.FindConstant(node.inputs[place]) : nullptr;
  if (constant == nullptr || !ConstantFloats(constant->tensor, &scales) || scales.empty()) {
    return true;  // by sizes
  }
  const Vector<int64_t>& from = sizes.inputs[0];
  if (scales.size() != from.size() || sizes.output.size() != from.size()) return false;
  for (std::size_t i = 0; i < scales.size(); ++i) {
    const auto wanted = static_cast<double>(scales[i]) * static_cast<double>(from[i]);
    if (std::fabs(wanted - static_cast<double>(sizes.output[i])) > 1e-4) return false;
  }
  return true;
}

bool IsMultiple(const Vector<int64_t>& of, const Vector<int64_t>& dims) {
  for (std::size_t axis = 0; axis < of.size() && axis < dims.size(); ++axis) {
    if (dims[axis] % of[axis] != 0) return false;
  }
  return true;
}

// Rounded up, a pool's last window may lie beyond the value, which engines treat differently.
bool HasWindowBeyond(const OnnxNode& node, const Vector<int64_t>& from) {
  const OnnxAttribute* const kernel = node.Find("kernel_shape");
  const auto at = [&](const char* attribute, std::size_t i, int64_t otherwise) {
    const OnnxAttribute* const found = node.Find(attribute);
    return found != nullptr && i < found->ints.size() ? found->ints[i] : otherwise;
  };
  const std::size_t axes = kernel == nullptr ? 0 : kernel->ints.size();
  for (std::size_t axis = 0; axis < axes && axis + 2 < from.size(); ++axis) {
    const int64_t stride = at("strides", axis, 1), pad = at("pads", axis, 0);
    const int64_t size = from[axis + 2];
    const int64_t room = size + pad + at("pads", axis + axes, 0) - kernel->ints[axis];
    const int64_t last = (room + stride - 1) / stride * stride;  // where the last window begins
    if (last - pad >= size) return true;
  }
  return false;
}

// One number, or one for each channel.
bool IsByChannel(Vector<int64_t> slope, std::size_t rank) {
  slope.insert(slope.begin(), rank > slope.size() ? rank - slope.size() : 0, 1);
  for (std::size_t axis = 0; axis < slope.size(); ++axis) {
    if (axis != 1 && slope[axis] != 1) return false;
  }
  return true;
}

std::size_t Expanded(const Vector<int64_t>& from, const Vector<int64_t>& to) {
  std::size_t count = from.size() < to.size() ? to.size() - from.size() : 0;
  for (std::size_t axis = count; axis < to.size(); ++axis) {
    count += from[axis - (to.size() - from.size())] != to[axis] ? 1 : 0;
  }
  return count;
}

const char* ProblemOfArithmetic(const OnnxNodes& nodes, const OnnxNode& node,
                                const OperationSizes& sizes) {
  const Vector<Vector<int64_t>>& in = sizes.inputs;
  bool has_constant = false;
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (nodes.FindConstant(node.inputs[i]) == nullptr) continue;
    has_constant = true;
    if (!IsLaidAsInOnnx(in[i], sizes.output)) {
      return "has a constant whose sizes fit more than one axis; give it all dimensions";
    }
  }
  // Mul and Div are right where the second value is expanded, but not the first of Div.
  const bool expands = !has_constant && in.size() == 2 && in[0] != in[1];
  if (!expands || node.op == "Mul" || (node.op == "Div" && in[0] == sizes.output)) return nullptr;
  return "takes computed values of different sizes; expand one of them before";
}

const char* ProblemOfResize(const OnnxNodes& nodes, const OnnxNode& node,
                            const OperationSizes& sizes) {
  if (!AreScalesExact(nodes, node, sizes)) {
    return "has scales that do not give whole sizes; export it with sizes instead";
  }
  const OnnxAttribute* const mode = node.Find("mode");
  const OnnxAttribute* const where = node.Find("coordinate_transformation_mode");
  const bool is_nearest_half_pixel = node.op == "Resize" &&
                                     (mode == nullptr || mode->s == "nearest") &&
                                     (where == nullptr || where->s == "half_pixel");
  if (!is_nearest_half_pixel || IsMultiple(sizes.inputs[0], sizes.output)) return nullptr;
  return "takes the nearest pixel at other than whole multiples; export it as asymmetric with "
         "floor";
}

}  // namespace

const char* SizeProblem(const OnnxNodes& nodes, const OnnxNode& node, const OperationSizes& sizes) {
  const std::string_view op = node.op;
  const Vector<Vector<int64_t>>& in = sizes.inputs;
  if ((op == "Softmax" || op == "LogSoftmax") && nodes.opset < 13 &&
      !IsOverOneAxis(node, sizes.output)) {
    return "flattens several dimensions, as it did before opset 13; export it with opset 13";
  }
  if (in.empty() || in[0].empty() || sizes.output.empty()) return nullptr;
  if ((op == "Max" || op == "Min" || op == "Sum") &&
      std::any_of(in.begin(), in.end(), [&](const auto& dims) { return dims != in[0]; })) {
    return "takes values of several sizes; expand them before";
  }
  static constexpr std::string_view kArithmetic[] = {"Add", "Div", "Greater", "Less", "Mul", "Sub"};
  if (std::find(std::begin(kArithmetic), std::end(kArithmetic), op) != std::end(kArithmetic)) {
    return ProblemOfArithmetic(nodes, node, sizes);
  }
  // Before opset 7 a slope had one dimension, the channels.
  const bool has_old_slope = nodes.opset < 7 && in.size() > 1 && in[1].size() == 1;
  if (op == "PRelu" && in.size() > 1 && !has_old_slope && !IsByChannel(in[1], in[0].size())) {
    return "has a slope that is neither one number nor one for each channel";
  }
  if ((op == "MaxPool" || op == "AveragePool") && node.IntOr("ceil_mode", 0) != 0 &&
      HasWindowBeyond(node, in[0])) {
    return "has windows beyond its value; leave ceil_mode out";
  }
  if (op == "Expand" && in[0][0] > 1 && Expanded(in[0], sizes.output) > 1) {
    return "expands several dimensions of a batch; export it with batch 1";
  }
  return op == "Resize" || op == "Upsample" ? ProblemOfResize(nodes, node, sizes) : nullptr;
}

}  // namespace rknn_sim

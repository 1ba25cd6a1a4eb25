#include "simulator/engines/opencv_windows.h"

#include <algorithm>
#include <functional>

namespace rknn_sim {

namespace {

std::string_view AutoPad(const OnnxNode& node) {
  const OnnxAttribute* const found = node.Find("auto_pad");
  return found == nullptr ? "NOTSET" : found->s;
}

bool HasPadding(const OnnxNode& node) {
  const OnnxAttribute* const pads = node.Find("pads");
  const bool has_pads = pads != nullptr && std::any_of(pads->ints.begin(), pads->ints.end(),
                                                       [](int64_t pad) { return pad != 0; });
  return has_pads || AutoPad(node) == "SAME_UPPER" || AutoPad(node) == "SAME_LOWER";
}

bool AllAre(const OnnxNode& node, std::string_view attribute, int64_t value) {
  const OnnxAttribute* const found = node.Find(attribute);
  return found == nullptr ||
         std::all_of(found->ints.begin(), found->ints.end(), [&](int64_t i) { return i == value; });
}

bool AllAreOdd(const OnnxNode& node, std::string_view attribute) {
  const OnnxAttribute* const found = node.Find(attribute);
  return found != nullptr &&
         std::all_of(found->ints.begin(), found->ints.end(), [](int64_t i) { return i % 2 == 1; });
}

// Of one dimension.
bool HasUnequalPads1d(const OnnxNode& node) {
  const OnnxAttribute* const pads = node.Find("pads");
  return pads != nullptr && pads->ints.size() == 2 && pads->ints[0] != pads->ints[1];
}

// With others OpenCV reads and writes past its buffers.
const char* ProblemOfConvTranspose(const OnnxNode& node) {
  const OnnxAttribute* const kernel = node.Find("kernel_shape");
  const OnnxAttribute* const pads = node.Find("pads");
  if (kernel == nullptr || kernel->ints.size() != 2) {
    return "has no kernel_shape of two dimensions; export it as a convolution of two";
  }
  if (!AllAre(node, "dilations", 1)) return "has dilations; use a larger kernel with zeros";
  if (node.Find("output_shape") != nullptr || AutoPad(node) != "NOTSET") {
    return "leaves its padding to the output's sizes; export it with explicit pads";
  }
  for (std::size_t i = 0; pads != nullptr && i < pads->ints.size(); ++i) {
    if (pads->ints[i] >= kernel->ints[i % 2]) return "pads more than its kernel; cut its output";
  }
  return nullptr;
}

bool IsSteppedBeyondItsKernel(const OnnxNode& node) {
  const OnnxAttribute* const kernel = node.Find("kernel_shape");
  const OnnxAttribute* const strides = node.Find("strides");
  if (AutoPad(node) != "SAME_UPPER" || kernel == nullptr || strides == nullptr) return false;
  return !std::equal(strides->ints.begin(), strides->ints.end(), kernel->ints.begin(),
                     kernel->ints.end(), std::less_equal<int64_t>());
}

const char* ProblemOfPool(const OnnxNode& node) {
  if (node.IntOr("ceil_mode", 0) != 0 && AutoPad(node) != "NOTSET") {
    return "has ceil_mode and auto_pad; export it with explicit pads";
  }
  if (AutoPad(node) == "SAME_LOWER") return "has auto_pad SAME_LOWER; export it with explicit pads";
  if (!AllAre(node, "dilations", 1)) return "has dilations; use a convolution or a smaller kernel";
  if (node.op == "AveragePool" && node.IntOr("ceil_mode", 0) != 0 &&
      (HasPadding(node) || CountsPadding(node))) {
    return "pads and rounds its sizes up; leave ceil_mode out";
  }
  if (node.op == "AveragePool" && AutoPad(node) == "SAME_UPPER" && CountsPadding(node)) {
    return "averages over automatic padding; export it with explicit pads";
  }
  if (HasUnequalPads1d(node)) return "pads its ends differently; use a Pad before";
  return nullptr;
}

}  // namespace

bool IsPaddedAverage(const OnnxNode& node) { return node.op == "AveragePool" && HasPadding(node); }

bool CountsPadding(const OnnxNode& node) { return node.IntOr("count_include_pad", 0) != 0; }

const char* WindowProblem(const OnnxNode& node) {
  const std::string_view op = node.op;
  if (op == "ConvTranspose") return ProblemOfConvTranspose(node);
  const bool is_pool = op == "AveragePool" || op == "MaxPool";
  if (!is_pool && op != "Conv") return nullptr;
  if (HasUnequalPads1d(node)) return "pads its ends differently; use a Pad before";
  if (IsSteppedBeyondItsKernel(node)) {
    return "has auto_pad and strides above its kernel; export it with explicit pads";
  }
  if (is_pool) return ProblemOfPool(node);
  const bool is_symmetric = AllAre(node, "strides", 1) && AllAreOdd(node, "kernel_shape");
  if (AutoPad(node) != "SAME_LOWER" || is_symmetric) return nullptr;
  return "has auto_pad SAME_LOWER; export it with explicit pads";
}

}  // namespace rknn_sim

#include "simulator/engines/opencv_values.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace rknn_sim {

namespace {

constexpr int64_t kMaxParts = 1024;

template <std::size_t count>
bool IsIn(const std::string_view (&names)[count], std::string_view name) {
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

}  // namespace

const OnnxNode* OnnxValues::ProducerOf(std::string_view value) const {
  for (const OnnxNode& node : nodes_.nodes) {
    const auto& outputs = node.outputs;
    if (std::find(outputs.begin(), outputs.end(), value) == outputs.end()) continue;
    return node.HasInput(0) ? &node : nullptr;
  }
  return nullptr;
}

bool OnnxValues::IsMadeBy(std::string_view op, std::string_view value) const {
  const OnnxNode* const node = ProducerOf(value);
  return node != nullptr && node->op == op;
}

bool OnnxValues::Number(std::string_view value, float* number) const {
  Vector<float> numbers;
  const auto* constant = nodes_.FindConstant(value);
  const bool is_one =
      constant != nullptr && ConstantFloats(constant->tensor, &numbers) && numbers.size() == 1;
  if (is_one) *number = numbers[0];
  return is_one;
}

bool OnnxValues::IsOneNumber(std::string_view value) const {
  float ignored = 0;
  return Number(value, &ignored);
}

bool OnnxValues::WholeNumber(std::string_view value, int64_t* number) const {
  Vector<int64_t> numbers;
  const auto* constant = nodes_.FindConstant(value);
  const bool is_one =
      constant != nullptr && ConstantInts(constant->tensor, &numbers) && numbers.size() == 1;
  if (is_one) *number = numbers[0];
  return is_one;
}

std::size_t OnnxValues::RankOf(std::string_view value, int depth) const {
  for (const OnnxTensor& input : graph_.inputs) {
    if (value == input.name) return input.dims.size();
  }
  const OnnxNode* const node = depth == 0 ? nullptr : ProducerOf(value);
  if (node == nullptr) return 0;
  if (node->op == "Gemm" || node->op == "Flatten") return 2;
  static constexpr std::string_view kKeepRank[] = {"AveragePool", "BatchNormalization",
                                                   "Clip",        "Conv",
                                                   "Dropout",     "GlobalAveragePool",
                                                   "Identity",    "MaxPool",
                                                   "PRelu",       "Relu",
                                                   "Tanh"};
  const bool is_scaled_or_squared =
      (node->op == "Mul" && node->inputs.back() == node->inputs[0]) ||
      ((node->op == "Mul" || node->op == "Pow") && IsOneNumber(node->inputs.back()));
  if (is_scaled_or_squared || IsIn(kKeepRank, node->op)) return RankOf(node->inputs[0], depth - 1);
  const OnnxAttribute* const axes = node->Find("axes");
  const bool drops_axes =
      axes != nullptr && (node->op == "Squeeze" ||
                          (node->op.substr(0, 6) == "Reduce" && node->IntOr("keepdims", 1) == 0));
  const std::size_t rank = drops_axes ? RankOf(node->inputs[0], depth - 1) : 0;
  return rank > 0 && rank > axes->ints.size() ? rank - axes->ints.size() : 0;
}

bool OnnxValues::IsRow(std::string_view value) const {
  const auto is_batch_one = [](const OnnxTensor& input) {
    return input.dims.empty() || input.dims[0] == 1;
  };
  return RankOf(value) == 2 &&
         std::all_of(graph_.inputs.begin(), graph_.inputs.end(), is_batch_one);
}

const OnnxNode* OnnxValues::ReductionOf(std::string_view value, int depth) const {
  const OnnxNode* const node = depth == 0 ? nullptr : ProducerOf(value);
  if (node == nullptr) return nullptr;
  if (node->op.substr(0, 6) == "Reduce") {
    return node->IntOr("keepdims", 1) != 0 ? node : nullptr;
  }
  static constexpr std::string_view kElementwise[] = {
      "Add", "Clip", "Div", "Expand", "Max", "Min", "Mul", "Pow", "Reciprocal", "Sqrt", "Sub"};
  if (!IsIn(kElementwise, node->op)) return nullptr;
  const bool is_of_second = IsOneNumber(node->inputs[0]) && node->HasInput(1);
  const bool is_pair = node->HasInput(1) && node->op != "Expand" && !is_of_second;
  if (is_pair && !IsOneNumber(node->inputs[1])) return nullptr;
  return ReductionOf(node->inputs[is_of_second ? 1 : 0], depth - 1);
}

// Follows a size of a value, as PyTorch writes chunk: (size + parts - 1) / parts * count.
bool OnnxValues::FindPortion(std::string_view value, OnnxPortion* portion, int depth) const {
  const OnnxNode* const node = depth == 0 ? nullptr : ProducerOf(value);
  int64_t number = 0;
  if (node == nullptr) return false;
  if (node->op == "Unsqueeze") return FindPortion(node->inputs[0], portion, depth - 1);
  if (!node->HasInput(1) || !WholeNumber(node->inputs[1], &number)) return false;
  if (node->op == "Gather" && IsMadeBy("Shape", node->inputs[0])) {
    portion->value = ProducerOf(node->inputs[0])->inputs[0];
    portion->axis = number;
    return true;
  }
  const bool is_rounded_up = node->op == "Div" && IsMadeBy("Add", node->inputs[0]);
  const OnnxNode* const size = is_rounded_up ? ProducerOf(node->inputs[0]) : node;
  int64_t added = 0;
  if (is_rounded_up &&
      (!size->HasInput(1) || !WholeNumber(size->inputs[1], &added) || added != number - 1)) {
    return false;
  }
  if (!FindPortion(size->inputs[0], portion, depth - 1)) return false;
  int64_t& part = node->op == "Div" ? portion->parts : portion->count;
  if (part != 1 || (node->op != "Div" && node->op != "Mul")) return false;
  part = number;
  return true;
}

bool OnnxValues::IsPart(const OnnxNode& node, OnnxPortion* part) const {
  if (node.op != "Slice" || node.inputs.size() < 4 || !node.HasOutput(0)) return false;
  int64_t start = -1, end = 0, axis = 0, step = 1;
  OnnxPortion from;
  if (node.HasInput(4) && !WholeNumber(node.inputs[4], &step)) return false;
  if (step != 1 || !WholeNumber(node.inputs[3], &axis)) return false;
  const bool is_first = WholeNumber(node.inputs[1], &start) && start == 0;
  if (!is_first && !FindPortion(node.inputs[1], &from)) return false;
  const bool is_last =
      !is_first && WholeNumber(node.inputs[2], &end) && end == std::numeric_limits<int64_t>::max();
  *part = is_last ? from : OnnxPortion();
  if (is_last) part->count = from.parts;
  if (!is_last && !FindPortion(node.inputs[2], part)) return false;
  if (is_first) from = {part->value, part->axis, part->parts, 0};
  return part->value == node.inputs[0] && part->axis == axis && part->parts > 1 &&
         part->parts <= kMaxParts && part->count <= part->parts && part->count == from.count + 1 &&
         from.value == part->value && from.axis == axis && from.parts == part->parts;
}

}  // namespace rknn_sim

#include "simulator/engines/opencv_operators.h"

#include <algorithm>

#include "simulator/engines/opencv_operator_list.h"
#include "simulator/interface/report.h"

namespace rknn_sim {

namespace {

// Of whole numbers: these only move them. Others would have to round, wrap or divide as integers.
constexpr std::string_view kMovesIntegers[] = {
    "Cast",  "Concat", "Flatten", "Gather",  "Identity",  "MaxPool",  "Reshape",
    "Shape", "Slice",  "Split",   "Squeeze", "Transpose", "Unsqueeze"};

constexpr int64_t kFloat = 1, kHalf = 10, kDouble = 11;

template <std::size_t count>
bool IsIn(const std::string_view (&sorted)[count], std::string_view name) {
  return std::binary_search(std::begin(sorted), std::end(sorted), name);
}

using Names = Vector<std::string_view>;

bool Has(const Names& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool HasAny(const Names& names, const OnnxNode& node) {
  return std::any_of(node.inputs.begin(), node.inputs.end(),
                     [&](std::string_view input) { return !input.empty() && Has(names, input); });
}

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

class Checker {
 public:
  Checker(const OnnxNodes& nodes, const OnnxGraph& graph) : nodes_(nodes), graph_(graph) {
    for (const OnnxTensor& input : graph.inputs) {
      computed_.push_back(input.name);
      const bool is_float = input.type == kOnnxFloat || input.type == kOnnxFloat16;
      if (!is_float) whole_.push_back(input.name);
    }
  }

  // In the file's order, which is one that computes every value before it is read.
  const char* Problem(const OnnxNode& node) {
    if (!node.domain.empty() && node.domain != "ai.onnx") {
      return "is of a domain of its own; export it as ONNX's own operators";
    }
    if (!IsIn(kOperators, node.op)) {
      return "is not among the operators that OpenCV is known to compute right; replace it in the "
             "network, or fold it if it is constant";
    }
    const bool is_computed = HasAny(computed_, node) && node.op != "Shape";
    const bool is_whole = HasAny(whole_, node);
    if (is_whole && is_computed && !IsIn(kMovesIntegers, node.op)) {
      return "computes with whole numbers, which OpenCV treats as floats; cast them to float "
             "before";
    }
    if (const char* problem = ProblemOfOperator(node, is_computed, is_whole)) return problem;
    const bool gives_whole = node.op == "ArgMax" || node.op == "ArgMin" || node.op == "Greater" ||
                             node.op == "Less" || (is_whole && node.op != "Cast");
    for (const std::string_view output : node.outputs) {
      if (is_computed) computed_.push_back(output);
      if (gives_whole) whole_.push_back(output);
    }
    return nullptr;
  }

 private:
  const char* ProblemOfOperator(const OnnxNode& node, bool is_computed, bool is_whole) const {
    const std::string_view op = node.op;
    if (op == "AveragePool" || op == "MaxPool") return ProblemOfPool(node);
    if (op == "Conv" && AutoPad(node) == "SAME_LOWER" &&
        !(AllAre(node, "strides", 1) && AllAreOdd(node, "kernel_shape"))) {
      return "has auto_pad SAME_LOWER; export it with explicit pads";
    }
    if (op == "ConvTranspose" &&
        (node.Find("output_shape") != nullptr || AutoPad(node) != "NOTSET")) {
      return "leaves its padding to the output's sizes; export it with explicit pads";
    }
    if (op == "Cast") return ProblemOfCast(node, is_computed, is_whole);
    if (op == "Concat" && node.IntOr("axis", 0) < 0 && HasInputOfRank(1)) {
      return "has a negative axis in a graph with 1-D inputs; write the axis from the front";
    }
    if ((op == "Dropout" || op == "BatchNormalization") &&
        (node.HasOutput(1) || node.IntOr("training_mode", 0) != 0)) {
      return "is in training mode; export the network in evaluation mode";
    }
    if (op == "InstanceNormalization" && !IsBatchOne()) {
      return "normalises a batch of several; export it with batch 1";
    }
    if (op == "ReduceL2" && IsNorm(node) && !IsOverChannels(node)) {
      return "normalises over an axis other than 1; transpose before, or divide by Sqrt(ReduceSum)";
    }
    if (op == "Gemm" && (Factor(node, "alpha") != 1 || Factor(node, "beta") != 1)) {
      return "has an alpha or beta other than 1; fold it into the weights";
    }
    if (op == "Upsample" && Text(node, "mode", "nearest") != "nearest") {
      return "is not by the nearest pixel; export it as Resize, with opset 11 or later";
    }
    if (op == "Resize") return ProblemOfResize(node);
    if (op == "Pad" && Text(node, "mode", "constant") == "wrap") return "has mode wrap; pad before";
    return nullptr;
  }

  const char* ProblemOfPool(const OnnxNode& node) const {
    if (AutoPad(node) == "SAME_LOWER")
      return "has auto_pad SAME_LOWER; export it with explicit pads";
    if (!AllAre(node, "dilations", 1))
      return "has dilations; use a convolution or a smaller kernel";
    if (node.HasOutput(1) && nodes_.IsRead(node.outputs[1])) {
      return "gives the indices of its maxima; leave them out";
    }
    return nullptr;
  }

  static const char* ProblemOfCast(const OnnxNode& node, bool is_computed, bool is_whole) {
    const int64_t to = node.IntOr("to", kFloat);
    const bool is_float = to == kFloat || to == kHalf || to == kDouble;
    if (is_float || !is_computed) return nullptr;
    return is_whole && to != 16 ? nullptr
                                : "rounds to another type, which OpenCV does not; leave it out, or "
                                  "use Floor or Round";
  }

  static const char* ProblemOfResize(const OnnxNode& node) {
    const std::string_view where = Text(node, "coordinate_transformation_mode", "half_pixel");
    const std::string_view mode = Text(node, "mode", "nearest");
    const std::string_view rounding = Text(node, "nearest_mode", "round_prefer_floor");
    const bool is_nearest =
        mode == "nearest" && ((where == "asymmetric" && rounding == "floor") ||
                              (where == "half_pixel" && rounding == "round_prefer_floor"));
    const bool is_linear = mode == "linear" && where != "tf_crop_and_resize";
    if ((is_nearest || is_linear) && node.IntOr("antialias", 0) == 0) return nullptr;
    return "is neither linear nor nearest (asymmetric with floor, or half_pixel); export it as one "
           "of them";
  }

  static std::string_view Text(const OnnxNode& node, std::string_view name,
                               std::string_view otherwise) {
    const OnnxAttribute* const found = node.Find(name);
    return found == nullptr ? otherwise : found->s;
  }

  static float Factor(const OnnxNode& node, std::string_view name) {
    const OnnxAttribute* const found = node.Find(name);
    return found == nullptr ? 1 : found->f;
  }

  bool HasInputOfRank(std::size_t rank) const {
    return std::any_of(graph_.inputs.begin(), graph_.inputs.end(),
                       [&](const OnnxTensor& input) { return input.dims.size() == rank; });
  }

  bool IsBatchOne() const {
    return std::all_of(graph_.inputs.begin(), graph_.inputs.end(), [](const OnnxTensor& input) {
      return input.dims.empty() || input.dims[0] == 1;
    });
  }

  // Whether a division by the node's output follows, which OpenCV takes for a normalisation.
  bool IsNorm(const OnnxNode& norm) const {
    Names from = norm.outputs;
    for (const OnnxNode& node : nodes_.nodes) {
      if (!HasAny(from, node)) continue;
      if (node.op == "Div") return true;
      if (node.op == "Clip" || node.op == "Expand" || node.op == "Add" || node.op == "Max") {
        from.insert(from.end(), node.outputs.begin(), node.outputs.end());
      }
    }
    return false;
  }

  bool IsOverChannels(const OnnxNode& norm) const {
    const OnnxAttribute* const axes = norm.Find("axes");
    if (axes == nullptr || axes->ints.size() != 1) return false;
    return axes->ints[0] == 1 || (axes->ints[0] == -1 && RankOf(norm.inputs[0], 8) == 2);
  }

  // 0: unknown.
  std::size_t RankOf(std::string_view value, int depth) const {
    for (const OnnxTensor& input : graph_.inputs) {
      if (value == input.name) return input.dims.size();
    }
    for (const OnnxNode& node : nodes_.nodes) {
      if (depth == 0 || !Has(node.outputs, value)) continue;
      if (node.op == "Gemm" || node.op == "Flatten") return 2;
      const bool keeps_rank =
          node.op == "BatchNormalization" || node.op == "Relu" || node.op == "PRelu";
      return keeps_rank ? RankOf(node.inputs[0], depth - 1) : 0;
    }
    return 0;
  }

  const OnnxNodes& nodes_;
  const OnnxGraph& graph_;
  Names computed_;  // values that depend on the input's values
  Names whole_;     // values that are whole numbers or truth values
};

bool IsPaddedAverage(const OnnxNode& node) { return node.op == "AveragePool" && HasPadding(node); }

bool CountsPadding(const OnnxNode& node) { return node.IntOr("count_include_pad", 0) != 0; }

}  // namespace

String NodeProblem(const OnnxNode& node, const char* what) {
  const auto shown = [](std::string_view text) {
    return static_cast<int>(std::min<std::size_t>(text.size(), 60));
  };
  const std::string_view name = !node.name.empty()  ? node.name
                                : node.HasOutput(0) ? node.outputs[0]
                                                    : std::string_view("?");
  String problem;
  Refuse(&problem, "node '%.*s' (%.*s) %s", shown(name), name.data(), shown(node.op),
         node.op.data(), what);
  return problem;
}

Vector<String> OperatorProblems(const OnnxNodes& nodes, const OnnxGraph& graph) {
  Vector<String> problems;
  Checker checker(nodes, graph);
  const OnnxNode* padded = nullptr;
  for (const OnnxNode& node : nodes.nodes) {
    const char* problem = checker.Problem(node);
    if (problem == nullptr && IsPaddedAverage(node)) {
      if (padded != nullptr && CountsPadding(*padded) != CountsPadding(node)) {
        problem =
            "averages over its padding and others do not; pad before by an operator of its own";
      }
      padded = &node;
    }
    if (problem != nullptr) problems.push_back(NodeProblem(node, problem));
  }
  return problems;
}

std::string_view ProducerFor(const OnnxNodes& nodes) {
  for (const OnnxNode& node : nodes.nodes) {
    if (IsPaddedAverage(node)) return CountsPadding(node) ? "pytorch" : "";
  }
  return nodes.producer;
}

bool MayFuse(const OnnxNodes& nodes) {
  return std::none_of(nodes.nodes.begin(), nodes.nodes.end(),
                      [](const OnnxNode& node) { return node.op == "MatMul"; });
}

bool IsSoftmaxOverOneAxis(const OnnxNode& node, int64_t opset, const Vector<int64_t>& dims) {
  if (opset >= 13) return true;
  const auto rank = static_cast<int64_t>(dims.size());
  int64_t axis = node.IntOr("axis", 1);
  if (axis < 0) axis += rank;
  if (axis < 0 || axis >= rank) return false;
  return std::all_of(dims.begin() + axis + 1, dims.end(), [](int64_t dim) { return dim == 1; });
}

}  // namespace rknn_sim

#include "simulator/engines/opencv_operators.h"

#include <algorithm>

#include "simulator/engines/opencv_operator_list.h"
#include "simulator/engines/opencv_windows.h"
#include "simulator/interface/report.h"

namespace rknn_sim {

namespace {

// Of whole numbers: these only move them. Others would have to round, wrap or divide as integers.
constexpr std::string_view kMovesIntegers[] = {
    "Cast",  "Concat", "Flatten", "Gather",  "Identity",  "MaxPool",  "Reshape",
    "Shape", "Slice",  "Split",   "Squeeze", "Transpose", "Unsqueeze"};

constexpr std::string_view kArithmetic[] = {"Add", "Div",   "Max", "Min", "Mul",
                                            "Pow", "PRelu", "Sub", "Sum"};

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
             "network, fold it if it is constant, or use ONNX Runtime";
    }
    const bool is_computed = HasAny(computed_, node) && node.op != "Shape";
    const bool is_whole = HasAny(whole_, node);
    if (is_computed && HasAny(of_sizes_, node) && IsIn(kArithmetic, node.op)) {
      return "computes with the sizes of a value; export it with fixed sizes";
    }
    if (is_whole && is_computed && !IsIn(kMovesIntegers, node.op)) {
      return "computes with whole numbers, which OpenCV treats as floats; cast them to float "
             "before";
    }
    if (const char* problem = ProblemOfOperator(node, is_computed, is_whole)) return problem;
    const bool gives_whole = node.op == "ArgMax" || node.op == "ArgMin" || node.op == "Greater" ||
                             node.op == "Less" || (is_whole && node.op != "Cast");
    for (const std::string_view output : node.outputs) {
      if (is_computed) computed_.push_back(output);
      if (!is_computed && node.op != "Constant") of_sizes_.push_back(output);
      if (gives_whole) whole_.push_back(output);
    }
    return nullptr;
  }

 private:
  const char* ProblemOfOperator(const OnnxNode& node, bool is_computed, bool is_whole) const {
    const std::string_view op = node.op;
    if (const char* problem = WindowProblem(node)) return problem;
    if (op == "MaxPool" && node.HasOutput(1) && nodes_.IsRead(node.outputs[1])) {
      return "gives the indices of its maxima; leave them out";
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
    if (op == "Upsample" && Text(node, "mode", "nearest") != "nearest") {
      return "is not by the nearest pixel; export it as Resize, with opset 11 or later";
    }
    if ((op == "Max" || op == "Min") && HasConstant(node)) {
      return "takes a constant that is not one number; leave it out, or compute it";
    }
    if ((op == "Greater" || op == "Less") && HasConstant(node)) {
      return "compares with a constant; leave it out, or compare two computed values";
    }
    if (op == "Gather" && is_computed && HasListOfOne(node)) {
      return "takes a list of one index; use a single index, or Slice";
    }
    if (op == "Slice" && HasStepsFromTheEnd(node)) {
      return "steps from a place or along an axis that is counted from the end; count it from the "
             "front";
    }
    if (op == "Resize") return ProblemOfResize(node);
    if (op == "Pad" && Text(node, "mode", "constant") == "wrap") return "has mode wrap; pad before";
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

  bool HasListOfOne(const OnnxNode& node) const {
    const auto* constant = node.HasInput(1) ? nodes_.FindConstant(node.inputs[1]) : nullptr;
    return constant != nullptr && ConstantDims(constant->tensor) == Vector<int64_t>{1};
  }

  bool HasStepsFromTheEnd(const OnnxNode& node) const {
    const auto has = [&](std::size_t input, auto is_that) {
      Vector<int64_t> numbers;
      const auto* constant =
          node.HasInput(input) ? nodes_.FindConstant(node.inputs[input]) : nullptr;
      return constant != nullptr && ConstantInts(constant->tensor, &numbers) &&
             std::any_of(numbers.begin(), numbers.end(), is_that);
    };
    const auto is_negative = [](int64_t place) { return place < 0; };
    return (has(1, is_negative) || has(3, is_negative)) &&
           has(4, [](int64_t step) { return step != 1; });
  }

  bool HasConstant(const OnnxNode& node) const {
    return std::any_of(node.inputs.begin(), node.inputs.end(), [&](std::string_view input) {
      return nodes_.FindConstant(input) != nullptr;
    });
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

  const OnnxNodes& nodes_;
  const OnnxGraph& graph_;
  Names computed_;  // values that depend on the input's values
  Names of_sizes_;  // values that depend on the sizes of values alone
  Names whole_;     // values that are whole numbers or truth values
};

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
  const auto is_computed = [&](std::string_view value) {
    return std::any_of(nodes.nodes.begin(), nodes.nodes.end(), [&](const OnnxNode& node) {
      return node.op != "Constant" && Has(node.outputs, value);
    });
  };
  for (const OnnxNode& node : nodes.nodes) {
    if (node.op == "Pow") return false;
    if (node.op == "Concat" && !std::all_of(node.inputs.begin(), node.inputs.end(), is_computed))
      return false;
    if (node.op != "MatMul") continue;
    for (const OnnxNode& reader : nodes.nodes) {
      if (Has(reader.inputs, node.outputs[0])) return false;
    }
  }
  return true;
}

}  // namespace rknn_sim

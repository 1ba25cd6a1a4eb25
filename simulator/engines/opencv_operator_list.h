// The operators that OpenCV is known to compute right, as data.
#ifndef CORVANE_SIMULATOR_ENGINES_OPENCV_OPERATOR_LIST_H_
#define CORVANE_SIMULATOR_ENGINES_OPENCV_OPERATOR_LIST_H_

#include <string_view>

namespace rknn_sim {

// Shown right by ONNX's conformance data (tests/conformance.cc) or by tests/tool/networks_test.py.
// Sorted.
inline constexpr std::string_view kOperators[] = {"Abs",           "Acos",
                                                  "Acosh",         "Add",
                                                  "ArgMax",        "ArgMin",
                                                  "Asin",          "Asinh",
                                                  "Atan",          "Atanh",
                                                  "AveragePool",   "BatchNormalization",
                                                  "Cast",          "Ceil",
                                                  "Celu",          "Clip",
                                                  "Concat",        "Constant",
                                                  "Conv",          "ConvTranspose",
                                                  "Cos",           "Cosh",
                                                  "DepthToSpace",  "Div",
                                                  "Dropout",       "Elu",
                                                  "Erf",           "Exp",
                                                  "Expand",        "Flatten",
                                                  "Floor",         "Gather",
                                                  "Gemm",          "GlobalAveragePool",
                                                  "GlobalMaxPool", "Greater",
                                                  "HardSigmoid",   "HardSwish",
                                                  "Identity",      "InstanceNormalization",
                                                  "LRN",           "LeakyRelu",
                                                  "Less",          "Log",
                                                  "LogSoftmax",    "MatMul",
                                                  "Max",           "MaxPool",
                                                  "Min",           "Mul",
                                                  "Neg",           "PRelu",
                                                  "Pad",           "Pow",
                                                  "Reciprocal",    "ReduceL1",
                                                  "ReduceL2",      "ReduceLogSum",
                                                  "ReduceMax",     "ReduceMean",
                                                  "ReduceMin",     "ReduceProd",
                                                  "ReduceSum",     "ReduceSumSquare",
                                                  "Relu",          "Reshape",
                                                  "Resize",        "Round",
                                                  "Selu",          "Shape",
                                                  "Shrink",        "Sigmoid",
                                                  "Sign",          "Sin",
                                                  "Sinh",          "Slice",
                                                  "Softmax",       "Softplus",
                                                  "Softsign",      "SpaceToDepth",
                                                  "Split",         "Sqrt",
                                                  "Squeeze",       "Sub",
                                                  "Sum",           "Tan",
                                                  "Tanh",          "ThresholdedRelu",
                                                  "Transpose",     "Unsqueeze",
                                                  "Upsample"};

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ENGINES_OPENCV_OPERATOR_LIST_H_

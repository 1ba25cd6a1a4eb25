// Runs ONNX's own conformance data through the runtime's C interface:
//   conformance FOLDER RIGHT [KNOWN_WRONG...]
//   conformance FOLDER --only NAME
//   conformance FOLDER --answer
//
// FOLDER has the cases as ONNX publishes them (Debian: libonnx-testdata): CASE/model.onnx and
// CASE/test_data_set_0/{input,output}_N.pb. A case applies if its inputs are float, half or 8- or
// 16-bit integers and its outputs numbers. It is right if every output has the expected sizes and
// values (relative CONFORMANCE_RELATIVE, by default 1e-3; absolute 1e-5), refused if rknn_init
// fails or a run does, else wrong. The last line has the three numbers. Exit status 1 where a case
// is wrong that is not known to be, or fewer than RIGHT are right. --only runs the cases whose
// folder has that name, and says why they are refused. --answer writes the outputs of cases that
// have none, for another engine to meet.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "rknn_api.h"
#include "simulator/onnx/fields.h"
#include "simulator/onnx/graph.h"
#include "simulator/onnx/protobuf_reader.h"
#include "simulator/onnx/protobuf_writer.h"

namespace {

namespace fs = std::filesystem;
using rknn_sim::ProtobufField;
using rknn_sim::ProtobufReader;
using rknn_sim::WireType;
namespace tensor_field = rknn_sim::tensor_field;

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

struct Tensor {
  uint64_t type = 0;
  std::vector<uint64_t> dims;  // outermost first
  std::vector<double> values;
};

double Half(uint16_t bits) {
  const int exponent = bits >> 10 & 31;
  const double fraction = bits & 1023;
  const double magnitude = exponent == 0    ? std::ldexp(fraction, -24)
                           : exponent == 31 ? (fraction == 0 ? INFINITY : NAN)
                                            : std::ldexp(1024 + fraction, exponent - 25);
  return (bits & 0x8000) != 0 ? -magnitude : magnitude;
}

template <typename Element>
void Append(std::string_view bytes, std::vector<double>* values) {
  for (std::size_t i = 0; i + sizeof(Element) <= bytes.size(); i += sizeof(Element)) {
    Element element;
    std::memcpy(&element, bytes.data() + i, sizeof(element));
    values->push_back(static_cast<double>(element));
  }
}

void AppendRaw(std::string_view bytes, Tensor* tensor) {
  std::vector<double>* const values = &tensor->values;
  switch (tensor->type) {
    case 1:
      return Append<float>(bytes, values);
    case 2:
    case 9:
      return Append<uint8_t>(bytes, values);
    case 3:
      return Append<int8_t>(bytes, values);
    case 4:
      return Append<uint16_t>(bytes, values);
    case 5:
      return Append<int16_t>(bytes, values);
    case 6:
      return Append<int32_t>(bytes, values);
    case 7:
      return Append<int64_t>(bytes, values);
    case 10:
      Append<uint16_t>(bytes, values);
      for (double& value : *values) value = Half(static_cast<uint16_t>(value));
      return;
    case 11:
      return Append<double>(bytes, values);
    case 12:
      return Append<uint32_t>(bytes, values);
    case 13:
      return Append<uint64_t>(bytes, values);
    case 16:  // bfloat16, the upper half of a float
      for (std::size_t i = 0; i + 2 <= bytes.size(); i += 2) {
        uint32_t bits = 0;
        std::memcpy(reinterpret_cast<char*>(&bits) + 2, bytes.data() + i, 2);
        float value;
        std::memcpy(&value, &bits, sizeof(value));
        values->push_back(double{value});
      }
      return;
    default:
      return;
  }
}

// False for what is no tensor of numbers.
bool ReadTensor(const fs::path& path, uint64_t declared_type, Tensor* tensor) {
  const std::string file = ReadFile(path);
  std::string_view raw;
  ProtobufReader reader(file);
  for (ProtobufField field; reader.Next(&field);) {
    const auto numbers = [&](auto add) {
      if (field.type == WireType::kVarint) add(field.value);
      uint64_t value = 0;
      std::string_view packed = field.bytes;
      while (field.type == WireType::kBytes && !packed.empty() &&
             rknn_sim::CutVarint(&packed, &value))
        add(value);
    };
    if (field.IsVarint(tensor_field::kDataType)) tensor->type = field.value;
    if (field.number == tensor_field::kDims)
      numbers([&](uint64_t v) { tensor->dims.push_back(v); });
    if (field.IsBytes(tensor_field::kRawData)) raw = field.bytes;
    if (field.number == tensor_field::kFloatData) Append<float>(field.bytes, &tensor->values);
    if (field.number == tensor_field::kDoubleData) Append<double>(field.bytes, &tensor->values);
    if (field.number == tensor_field::kInt32Data || field.number == tensor_field::kInt64Data) {
      numbers([&](uint64_t v) {
        const auto value = static_cast<double>(static_cast<int64_t>(v));
        tensor->values.push_back(tensor->type == 10 ? Half(static_cast<uint16_t>(v)) : value);
      });
    }
  }
  // The data has the bits of bfloat16 as whole numbers.
  if (declared_type == rknn_sim::kOnnxBfloat16) tensor->type = declared_type;
  AppendRaw(raw, tensor);
  std::size_t elements = 1;
  for (const uint64_t dim : tensor->dims) elements *= dim;
  return reader.is_valid() && tensor->type != 8 && tensor->type != 0 &&
         elements == tensor->values.size();
}

bool IsInputType(uint64_t type) {
  return type == 1 || type == 2 || type == 3 || type == 5 || type == 10;
}

struct Case {
  std::string model;
  std::vector<Tensor> inputs, outputs;
};

bool ReadTensors(const fs::path& folder, const char* name,
                 const rknn_sim::Vector<rknn_sim::OnnxTensor>& declared,
                 std::vector<Tensor>* tensors) {
  for (std::size_t i = 0;; ++i) {
    const fs::path path = folder / (name + std::to_string(i) + ".pb");
    if (!fs::exists(path)) return true;
    tensors->emplace_back();
    const uint64_t type = i < declared.size() ? declared[i].type : 0;
    if (!ReadTensor(path, type, &tensors->back())) return false;
  }
}

// False for a case that does not apply.
bool ReadCase(const fs::path& folder, Case* one) {
  const fs::path data = folder / "test_data_set_0";
  if (!fs::exists(folder / "model.onnx") || !fs::exists(data)) return false;
  one->model = ReadFile(folder / "model.onnx");
  rknn_sim::OnnxGraph graph;
  rknn_sim::String why;
  ReadOnnx(reinterpret_cast<const uint8_t*>(one->model.data()), one->model.size(), &graph, &why);
  if (!ReadTensors(data, "input_", graph.inputs, &one->inputs) ||
      !ReadTensors(data, "output_", graph.outputs, &one->outputs)) {
    return false;
  }
  return !one->inputs.empty() && std::all_of(one->inputs.begin(), one->inputs.end(),
                                             [](const Tensor& t) { return IsInputType(t.type); });
}

double RelativeTolerance() {
  const char* const text = std::getenv("CONFORMANCE_RELATIVE");
  return text == nullptr ? 1e-3 : std::atof(text);
}

enum class Verdict { kRight, kRefused, kWrong };

bool IsNear(double wanted, double got, uint64_t type) {
  if (std::isnan(wanted) || std::isnan(got)) return std::isnan(wanted) && std::isnan(got);
  // The data cuts bfloat16 off, engines round it.
  static const double otherwise = RelativeTolerance();
  const double relative = type == rknn_sim::kOnnxBfloat16 ? 0x1p-7 : otherwise;
  return wanted == got || std::fabs(wanted - got) <= 1e-5 + relative * std::fabs(wanted);
}

// Calls judge(context, outputs) after a run. False where rknn_init fails or a run does.
template <typename Judge>
bool Run(Case* one, Judge judge) {
  rknn_context context = 0;
  if (rknn_init(&context, one->model.data(), static_cast<uint32_t>(one->model.size()), 0) !=
      RKNN_SUCC) {
    return false;
  }
  bool is_done = false;
  rknn_input_output_num count = {};
  rknn_query(context, RKNN_QUERY_IN_OUT_NUM, &count, sizeof(count));
  if (count.n_input == one->inputs.size()) {
    std::vector<std::vector<float>> buffers;
    std::vector<rknn_input> inputs(count.n_input);
    for (uint32_t i = 0; i < count.n_input; ++i) {
      buffers.emplace_back(one->inputs[i].values.begin(), one->inputs[i].values.end());
      inputs[i] = {i, buffers[i].data(),   static_cast<uint32_t>(buffers[i].size() * sizeof(float)),
                   0, RKNN_TENSOR_FLOAT32, RKNN_TENSOR_NCHW};
    }
    std::vector<rknn_output> outputs(count.n_output);
    for (uint32_t i = 0; i < count.n_output; ++i) {
      outputs[i].index = i;
      outputs[i].want_float = 1;
    }
    if (rknn_inputs_set(context, count.n_input, inputs.data()) == RKNN_SUCC &&
        rknn_run(context, nullptr) == RKNN_SUCC &&
        rknn_outputs_get(context, count.n_output, outputs.data(), nullptr) == RKNN_SUCC) {
      judge(context, outputs);
      is_done = true;
      rknn_outputs_release(context, count.n_output, outputs.data());
    }
  }
  rknn_destroy(context);
  return is_done;
}

// Outermost first.
std::vector<uint64_t> OutputDims(rknn_context context, uint32_t index) {
  rknn_tensor_attr attr = {};
  attr.index = index;
  rknn_query(context, RKNN_QUERY_OUTPUT_ATTR, &attr, sizeof(attr));
  std::vector<uint64_t> dims(attr.dims, attr.dims + attr.n_dims);
  std::reverse(dims.begin(), dims.end());
  return dims;
}

bool IsRight(rknn_context context, const Case& one, const std::vector<rknn_output>& outputs) {
  if (outputs.size() != one.outputs.size()) return false;
  for (uint32_t i = 0; i < outputs.size(); ++i) {
    const Tensor& wanted = one.outputs[i];
    // The runtime has no scalars: they have one dimension.
    if (OutputDims(context, i) != (wanted.dims.empty() ? std::vector<uint64_t>{1} : wanted.dims)) {
      return false;
    }
    const auto* values = static_cast<const float*>(outputs[i].buf);
    if (outputs[i].size != wanted.values.size() * sizeof(float)) return false;
    for (std::size_t k = 0; k < wanted.values.size(); ++k) {
      if (!IsNear(wanted.values[k], double{values[k]}, wanted.type)) return false;
    }
  }
  return true;
}

Verdict Try(Case* one) {
  Verdict verdict = Verdict::kRefused;
  Run(one, [&](rknn_context context, const std::vector<rknn_output>& outputs) {
    verdict = IsRight(context, *one, outputs) ? Verdict::kRight : Verdict::kWrong;
  });
  return verdict;
}

void Answer(const fs::path& folder, Case* one) {
  Run(one, [&](rknn_context context, const std::vector<rknn_output>& outputs) {
    for (uint32_t i = 0; i < outputs.size(); ++i) {
      rknn_sim::String tensor;
      for (const uint64_t dim : OutputDims(context, i)) {
        rknn_sim::AppendInt(tensor_field::kDims, static_cast<int64_t>(dim), &tensor);
      }
      rknn_sim::AppendInt(tensor_field::kDataType, 1, &tensor);
      const auto* values = static_cast<const char*>(outputs[i].buf);
      rknn_sim::AppendBytes(tensor_field::kRawData, {values, outputs[i].size}, &tensor);
      std::ofstream(folder / "test_data_set_0" / ("output_" + std::to_string(i) + ".pb"),
                    std::ios::binary)
          << tensor;
    }
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: conformance FOLDER RIGHT [KNOWN_WRONG...] | --only NAME | --answer\n",
               stderr);
    return 2;
  }
  const bool answers = std::strcmp(argv[2], "--answer") == 0;
  const bool is_one = argc == 4 && std::strcmp(argv[2], "--only") == 0;
  const std::vector<std::string> known_wrong(argv + 3, argv + argc);
  std::vector<fs::path> folders;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(argv[1])) {
    if (entry.path().filename() == "model.onnx") folders.push_back(entry.path().parent_path());
  }
  std::sort(folders.begin(), folders.end());
  // Where the simulated runtime says why it refuses.
  if (!is_one) std::freopen("/dev/null", "w", stderr);
  int counts[3] = {};
  bool is_worse = false;
  for (const fs::path& folder : folders) {
    const std::string name = folder.filename();
    if (is_one && name != argv[3]) continue;
    Case one;
    if (!ReadCase(folder, &one)) continue;
    if (answers && one.outputs.empty()) Answer(folder, &one);
    if (answers || one.outputs.empty()) continue;
    const Verdict verdict = Try(&one);
    ++counts[static_cast<int>(verdict)];
    is_worse |= verdict == Verdict::kWrong &&
                std::find(known_wrong.begin(), known_wrong.end(), name) == known_wrong.end();
    static const char* const words[] = {"right", "refused", "wrong"};
    std::printf("%s %s\n", words[static_cast<int>(verdict)], name.c_str());
    std::fflush(stdout);
  }
  if (answers) return 0;
  std::printf("%d right, %d refused, %d wrong\n", counts[0], counts[1], counts[2]);
  return !is_worse && (is_one || counts[0] >= std::atoi(argv[2])) ? 0 : 1;
}

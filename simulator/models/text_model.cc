#include "simulator/models/text_model.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "simulator/interface/rknn_names.h"
#include "simulator/models/model.h"
#include "simulator/numbers/parse_number.h"

namespace rknn_sim {

namespace {

constexpr std::string_view kMagic = "CORVANE-SIM";

// Cuts the part before the next separator off the front of *text.
std::string_view Cut(std::string_view* text, std::string_view separators) {
  const std::size_t end = std::min(text->find_first_of(separators), text->size());
  const std::string_view part = text->substr(0, end);
  text->remove_prefix(std::min(end + 1, text->size()));
  return part;
}

std::string_view NextWord(std::string_view* line) {
  constexpr std::string_view kBlanks = " \t\r";
  line->remove_prefix(std::min(line->find_first_not_of(kBlanks), line->size()));
  return Cut(line, kBlanks);
}

bool ParseShape(std::string_view text, rknn_tensor_attr* attr) {
  uint64_t elements = 1;
  uint32_t dims[RKNN_MAX_DIMS];
  uint32_t count = 0;
  for (bool is_last = false; !is_last;) {
    is_last = text.find('x') == std::string_view::npos;
    if (count == RKNN_MAX_DIMS || !ParseInteger(Cut(&text, "x"), &dims[count])) return false;
    elements *= dims[count++];  // both factors are below 2^32
    if (elements > kMaxElements) return false;
  }
  std::reverse_copy(dims, dims + count, attr->dims);
  attr->n_dims = count;
  attr->n_elems = static_cast<uint32_t>(elements);
  attr->size = attr->n_elems * static_cast<uint32_t>(ElementBytes(attr->type));
  return true;
}

bool ParseValues(std::string_view text, Tensor* tensor) {
  for (bool is_last = false; !is_last;) {
    is_last = text.find(',') == std::string_view::npos;
    float value = 0;
    if (tensor->values.size() == tensor->attr.n_elems || !ParseFloat(Cut(&text, ","), &value)) {
      return false;
    }
    tensor->values.push_back(value);
  }
  return true;
}

// One word after the shape.
bool ParseProperty(std::string_view word, bool is_output, Tensor* tensor) {
  rknn_tensor_attr& attr = tensor->attr;
  if (word == "nhwc") {
    attr.fmt = RKNN_TENSOR_NHWC;
    return true;
  }
  const std::string_view name = Cut(&word, "=");
  if (name == "fl") {
    int fl = 0;
    if (!ParseInteger(word, &fl) || fl < INT8_MIN || fl > INT8_MAX) return false;
    attr.fl = static_cast<int8_t>(fl);
    attr.qnt_type = RKNN_TENSOR_QNT_DFP;
    return true;
  }
  if (name == "zp" || name == "scale") {
    attr.qnt_type = RKNN_TENSOR_QNT_AFFINE_ASYMMETRIC;
    return name == "zp" ? ParseInteger(word, &attr.zp) : ParseFloat(word, &attr.scale);
  }
  if (!is_output) return false;
  if (name == "values") return ParseValues(word, tensor);
  return name == "echo" && ParseInteger(word, &tensor->echo_input) && tensor->echo_input >= 0;
}

// Empty, or what is wrong with the line.
std::string_view ParseLine(std::string_view line, Model* model) {
  const std::string_view kind = NextWord(&line);
  if (kind.empty() || kind[0] == '#') return {};
  const bool is_output = kind == "output";
  if (!is_output && kind != "input") return "wanted 'input', 'output' or a comment";

  Tensor tensor;
  rknn_tensor_attr& attr = tensor.attr;
  attr.scale = 1.0f;
  const std::string_view name = NextWord(&line);
  if (name.empty() || name.size() >= RKNN_MAX_NAME_LEN) return "wanted a name of 1 to 255 bytes";
  std::memcpy(attr.name, name.data(), name.size());

  if (!ParseTensorType(NextWord(&line), &attr.type)) {
    return "wanted a type: float32, float16, int8, uint8 or int16";
  }
  if (attr.type == RKNN_TENSOR_INT16) attr.qnt_type = RKNN_TENSOR_QNT_DFP;

  if (!ParseShape(NextWord(&line), &attr)) {
    return "wanted a shape as 1x3x112x112, of 1 to 16 dimensions and at most 2^26 elements";
  }
  for (std::string_view word = NextWord(&line); !word.empty(); word = NextWord(&line)) {
    if (ParseProperty(word, is_output, &tensor)) continue;
    return is_output ? "wanted nhwc, fl=, zp=, scale=, values= (no more than elements) or echo="
                     : "wanted nhwc, fl=, zp= or scale=";
  }
  Vector<Tensor>& tensors = is_output ? model->outputs : model->inputs;
  if (tensors.size() == kMaxTensors) return "wanted at most 256 tensors of a kind";
  attr.index = static_cast<uint32_t>(tensors.size());
  tensors.push_back(tensor);
  return {};
}

}  // namespace

bool IsTextModel(const uint8_t* bytes, std::size_t size) {
  return size >= kMagic.size() && std::memcmp(bytes, kMagic.data(), kMagic.size()) == 0;
}

bool ParseTextModel(const uint8_t* bytes, std::size_t size, Model* model, String* why) {
  std::string_view text(reinterpret_cast<const char*>(bytes), size);
  char message[160];
  const auto refuse = [&](int line, std::string_view problem) {
    std::snprintf(message, sizeof(message), "line %d of the model's text is not understood; %.*s",
                  line, static_cast<int>(problem.size()), problem.data());
    *why = message;
    return false;
  };

  std::string_view first = Cut(&text, "\n");
  if (NextWord(&first) != kMagic || !NextWord(&first).empty()) {
    return refuse(1, "wanted 'CORVANE-SIM' alone");
  }
  uint64_t elements = 0;
  for (int line = 2; !text.empty(); ++line) {
    const std::size_t tensors_before = model->inputs.size() + model->outputs.size();
    const std::string_view problem = ParseLine(Cut(&text, "\n"), model);
    if (!problem.empty()) return refuse(line, problem);
    if (model->inputs.size() + model->outputs.size() == tensors_before) continue;
    elements = 0;
    for (const auto* tensors : {&model->inputs, &model->outputs}) {
      for (const Tensor& tensor : *tensors) elements += tensor.attr.n_elems;
    }
    if (elements > kMaxElements) return refuse(line, "wanted at most 2^26 elements in all");
  }
  for (const Tensor& output : model->outputs) {
    if (output.echo_input < static_cast<int64_t>(model->inputs.size())) continue;
    std::snprintf(message, sizeof(message), "an output echoes input %d; wanted one of %zu inputs",
                  output.echo_input, model->inputs.size());
    *why = message;
    return false;
  }
  return true;
}

}  // namespace rknn_sim

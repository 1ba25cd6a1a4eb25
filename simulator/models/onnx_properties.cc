#include "simulator/models/onnx_properties.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "simulator/interface/report.h"
#include "simulator/interface/rknn_names.h"
#include "simulator/numbers/parse_number.h"

namespace rknn_sim {

namespace {

constexpr std::string_view kPrefix = "corvane.";

int Shown(const String& text) { return static_cast<int>(std::min<std::size_t>(text.size(), 60)); }

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

bool ParseFinite(std::string_view text, float* value) {
  return ParseFloat(Trimmed(text), value) && std::isfinite(*value);
}

// One number for all channels or one for each.
bool ParsePerChannel(std::string_view text, std::size_t channels, Vector<float>* numbers) {
  for (bool is_last = false; !is_last;) {
    const std::size_t comma = text.find(',');
    is_last = comma == std::string_view::npos;
    float number = 0;
    if (numbers->size() == channels || !ParseFinite(text.substr(0, comma), &number)) return false;
    numbers->push_back(number);
    if (!is_last) text.remove_prefix(comma + 1);
  }
  if (numbers->size() == 1) numbers->resize(channels, numbers->front());
  return numbers->size() == channels;
}

// The properties of this system. A property may have been appended to the file, so of those with
// the same name the last holds.
Vector<const OnnxProperty*> OwnProperties(const OnnxGraph& graph) {
  Vector<const OnnxProperty*> own;
  for (const OnnxProperty& property : graph.properties) {
    if (property.key.compare(0, kPrefix.size(), kPrefix) != 0) continue;
    const auto same = std::find_if(own.begin(), own.end(), [&](const OnnxProperty* earlier) {
      return earlier->key == property.key;
    });
    if (same == own.end()) {
      own.push_back(&property);
    } else {
      *same = &property;
    }
  }
  return own;
}

// Whether the number of fractional bits is there exactly where the type needs it.
bool CheckFractionBits(const rknn_tensor_attr& attr, bool has_fl, String* why) {
  const bool may_be_fixed = attr.type == RKNN_TENSOR_INT16 || attr.type == RKNN_TENSOR_INT8;
  if (has_fl && !may_be_fixed) {
    return Refuse(why,
                  "the model has the property corvane.input.fl and %s input; wanted it with int16 "
                  "or int8 only",
                  TypeName(RawValue(attr.type)));
  }
  if (attr.type == RKNN_TENSOR_INT16 && !has_fl) {
    return Refuse(why,
                  "the model has int16 input and no property corvane.input.fl; wanted its number "
                  "of fractional bits");
  }
  return true;
}

}  // namespace

std::size_t ChannelsOf(const rknn_tensor_attr& attr) {
  return attr.n_dims == 3 || attr.n_dims == 4 ? attr.dims[2] : 1;
}

bool ReadInputProperties(const OnnxGraph& graph, rknn_tensor_attr* attr, OnnxInputProperties* input,
                         String* why) {
  bool has_fl = false;
  const std::size_t channels = ChannelsOf(*attr);
  for (const OnnxProperty* property : OwnProperties(graph)) {
    const std::string_view key = property->key, value = property->value;
    const auto refuse = [&](const char* wanted) {
      return Refuse(why, "the model's property %.*s is '%.*s'; wanted %s", Shown(property->key),
                    property->key.data(), Shown(property->value), property->value.data(), wanted);
    };
    char per_channel[80];
    std::snprintf(per_channel, sizeof(per_channel),
                  channels == 1 ? "one number" : "one number or %zu, separated by commas",
                  channels);
    if (key == "corvane.input.type") {
      if (!ParseTensorType(value, &attr->type)) {
        return refuse("float32, float16, int8, uint8 or int16");
      }
    } else if (key == "corvane.input.fl") {
      int fl = 0;
      if (!ParseInteger(value, &fl) || fl < INT8_MIN || fl > INT8_MAX) {
        return refuse("a whole number from -128 to 127");
      }
      attr->fl = static_cast<int8_t>(fl);
      has_fl = true;
    } else if (key == "corvane.input.mean") {
      if (!ParsePerChannel(value, channels, &input->means)) return refuse(per_channel);
    } else if (key == "corvane.input.scale") {
      if (!ParsePerChannel(value, channels, &input->scales)) return refuse(per_channel);
    } else {
      return Refuse(why,
                    "the model's property %.*s is unknown; wanted corvane.input.type, fl, mean or "
                    "scale",
                    Shown(property->key), property->key.data());
    }
  }
  if (!CheckFractionBits(*attr, has_fl, why)) return false;
  if (has_fl) attr->qnt_type = RKNN_TENSOR_QNT_DFP;
  return true;
}

}  // namespace rknn_sim

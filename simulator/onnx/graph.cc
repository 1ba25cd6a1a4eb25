#include "simulator/onnx/graph.h"

#include <algorithm>

#include "simulator/interface/report.h"
#include "simulator/onnx/fields.h"
#include "simulator/onnx/protobuf_reader.h"

namespace rknn_sim {

namespace {

constexpr uint32_t kMaxSubgraphDepth = 8;
constexpr uint64_t kMaxConstantElements = uint64_t{1} << 31;
constexpr std::size_t kMaxDims = 32;

struct ElementLayout {
  uint64_t type;
  uint64_t bytes;  // each, in raw data
  uint64_t field;  // that holds them without raw data
};
constexpr ElementLayout kLayouts[] = {
    {1, 4, tensor_field::kFloatData},   {2, 1, tensor_field::kInt32Data},
    {3, 1, tensor_field::kInt32Data},   {4, 2, tensor_field::kInt32Data},
    {5, 2, tensor_field::kInt32Data},   {6, 4, tensor_field::kInt32Data},
    {7, 8, tensor_field::kInt64Data},   {9, 1, tensor_field::kInt32Data},
    {10, 2, tensor_field::kInt32Data},  {11, 8, tensor_field::kDoubleData},
    {12, 4, tensor_field::kUint64Data}, {13, 8, tensor_field::kUint64Data}};

String TextOf(std::string_view bytes) { return String(bytes.data(), bytes.size()); }

class Reader {
 public:
  explicit Reader(String* why) : why_(why) {}

  bool Model(std::string_view message, OnnxGraph* graph) {
    std::string_view graph_bytes;
    bool has_graph = false;
    const bool is_walked = Walk("the model", message, [&](const ProtobufField& field) {
      if (field.IsBytes(model_field::kGraph)) {
        // Protobuf would merge them; nothing writes two.
        if (has_graph) return Refuse(why_, "the model has two graphs; wanted one");
        has_graph = true;
        graph_bytes = field.bytes;
      } else if (field.IsBytes(model_field::kMetadata)) {
        return Property(field.bytes, graph);
      } else if (field.IsBytes(model_field::kFunction)) {
        return Function(field.bytes);
      } else if (field.IsBytes(model_field::kTraining)) {
        return Refuse(why_, "the model is one for training; wanted it exported for inference");
      }
      return true;
    });
    if (!is_walked) return false;
    if (!has_graph) return Refuse(why_, "the model has no graph; wanted one");
    if (!Graph(graph_bytes, 0, graph)) return false;
    if (!has_recurrent_node_ || empty_matrix_.empty()) return true;
    return Refuse(why_, "the constant '%.60s' is empty; wanted elements, in a model with RNNs",
                  empty_matrix_.c_str());
  }

 private:
  // Calls visit(field) for every field until it gives false.
  template <typename Visit>
  bool Walk(const char* what, std::string_view message, Visit visit) {
    ProtobufReader reader(message);
    for (ProtobufField field; reader.Next(&field);) {
      if (!visit(field)) return false;
    }
    if (reader.is_valid()) return true;
    return Refuse(why_, "%s is damaged or cut off %zu bytes before its end", what,
                  reader.bytes_left());
  }

  bool Property(std::string_view message, OnnxGraph* graph) {
    OnnxProperty property;
    const bool is_walked = Walk("a metadata property", message, [&](const ProtobufField& field) {
      if (field.IsBytes(entry_field::kKey)) property.key = TextOf(field.bytes);
      if (field.IsBytes(entry_field::kValue)) property.value = TextOf(field.bytes);
      return true;
    });
    if (is_walked) graph->properties.push_back(std::move(property));
    return is_walked;
  }

  // graph: null for a subgraph, whose inputs and outputs are its node's business.
  bool Graph(std::string_view message, uint32_t depth, OnnxGraph* graph) {
    if (depth > kMaxSubgraphDepth) {
      return Refuse(why_, "graphs are nested too deep; wanted at most %u levels",
                    kMaxSubgraphDepth);
    }
    Vector<String> constants;
    const bool is_walked = Walk("a graph", message, [&](const ProtobufField& field) {
      if (field.IsBytes(graph_field::kNode)) return Node(field.bytes, depth);
      if (field.IsBytes(graph_field::kInitializer)) {
        constants.emplace_back();
        return Constant(field.bytes, &constants.back());
      }
      if (field.IsBytes(graph_field::kSparseInitializer)) return SparseConstant();
      if (graph == nullptr) return true;
      if (field.IsBytes(graph_field::kInput)) return Value(field.bytes, &graph->inputs);
      if (field.IsBytes(graph_field::kOutput)) return Value(field.bytes, &graph->outputs);
      return true;
    });
    if (!is_walked || graph == nullptr) return is_walked;
    // Old files list their constants as inputs, too.
    std::sort(constants.begin(), constants.end());
    const auto is_constant = [&](const OnnxTensor& input) {
      return std::binary_search(constants.begin(), constants.end(), input.name);
    };
    auto& inputs = graph->inputs;
    inputs.erase(std::remove_if(inputs.begin(), inputs.end(), is_constant), inputs.end());
    return true;
  }

  bool Function(std::string_view message) {
    return Walk("a function", message, [&](const ProtobufField& field) {
      if (field.IsBytes(function_field::kDefault)) return Attribute(field.bytes, 0);
      return !field.IsBytes(function_field::kNode) || Node(field.bytes, 0);
    });
  }

  bool Node(std::string_view message, uint32_t depth) {
    return Walk("a node", message, [&](const ProtobufField& field) {
      if (field.IsBytes(node_field::kOp)) {
        const std::string_view op = field.bytes;
        has_recurrent_node_ |= op == "LSTM" || op == "GRU" || op == "RNN";
      }
      return !field.IsBytes(node_field::kAttribute) || Attribute(field.bytes, depth);
    });
  }

  bool Attribute(std::string_view message, uint32_t depth) {
    std::string_view attribute;
    bool has_ints_below_one = false;
    const bool is_walked = Walk("an attribute", message, [&](const ProtobufField& field) {
      String name;
      if (field.IsBytes(attribute_field::kTensor) || field.IsBytes(attribute_field::kTensors)) {
        return Constant(field.bytes, &name);
      }
      if (field.IsBytes(attribute_field::kGraph) || field.IsBytes(attribute_field::kGraphs)) {
        return Graph(field.bytes, depth + 1, nullptr);
      }
      if (field.IsBytes(attribute_field::kSparseTensor) ||
          field.IsBytes(attribute_field::kSparseTensors)) {
        return SparseConstant();
      }
      if (field.IsBytes(attribute_field::kName)) attribute = field.bytes;
      if (field.number != attribute_field::kInts) return true;
      return ForEachVarint(
          field, [&](uint64_t value) { has_ints_below_one |= static_cast<int64_t>(value) < 1; });
    });
    if (!is_walked) return false;
    // Engines divide by them.
    const bool must_be_positive =
        attribute == "strides" || attribute == "kernel_shape" || attribute == "dilations";
    if (!must_be_positive || !has_ints_below_one) return true;
    return Refuse(why_, "an operation's attribute '%s' is not all above 0",
                  String(attribute.data(), attribute.size()).c_str());
  }

  // Its parts may lie in other files, and no exporter of networks writes it.
  bool SparseConstant() { return Refuse(why_, "the model has a sparse constant; wanted it dense"); }

  // Numbers are single or packed. Protobuf ignores a field of another wire type.
  template <typename Visit>
  bool ForEachVarint(const ProtobufField& field, Visit visit) {
    if (field.type == WireType::kVarint) visit(field.value);
    std::string_view packed = field.type == WireType::kBytes ? field.bytes : std::string_view();
    while (!packed.empty()) {
      uint64_t value = 0;
      if (!CutVarint(&packed, &value)) return Refuse(why_, "packed numbers are cut off");
      visit(value);
    }
    return true;
  }

  bool Constant(std::string_view message, String* name) {
    uint64_t type = 0, elements = 1, raw_bytes = 0;
    uint64_t counts[tensor_field::kExternalData + 1] = {};
    bool is_external = false;
    bool has_dims_in_range = true;
    const auto multiply = [&](uint64_t dim) {
      has_dims_in_range = has_dims_in_range && dim <= kMaxConstantElements;
      elements = has_dims_in_range ? elements * dim : 0;
      has_dims_in_range = has_dims_in_range && elements <= kMaxConstantElements;
    };
    const bool is_walked = Walk("a constant", message, [&](const ProtobufField& field) {
      if (field.IsVarint(tensor_field::kDataLocation)) is_external = field.value != 0;
      if (field.number > tensor_field::kExternalData) return true;
      if (field.IsBytes(tensor_field::kName)) *name = TextOf(field.bytes);
      if (field.IsVarint(tensor_field::kDataType)) type = field.value;
      if (field.IsBytes(tensor_field::kRawData)) raw_bytes = field.bytes.size();
      const bool is_packed = field.type == WireType::kBytes;
      switch (field.number) {
        case tensor_field::kDims:
        case tensor_field::kInt32Data:
        case tensor_field::kInt64Data:
        case tensor_field::kUint64Data:
          return ForEachVarint(field, [&](uint64_t value) {
            if (field.number == tensor_field::kDims) multiply(value);
            ++counts[field.number];
          });
        case tensor_field::kFloatData:
          if (is_packed || field.type == WireType::kFixed32) {
            counts[field.number] += field.bytes.size() / sizeof(float);
          }
          break;
        case tensor_field::kDoubleData:
          if (is_packed || field.type == WireType::kFixed64) {
            counts[field.number] += field.bytes.size() / sizeof(double);
          }
          break;
        case tensor_field::kStringData:
        case tensor_field::kExternalData:
          ++counts[field.number];
          break;
        default:
          break;
      }
      return true;
    });
    if (!is_walked) return false;
    const int shown = static_cast<int>(std::min<std::size_t>(name->size(), 60));
    if (counts[tensor_field::kExternalData] > 0 || is_external) {
      return Refuse(why_, "the constant '%.*s' is in another file; wanted it in this one", shown,
                    name->data());
    }
    if (!has_dims_in_range || counts[tensor_field::kDims] > kMaxDims) {
      return Refuse(why_, "the constant '%.*s' has no possible shape", shown, name->data());
    }
    if (elements == 0 && counts[tensor_field::kDims] > 1) empty_matrix_ = *name;
    const auto* layout =
        std::find_if(std::begin(kLayouts), std::end(kLayouts),
                     [&](const ElementLayout& known) { return known.type == type; });
    if (layout == std::end(kLayouts)) {
      return Refuse(why_, "the constant '%.*s' has elements of ONNX type %llu; wanted numbers",
                    shown, name->data(), static_cast<unsigned long long>(type));
    }
    uint64_t typed = 0;  // in whatever field
    for (const ElementLayout& known : kLayouts) {
      if (known.field != layout->field) typed = std::max(typed, counts[known.field]);
    }
    const bool is_raw = raw_bytes > 0;
    const bool fits =
        typed == 0 && (is_raw ? raw_bytes == elements * layout->bytes && counts[layout->field] == 0
                              : counts[layout->field] == elements);
    if (fits) return true;
    return Refuse(why_, "the constant '%.*s' does not hold the %llu elements of its shape", shown,
                  name->data(), static_cast<unsigned long long>(elements));
  }

  // A graph's input or output.
  bool Value(std::string_view message, Vector<OnnxTensor>* tensors) {
    OnnxTensor tensor;
    const auto dimension = [&](std::string_view dim) {
      tensor.dims.push_back(kOpenDim);
      return Walk("a dimension", dim, [&](const ProtobufField& field) {
        if (field.IsVarint(value_field::kDimValue)) {
          tensor.dims.back() = static_cast<int64_t>(field.value);
        }
        return true;
      });
    };
    const auto shape = [&](const ProtobufField& field) {
      return !field.IsBytes(value_field::kDim) || dimension(field.bytes);
    };
    const auto tensor_type = [&](const ProtobufField& field) {
      if (field.IsVarint(value_field::kElementType)) tensor.type = field.value;
      if (!field.IsBytes(value_field::kShape)) return true;
      tensor.has_shape = true;
      return Walk("a shape", field.bytes, shape);
    };
    const auto type = [&](const ProtobufField& field) {
      return !field.IsBytes(value_field::kTensorType) ||
             Walk("a tensor's type", field.bytes, tensor_type);
    };
    const bool is_walked = Walk("an input or output", message, [&](const ProtobufField& field) {
      if (field.IsBytes(value_field::kName)) tensor.name = TextOf(field.bytes);
      return !field.IsBytes(value_field::kType) || Walk("a type", field.bytes, type);
    });
    if (is_walked) tensors->push_back(std::move(tensor));
    return is_walked;
  }

  String* why_;
  // ONNX Runtime reads past the end of an RNN's empty weights.
  bool has_recurrent_node_ = false;
  String empty_matrix_;  // the name of one
};

}  // namespace

bool IsOnnx(const uint8_t* bytes, std::size_t size) {
  // Every writer begins with the version.
  constexpr uint8_t kVersionTag = model_field::kIrVersion << 3;
  if (size > 0 && bytes[0] == kVersionTag) return true;
  ProtobufReader reader({reinterpret_cast<const char*>(bytes), size});
  bool has_graph = false;
  for (ProtobufField field; reader.Next(&field);) has_graph |= field.IsBytes(model_field::kGraph);
  return has_graph && reader.is_valid();
}

bool ReadOnnx(const uint8_t* bytes, std::size_t size, OnnxGraph* graph, String* why) {
  if (Reader(why).Model({reinterpret_cast<const char*>(bytes), size}, graph)) return true;
  why->insert(0, "this ONNX file is not understood: ");
  return false;
}

}  // namespace rknn_sim

// Writes small ONNX models, well-formed or not, without any library.
#ifndef CORVANE_TESTS_SUPPORT_ONNX_WRITER_H_
#define CORVANE_TESTS_SUPPORT_ONNX_WRITER_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace onnx_writer {

constexpr uint64_t kFloat = 1, kInt64 = 7;
constexpr int64_t kOpen = -1;  // a dimension that only has a name

inline std::string Varint(uint64_t value) {
  std::string bytes;
  for (; value >= 0x80; value >>= 7) bytes += static_cast<char>(value | 0x80);
  return bytes + static_cast<char>(value);
}
inline std::string Number(uint64_t field, int64_t value) {
  return Varint(field << 3) + Varint(static_cast<uint64_t>(value));
}
inline std::string Bytes(uint64_t field, const std::string& bytes) {
  return Varint(field << 3 | 2) + Varint(bytes.size()) + bytes;
}

inline std::string Tensor(const std::string& name, const std::vector<int64_t>& dims, uint64_t type,
                          const void* data, size_t size) {
  std::string tensor;
  for (const int64_t dim : dims) tensor += Number(1, dim);
  return tensor + Number(2, type) + Bytes(8, name) +
         Bytes(9, std::string(static_cast<const char*>(data), size));
}
inline std::string Tensor(const std::string& name, const std::vector<int64_t>& dims,
                          const std::vector<float>& values) {
  return Tensor(name, dims, kFloat, values.data(), values.size() * sizeof(float));
}

inline std::string Ints(const std::string& name, const std::vector<int64_t>& values) {
  std::string attribute = Bytes(1, name) + Number(20, 7);
  for (const int64_t value : values) attribute += Number(8, value);
  return Bytes(5, attribute);
}
inline std::string Int(const std::string& name, int64_t value) {
  return Bytes(5, Bytes(1, name) + Number(20, 2) + Number(3, value));
}
// attributes: of Ints and Int.
inline std::string Node(const std::string& operation, const std::vector<std::string>& inputs,
                        const std::string& output, const std::string& attributes = "") {
  std::string node;
  for (const std::string& input : inputs) node += Bytes(1, input);
  return Bytes(1, node + Bytes(2, output) + Bytes(4, operation) + attributes);
}

inline std::string Value(const std::string& name, const std::vector<int64_t>& dims,
                         uint64_t type = kFloat) {
  std::string shape;
  for (const int64_t dim : dims) shape += Bytes(1, dim == kOpen ? Bytes(2, "any") : Number(1, dim));
  return Bytes(1, name) + Bytes(2, Bytes(1, Number(1, type) + Bytes(2, shape)));
}
inline std::string Input(const std::string& value) { return Bytes(11, value); }
inline std::string Output(const std::string& value) { return Bytes(12, value); }
inline std::string Constant(const std::string& tensor) { return Bytes(5, tensor); }

using Properties = std::vector<std::pair<std::string, std::string>>;

inline std::string Model(const std::string& graph, const Properties& properties = {}) {
  std::string model = Number(1, 6) + Bytes(7, Bytes(2, "small") + graph) + Bytes(8, Number(2, 11));
  for (const auto& property : properties) {
    model += Bytes(14, Bytes(1, property.first) + Bytes(2, property.second));
  }
  return model;
}

// Two pixels of two channels in, the numbers that the network takes out.
inline std::string EchoModel(const Properties& properties) {
  return Model(Node("Identity", {"in"}, "out") + Input(Value("in", {1, 2, 1, 2})) +
                   Output(Value("out", {1, 2, 1, 2})),
               properties);
}

}  // namespace onnx_writer

#endif  // CORVANE_TESTS_SUPPORT_ONNX_WRITER_H_

#include "tools/results/npy.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

namespace {

constexpr char kMagic[] = "\x93NUMPY";
constexpr std::size_t kMagicBytes = 6;

struct Header {
  char byte_order = '<';
  char kind = 'f';  // b boolean, i and u integer, f float
  std::size_t element_bytes = 4;
  bool is_fortran = false;
  std::vector<uint32_t> shape;
  std::size_t elements = 1;
};

// The value of a key in the header, a Python dictionary in which no value holds a quote or a
// bracket: a string without its quotes, a tuple without its brackets, or a word. Empty where the
// key is not.
std::string ValueOf(const std::string& header, const std::string& key) {
  std::size_t begin = header.find("'" + key + "'");
  if (begin == std::string::npos) return "";
  begin = header.find_first_not_of(": ", begin + key.size() + 2);
  if (begin == std::string::npos) return "";
  const char first = header[begin];
  const bool is_enclosed = first == '\'' || first == '(';
  const char* const ends = first == '\'' ? "'" : first == '(' ? ")" : ",} ";
  if (is_enclosed) ++begin;
  const std::size_t end = header.find_first_of(ends, begin);
  return end == std::string::npos ? "" : header.substr(begin, end - begin);
}

Header ParseHeader(const std::string& path, const std::string& text) {
  const std::string type = ValueOf(text, "descr");
  const std::string order = ValueOf(text, "fortran_order");
  const std::string extents = ValueOf(text, "shape");
  const auto is_one_of = [](char c, const char* known) { return std::strchr(known, c) != nullptr; };
  if (type.size() != 3 || !is_one_of(type[0], "<>|=") || !is_one_of(type[1], "biuf") ||
      !is_one_of(type[2], "1248")) {
    throw Failure(path + ": no array of booleans, integers or floats: " + text.substr(0, 80));
  }
  const bool has_shape = text.find("'shape'") != std::string::npos &&
                         extents.find_first_not_of("0123456789, ") == std::string::npos;
  if ((order != "True" && order != "False") || !has_shape) {
    throw Failure(path + ": bad .npy header: " + text.substr(0, 80));
  }
  Header header;
  header.byte_order = type[0];
  header.kind = type[1];
  header.element_bytes = static_cast<std::size_t>(type[2] - '0');
  header.is_fortran = order == "True";
  for (std::size_t i = 0; i < extents.size(); ++i) {
    if (extents[i] == ' ' || extents[i] == ',') continue;
    uint64_t extent = 0;
    for (; i < extents.size() && extents[i] >= '0' && extents[i] <= '9'; ++i) {
      extent =
          std::min<uint64_t>(10 * extent + static_cast<uint64_t>(extents[i] - '0'), UINT32_MAX);
    }
    header.shape.push_back(static_cast<uint32_t>(extent));
    if (extent != 0 && header.elements > SIZE_MAX / 8 / extent) {
      throw Failure(path + ": bad .npy header: " + text.substr(0, 80));
    }
    header.elements *= extent;
  }
  const bool is_known = header.kind == 'b'   ? header.element_bytes == 1
                        : header.kind == 'f' ? header.element_bytes != 1
                                             : true;
  if (!is_known) throw Failure(path + ": unknown element type: " + text.substr(0, 80));
  return header;
}

float HalfToFloat(uint64_t bits) {
  const auto exponent = static_cast<int>(bits >> 10 & 31);
  const auto fraction = static_cast<float>(bits & 1023);
  const float magnitude = exponent == 0    ? std::ldexp(fraction, -24)
                          : exponent == 31 ? (fraction == 0 ? INFINITY : NAN)
                                           : std::ldexp(fraction + 1024, exponent - 25);
  return (bits >> 15) != 0 ? -magnitude : magnitude;
}

float Element(const Header& header, const uint8_t* bytes) {
  uint64_t bits = 0;
  for (std::size_t i = 0; i < header.element_bytes; ++i) {
    const std::size_t place = header.byte_order == '>' ? header.element_bytes - 1 - i : i;
    bits |= uint64_t{bytes[i]} << 8 * place;
  }
  if (header.kind == 'b') return bits != 0 ? 1 : 0;
  if (header.kind == 'u') return static_cast<float>(bits);
  if (header.kind == 'i') {
    const uint64_t sign = uint64_t{1} << ((8 * header.element_bytes - 1) & 63);
    return static_cast<float>(static_cast<int64_t>((bits ^ sign) - sign));
  }
  if (header.element_bytes == 2) return HalfToFloat(bits);
  if (header.element_bytes == 4) {
    const auto low = static_cast<uint32_t>(bits);
    float value;
    std::memcpy(&value, &low, sizeof(value));
    return value;
  }
  double value;
  std::memcpy(&value, &bits, sizeof(value));
  return static_cast<float>(value);
}

// values hold the array with its first index running fastest; returned with the last one fastest.
std::vector<float> InCOrder(const std::vector<uint32_t>& shape, const std::vector<float>& values) {
  std::vector<float> ordered(values.size());
  std::vector<std::size_t> index(shape.size(), 0);
  for (const float value : values) {
    std::size_t at = 0;
    for (std::size_t d = 0; d < shape.size(); ++d) at = at * shape[d] + index[d];
    ordered[at] = value;
    for (std::size_t d = 0; d < shape.size() && ++index[d] == shape[d]; ++d) index[d] = 0;
  }
  return ordered;
}

}  // namespace

Tensor ReadNpy(const std::string& path) {
  const std::vector<uint8_t> bytes = ReadFile(path);
  const std::size_t length_bytes = bytes.size() > kMagicBytes && bytes[kMagicBytes] > 1 ? 4 : 2;
  const std::size_t text_begin = kMagicBytes + 2 + length_bytes;
  if (bytes.size() < text_begin || std::memcmp(bytes.data(), kMagic, kMagicBytes) != 0) {
    throw Failure(path + ": no .npy file");
  }
  std::size_t text_bytes = 0;
  for (std::size_t i = 0; i < length_bytes; ++i) {
    text_bytes |= std::size_t{bytes[kMagicBytes + 2 + i]} << 8 * i;
  }
  if (text_bytes > bytes.size() - text_begin) throw Failure(path + ": its header is cut off");
  const auto* text = reinterpret_cast<const char*>(&bytes[0]) + text_begin;
  const Header header = ParseHeader(path, std::string(text, text_bytes));

  const std::size_t begin = text_begin + text_bytes;
  const std::size_t wanted = header.elements * header.element_bytes;
  if (bytes.size() - begin != wanted) {
    throw Failure(path + ": holds " + std::to_string(bytes.size() - begin) +
                  " bytes of elements, its shape needs " + std::to_string(wanted));
  }
  Tensor tensor;
  tensor.shape = header.shape;
  tensor.values.resize(header.elements);
  for (std::size_t i = 0; i < header.elements; ++i) {
    tensor.values[i] = Element(header, bytes.data() + begin + i * header.element_bytes);
  }
  if (header.is_fortran) tensor.values = InCOrder(tensor.shape, tensor.values);
  return tensor;
}

void WriteNpy(const std::string& path, const Tensor& tensor) {
  std::string shape;
  for (uint32_t extent : tensor.shape) shape += std::to_string(extent) + ",";
  std::string header = "{'descr': '<f4', 'fortran_order': False, 'shape': (" + shape + "), }";
  // Magic, version, the header's length; all of it, with the line feed, a multiple of 64 bytes.
  constexpr std::size_t kFixedBytes = kMagicBytes + 4;
  header.append(63 - (kFixedBytes + header.size()) % 64, ' ');
  header += '\n';
  std::string bytes(kMagic, kMagicBytes);
  bytes.append("\x01\x00", 2);
  bytes += static_cast<char>(header.size() & 0xFF);
  bytes += static_cast<char>(header.size() >> 8);
  bytes += header;
  // Every machine this runs on is little-endian.
  const std::size_t begin = bytes.size();
  bytes.resize(begin + tensor.values.size() * sizeof(float));
  if (!tensor.values.empty()) {
    std::memcpy(&bytes[begin], tensor.values.data(), tensor.values.size() * sizeof(float));
  }
  WriteFile(path, bytes.data(), bytes.size());
}

}  // namespace corvane_tool

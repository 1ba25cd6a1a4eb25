// SplitByChar against repeated std::getline.
//
// Bytes: how often the text is repeated, the separator, the text. Repeating lets a few bytes pass
// the number of separators that the function remembers.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "corvane/util.h"
#include "fuzz/byte_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  corvane_fuzz::ByteReader bytes(data, size);
  const int repeats = 1 + bytes.Take<uint8_t>();
  const char separator = bytes.Take<char>();
  const std::string part = bytes.TakeText();
  std::string text;
  for (int i = 0; i < repeats; ++i) text += part;

  std::vector<std::string> wanted;
  std::istringstream stream(text);
  for (std::string field; std::getline(stream, field, separator);) wanted.push_back(field);
  corvane_fuzz::Require(corvane::SplitByChar(text, separator) == wanted,
                        "SplitByChar differs from std::getline");
  return 0;
}

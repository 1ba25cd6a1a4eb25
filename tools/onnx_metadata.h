// Metadata properties of an ONNX file, without a protobuf library.
#ifndef CORVANE_TOOLS_ONNX_METADATA_H_
#define CORVANE_TOOLS_ONNX_METADATA_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace corvane_tool {

// The model with these properties set: those of the same names that it had are left out, everything
// else stays byte for byte. Throws Failure, which names the file, when the bytes are no ONNX model.
std::vector<uint8_t> WithMetadata(const std::string& path, const std::vector<uint8_t>& onnx,
                                  const std::map<std::string, std::string>& properties);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_ONNX_METADATA_H_

// Changes the metadata properties of an ONNX file without a protobuf library.
#ifndef CORVANE_TOOLS_RUNTIME_ONNX_METADATA_H_
#define CORVANE_TOOLS_RUNTIME_ONNX_METADATA_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace corvane_tool {

// Returns the model with these properties. They replace properties of the same names, and an empty
// text removes the property; every other byte is kept. Throws Failure, which names the path, where
// the bytes are not an ONNX model.
std::vector<uint8_t> WithMetadata(const std::string& path, const std::vector<uint8_t>& onnx,
                                  const std::map<std::string, std::string>& properties);

// The properties that the model has; none where the bytes are not an ONNX model.
std::map<std::string, std::string> ReadMetadata(const std::vector<uint8_t>& onnx);

bool IsOnnx(const std::vector<uint8_t>& bytes);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_ONNX_METADATA_H_

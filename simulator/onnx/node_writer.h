// Writes the messages of ONNX nodes and their attributes.
#ifndef CORVANE_SIMULATOR_ONNX_NODE_WRITER_H_
#define CORVANE_SIMULATOR_ONNX_NODE_WRITER_H_

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "malloc_allocator.h"

namespace rknn_sim {

// Append an attribute to a node's message.
void AppendFloatAttribute(std::string_view name, float value, String* node);
void AppendIntAttribute(std::string_view name, int64_t value, String* node);
void AppendIntsAttribute(std::string_view name, const Vector<int64_t>& values, String* node);

// Append a node to a graph's message. attributes: of the functions above.
void AppendNode(std::string_view op, const Vector<std::string_view>& inputs,
                const Vector<std::string_view>& outputs, std::string_view attributes,
                String* graph);

// Append a constant to a graph's message: one number, or a list of whole ones.
void AppendConstant(std::string_view name, float value, String* graph);
void AppendConstant(std::string_view name, const Vector<int64_t>& values, String* graph);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ONNX_NODE_WRITER_H_

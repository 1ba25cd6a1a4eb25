// Leaves out the operations of an ONNX graph whose results nobody reads.
#ifndef CORVANE_SIMULATOR_ONNX_UNREAD_NODES_H_
#define CORVANE_SIMULATOR_ONNX_UNREAD_NODES_H_

#include <string_view>

#include "malloc_allocator.h"

namespace rknn_sim {

// The model of bytes that ReadOnnx has accepted, without such operations of its main graph. Where
// there are none, it is the given bytes; else they are in *storage.
std::string_view WithoutUnreadNodes(std::string_view model, String* storage);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_ONNX_UNREAD_NODES_H_

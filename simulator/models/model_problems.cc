#include "simulator/models/model_problems.h"

#include <cstring>
#include <new>

#include "simulator/engines/load_network.h"
#include "simulator/onnx/graph.h"

namespace rknn_sim {

namespace {

String Problems(const uint8_t* bytes, uint32_t size) {
  String lines, ignored;
  OnnxGraph graph;
  OnnxEngine engine;
  const bool is_read = IsOnnx(bytes, size) && ReadOnnx(bytes, size, &graph, &ignored);
  if (!is_read || !FindEngine(&engine, &ignored)) return lines;
  for (OnnxTensor& input : graph.inputs) input.FixBatch();
  const std::string_view file(reinterpret_cast<const char*>(bytes), size);
  for (const String& problem : engine.problems({file, &graph})) {
    lines += problem;
    lines += '\n';
  }
  return lines;
}

}  // namespace

}  // namespace rknn_sim

char* rknn_sim_model_problems(const void* model, uint32_t size) {
  try {
    const rknn_sim::String lines = rknn_sim::Problems(static_cast<const uint8_t*>(model), size);
    return lines.empty() ? nullptr : strdup(lines.c_str());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

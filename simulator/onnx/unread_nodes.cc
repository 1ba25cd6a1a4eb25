#include "simulator/onnx/unread_nodes.h"

#include <algorithm>
#include <functional>
#include <set>

#include "simulator/onnx/fields.h"
#include "simulator/onnx/protobuf_reader.h"
#include "simulator/onnx/protobuf_writer.h"

namespace rknn_sim {

namespace {

using Names = std::set<std::string_view, std::less<>, MallocAllocator<std::string_view>>;

template <typename Visit>
void WalkMessages(std::string_view message, Visit visit) {
  ProtobufReader reader(message);
  for (ProtobufField field; reader.Next(&field);) {
    if (field.type == WireType::kBytes) visit(field);
  }
}

void AddName(std::string_view value_info, Names* names) {
  WalkMessages(value_info, [&](const ProtobufField& field) {
    if (field.number == value_field::kName) names->insert(field.bytes);
  });
}

// Also what the subgraphs of a node read, which may be values of the graph around them.
void AddReads(std::string_view node, Names* read) {
  const auto add_graph = [&](const ProtobufField& part) {
    if (part.number == graph_field::kNode) AddReads(part.bytes, read);
    if (part.number == graph_field::kOutput) AddName(part.bytes, read);
  };
  WalkMessages(node, [&](const ProtobufField& field) {
    if (field.number == node_field::kInput) read->insert(field.bytes);
    if (field.number != node_field::kAttribute) return;
    WalkMessages(field.bytes, [&](const ProtobufField& part) {
      const bool has_graph =
          part.number == attribute_field::kGraph || part.number == attribute_field::kGraphs;
      if (has_graph) WalkMessages(part.bytes, add_graph);
    });
  });
}

// For each node of the graph, whether its results are read.
Vector<bool> FindRead(std::string_view graph) {
  Names read;
  Vector<std::string_view> nodes;
  WalkMessages(graph, [&](const ProtobufField& field) {
    if (field.number == graph_field::kNode) nodes.push_back(field.bytes);
    if (field.number == graph_field::kOutput) AddName(field.bytes, &read);
  });
  Vector<bool> is_read(nodes.size(), false);
  // Backwards: every value is computed before it is read.
  for (std::size_t i = nodes.size(); i-- > 0;) {
    WalkMessages(nodes[i], [&](const ProtobufField& field) {
      if (field.number == node_field::kOutput && read.count(field.bytes) > 0) is_read[i] = true;
    });
    if (is_read[i]) AddReads(nodes[i], &read);
  }
  return is_read;
}

}  // namespace

std::string_view WithoutUnreadNodes(std::string_view model, String* storage) {
  Vector<bool> is_read;
  WalkMessages(model, [&](const ProtobufField& field) {
    if (field.number == model_field::kGraph) is_read = FindRead(field.bytes);
  });
  if (std::find(is_read.begin(), is_read.end(), false) == is_read.end()) return model;
  storage->clear();
  ProtobufReader reader(model);
  for (ProtobufField field; reader.Next(&field);) {
    if (!field.IsBytes(model_field::kGraph)) {
      *storage += field.whole;
      continue;
    }
    String graph;
    std::size_t next = 0;
    ProtobufReader parts(field.bytes);
    for (ProtobufField part; parts.Next(&part);) {
      if (!part.IsBytes(graph_field::kNode) || is_read[next++]) graph += part.whole;
    }
    AppendBytes(model_field::kGraph, graph, storage);
  }
  return *storage;
}

}  // namespace rknn_sim

#include "simulator/replay/recorded_contexts.h"

#include <cstring>

namespace rknn_sim {

namespace rec = corvane_recording;

namespace {

void AddQuery(const RecordedCall& call, RecordedContext* context) {
  if (call.items.empty()) return;
  const RecordedItem& item = call.items[0];
  context->queries[{call.header.flags, item.header.index}].push_back(&call);
  rknn_tensor_attr attribute;
  if (call.header.flags == RKNN_QUERY_INPUT_ATTR && item.bytes.size() == sizeof(attribute)) {
    std::memcpy(&attribute, item.bytes.data(), sizeof(attribute));
    context->inputs[item.header.index] = attribute;
  }
}

}  // namespace

bool RecordedContext::IsOfModel(const ItemHeader& model) const {
  return init != nullptr && !init->items.empty() && init->items[0].header.size == model.size &&
         init->items[0].header.hash == model.hash;
}

bool RecordedContext::HasModelOf(const RecordedContext& other) const {
  if (this == &other) return true;
  return other.init != nullptr && !other.init->items.empty() &&
         IsOfModel(other.init->items[0].header);
}

std::vector<RecordedContext> ReadContexts(const rec::Recording& recording) {
  std::vector<RecordedContext> contexts(1);
  contexts[0].frames.emplace_back();
  std::map<uint64_t, std::size_t> live;  // by handle
  for (const RecordedCall& call : recording.calls()) {
    const uint64_t handle = call.header.context;
    if (call.header.function == rec::kInit) {
      if (call.header.ret == RKNN_SUCC) live[handle] = contexts.size();
      contexts.emplace_back();
      contexts.back().init = &call;
      contexts.back().frames.emplace_back();
      continue;
    }
    const auto found = live.find(handle);
    RecordedContext& context = contexts[found == live.end() ? 0 : found->second];
    if (call.header.function == rec::kQuery) {
      AddQuery(call, &context);
    } else if (call.header.function == rec::kDestroy && found != live.end()) {
      context.destroy = &call;
      live.erase(found);
    } else if (call.header.function == rec::kInputsSet) {
      context.frames.push_back({&call, {}});
    } else {
      context.frames.back().calls.push_back(&call);
    }
  }
  return contexts;
}

uint64_t KeyOf(const std::vector<ItemHeader>& inputs) {
  uint64_t key = inputs.size();
  for (const ItemHeader& input : inputs) {
    ItemHeader described = input;
    described.stored = 0;
    key = rec::Mix(key, rec::Hash(&described, sizeof(described)));
  }
  return key;
}

uint64_t KeyOf(const RecordedCall& set) {
  std::vector<ItemHeader> inputs;
  for (const RecordedItem& item : set.items) inputs.push_back(item.header);
  return KeyOf(inputs);
}

}  // namespace rknn_sim

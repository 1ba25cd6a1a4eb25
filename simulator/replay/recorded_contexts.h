// A recording by contexts and frames.
#ifndef CORVANE_SIMULATOR_REPLAY_RECORDED_CONTEXTS_H_
#define CORVANE_SIMULATOR_REPLAY_RECORDED_CONTEXTS_H_

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "recorder/recording.h"
#include "rknn_api.h"

namespace rknn_sim {

using corvane_recording::ItemHeader;
using corvane_recording::RecordedCall;
using corvane_recording::RecordedItem;

// An rknn_inputs_set and the calls on the context until the next one, but for queries and
// rknn_destroy.
struct RecordedFrame {
  const RecordedCall* set;  // null: what came before the first
  std::vector<const RecordedCall*> calls;
  bool is_played = false;
};

// By command and index.
using QueryKey = std::pair<uint32_t, uint32_t>;

struct RecordedContext {
  const RecordedCall* init = nullptr;     // null: calls on no live context
  const RecordedCall* destroy = nullptr;  // null: it was never destroyed
  std::map<uint32_t, rknn_tensor_attr> inputs;
  std::map<QueryKey, std::vector<const RecordedCall*>> queries;
  std::vector<RecordedFrame> frames;  // the first has no inputs, and is never searched for
  std::size_t first_unplayed = 1;     // all frames before it are played
  bool is_initialised = false;        // by the program of now

  // Whether its rknn_init was handed this model.
  bool IsOfModel(const ItemHeader& model) const;
  bool HasModelOf(const RecordedContext& other) const;
};

// In the recording's order, which must outlive them; the first is of the calls on no live context.
std::vector<RecordedContext> ReadContexts(const corvane_recording::Recording& recording);

// What two inputs have in common that are equal.
uint64_t KeyOf(const std::vector<ItemHeader>& inputs);
uint64_t KeyOf(const RecordedCall& set);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_REPLAY_RECORDED_CONTEXTS_H_

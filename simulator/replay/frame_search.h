// Finds the recorded frame that a program plays, whose threads may run in another order than then.
#ifndef CORVANE_SIMULATOR_REPLAY_FRAME_SEARCH_H_
#define CORVANE_SIMULATOR_REPLAY_FRAME_SEARCH_H_

#include <unordered_map>
#include <vector>

#include "simulator/replay/input_difference.h"

namespace rknn_sim {

class FrameSearch {
 public:
  struct Found {
    RecordedContext* context = nullptr;  // null: the recording has no frame left
    RecordedFrame* frame = nullptr;
    bool is_equal = false;
    bool is_repeated = false;  // it was played before
  };

  // The contexts must stay where they are.
  explicit FrameSearch(std::vector<RecordedContext>* contexts);

  // In this order: the context's next frame where the inputs are equal; a frame of the same model
  // whose inputs are equal; the context's next frame with other inputs, unless one of the next few
  // of the model's contexts is much nearer; a frame with equal inputs that was played before.
  Found Find(RecordedContext* own, const std::vector<GivenInput>& inputs);

 private:
  Found FindEqual(const RecordedContext& own, const std::vector<GivenInput>& inputs,
                  bool is_played);
  Found FindNearest(RecordedContext* own, const std::vector<GivenInput>& inputs);

  std::vector<RecordedContext>& contexts_;
  std::unordered_multimap<uint64_t, Found> by_key_;
};

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_REPLAY_FRAME_SEARCH_H_

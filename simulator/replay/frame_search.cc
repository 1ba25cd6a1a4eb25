#include "simulator/replay/frame_search.h"

namespace rknn_sim {

namespace {

// At `from` or after; the count of frames where all are played.
std::size_t NextFrame(const RecordedContext& context, std::size_t from) {
  while (from < context.frames.size() && context.frames[from].is_played) ++from;
  return from;
}

std::size_t FirstFrame(RecordedContext* context) {
  context->first_unplayed = NextFrame(*context, context->first_unplayed);
  return context->first_unplayed;
}

}  // namespace

FrameSearch::FrameSearch(std::vector<RecordedContext>* contexts) : contexts_(*contexts) {
  for (RecordedContext& context : contexts_) {
    for (RecordedFrame& frame : context.frames) {
      if (frame.set != nullptr) by_key_.insert({KeyOf(*frame.set), {&context, &frame}});
    }
  }
}

FrameSearch::Found FrameSearch::Find(RecordedContext* own, const std::vector<GivenInput>& inputs) {
  const std::size_t next = FirstFrame(own);
  if (next < own->frames.size() && AreEqual(inputs, *own->frames[next].set)) {
    return {own, &own->frames[next], true, false};
  }
  Found found = FindEqual(*own, inputs, false);
  if (found.context == nullptr) found = FindNearest(own, inputs);
  if (found.context == nullptr) found = FindEqual(*own, inputs, true);
  return found;
}

FrameSearch::Found FrameSearch::FindEqual(const RecordedContext& own,
                                          const std::vector<GivenInput>& inputs, bool is_played) {
  std::vector<ItemHeader> headers;
  headers.reserve(inputs.size());
  for (const GivenInput& input : inputs) headers.push_back(input.header);
  const auto range = by_key_.equal_range(KeyOf(headers));
  Found first;
  for (auto at = range.first; at != range.second; ++at) {
    const Found& found = at->second;
    if (found.frame->is_played != is_played || !found.context->HasModelOf(own)) continue;
    if (!AreEqual(inputs, *found.frame->set)) continue;
    if (first.frame == nullptr || found.frame->set < first.frame->set) first = found;
  }
  first.is_equal = true;
  first.is_repeated = is_played;
  return first;
}

FrameSearch::Found FrameSearch::FindNearest(RecordedContext* own,
                                            const std::vector<GivenInput>& inputs) {
  constexpr std::size_t kFrames = 16;  // of each context
  Found nearest;
  uint64_t limit = UINT64_MAX;
  const auto look = [&](RecordedContext* context) {
    std::size_t at = FirstFrame(context);
    for (std::size_t i = 0; i < kFrames && at < context->frames.size(); ++i) {
      const uint64_t differing = CountDifferingBytes(inputs, *context->frames[at].set, limit);
      if (nearest.frame == nullptr || differing < limit) {
        nearest = {context, &context->frames[at]};
        limit = differing / 2;
      }
      at = NextFrame(*context, at + 1);
    }
  };
  look(own);
  for (RecordedContext& context : contexts_) {
    if (&context != own && context.HasModelOf(*own)) look(&context);
  }
  return nearest;
}

}  // namespace rknn_sim

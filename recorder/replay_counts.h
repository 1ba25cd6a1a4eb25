// What became of a replay, in a file that the replaying program maps and `corvane replay` reads,
// also after a program that has crashed.
#ifndef CORVANE_RECORDER_REPLAY_COUNTS_H_
#define CORVANE_RECORDER_REPLAY_COUNTS_H_

#include <cstdint>

namespace corvane_recording {

struct ReplayCounts {
  uint64_t is_open;  // whether the recording could be read
  uint64_t calls;
  uint64_t recorded_frames, played_frames;
  uint64_t differing_frames;  // by their inputs
  uint64_t other_calls;       // not in the recording, or otherwise than there
  uint64_t missing_outputs;   // only their hashes were recorded
};

inline bool IsAsRecorded(const ReplayCounts& counts) {
  return counts.is_open != 0 && counts.played_frames == counts.recorded_frames &&
         counts.differing_frames == 0 && counts.other_calls == 0 && counts.missing_outputs == 0;
}

}  // namespace corvane_recording

#endif  // CORVANE_RECORDER_REPLAY_COUNTS_H_

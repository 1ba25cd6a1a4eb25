// What a replay says: lines about what is not as recorded, the counts, and a line at the end.
#ifndef CORVANE_SIMULATOR_REPLAY_PLAY_REPORT_H_
#define CORVANE_SIMULATOR_REPLAY_PLAY_REPORT_H_

#include "recorder/replay_counts.h"

namespace rknn_sim {

// Only one thread at a time.
class PlayReport {
 public:
  // Counts in the file from now on; says so where it cannot.
  void KeepCountsIn(const char* path);

  corvane_recording::ReplayCounts& counts() { return *counts_; }

  // One line on standard error, of ten at most: a program that has changed differs in every frame.
  __attribute__((format(printf, 2, 3))) void Say(const char* format, ...);

  void SayTotal() const;

 private:
  int lines_ = 0;
  corvane_recording::ReplayCounts own_counts_ = {};
  corvane_recording::ReplayCounts* counts_ = &own_counts_;
};

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_REPLAY_PLAY_REPORT_H_

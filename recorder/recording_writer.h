// The recording that a process writes.
#ifndef CORVANE_RECORDER_RECORDING_WRITER_H_
#define CORVANE_RECORDER_RECORDING_WRITER_H_

#include <pthread.h>

#include "recorder/recording_format.h"

namespace corvane_recording {

constexpr uint32_t kMaxItems = 256;

struct Item {
  ItemHeader header;
  const void* data;
};

enum class Kept { kBytes, kHashes, kNothing };

// Nanoseconds of a clock that nobody sets.
uint64_t Now();

class Recorder {
 public:
  // Null where nothing is recorded. Opens the recording at the first call.
  static Recorder* Get();

  bool is_on() const { return __atomic_load_n(&file_, __ATOMIC_RELAXED) >= 0; }

  // What is kept of the frame that an rknn_inputs_set begins.
  Kept BeginFrame();

  // One call, whole or not at all. header: at_ns as Now() has it; bytes, thread and checksum are
  // filled in. At most kMaxItems items.
  void Write(RecordHeader* header, Item* items);

 private:
  static Recorder the_recorder;

  void Open();
  // The file stays open: another thread may be about to write.
  void Stop(const char* why);

  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  bool is_opened_ = false;
  int file_ = -1;
  uint64_t every_ = 0, max_frames_ = 0, max_bytes_ = 0;
  uint64_t frames_ = 0, written_ = 0, began_ = 0;
};

}  // namespace corvane_recording

#endif  // CORVANE_RECORDER_RECORDING_WRITER_H_

// Answers a program from a recording of the runtime's calls, and compares what the program hands
// over with what was handed over then.
//
//   CORVANE_SIM_REPLAY=FILE   the recording, for all calls of the process; no model is computed,
//   and
//                             checks, faults and traces do not apply
//   CORVANE_SIM_REPLAY_TIMES=1       each call takes the time that it took, or longer
//   CORVANE_SIM_REPLAY_COUNTS=FILE   see recorder/replay_counts.h; the file must be there
//
// What differs is said on standard error, and at the end of the process how much was played.
#ifndef CORVANE_SIMULATOR_REPLAY_PLAYER_H_
#define CORVANE_SIMULATOR_REPLAY_PLAYER_H_

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "simulator/replay/frame_search.h"
#include "simulator/replay/play_report.h"

namespace rknn_sim {

class Player {
 public:
  // Null where nothing is replayed.
  static Player* Get();

  // The runtime's functions.
  int Init(rknn_context* handle, const void* model, uint32_t size) noexcept;
  int Destroy(rknn_context handle) noexcept;
  int Query(rknn_context handle, uint32_t command, void* info, uint32_t size) noexcept;
  int InputsSet(rknn_context handle, uint32_t count, const rknn_input* inputs) noexcept;
  int Run(rknn_context handle) noexcept;
  int OutputsGet(rknn_context handle, uint32_t count, rknn_output* outputs) noexcept;
  int OutputsRelease(rknn_context handle) noexcept;

 private:
  // A context of the program of now.
  struct Live {
    RecordedContext* recorded = nullptr;
    RecordedFrame* frame = nullptr;
    std::size_t next_call = 0;  // of the frame
    std::map<QueryKey, std::size_t> asked;
    std::vector<std::vector<uint8_t>> buffers;  // of outputs that the program holds
  };

  void Open(const char* path);
  template <typename Body>
  int Play(const char* function, Body body) noexcept;

  Live& Find(rknn_context handle, int* code);
  RecordedContext* TakeInit(const ItemHeader& model);
  rknn_context NewHandle(rknn_context wanted);
  const RecordedCall* TakeFrame(Live* live, const std::vector<GivenInput>& inputs);
  const RecordedCall* TakeCall(Live* live, corvane_recording::Function function);
  void Hand(const RecordedItem& item, rknn_output* output, std::vector<uint8_t>* buffer);

  std::mutex mutex_;
  corvane_recording::Recording recording_;
  std::vector<RecordedContext> contexts_;
  std::unique_ptr<FrameSearch> search_;
  std::map<rknn_context, Live> live_;
  Live dead_;  // for calls on handles that are not live
  bool has_times_ = false;
  PlayReport report_;
};

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_REPLAY_PLAYER_H_

#include "simulator/replay/player.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <thread>

#include "simulator/interface/model_bytes.h"

namespace rknn_sim {

namespace rec = corvane_recording;

namespace {

Player* the_player;  // never destroyed: the last destructors of a program may still call
pid_t its_process;

// Null where the variable is not set, or empty.
const char* Setting(const char* variable) {
  const char* const text = std::getenv(variable);
  return text != nullptr && *text != '\0' ? text : nullptr;
}

unsigned long long Number(uint64_t number) { return number; }

}  // namespace

Player* Player::Get() {
  static const bool is_read = [] {
    const char* const path = Setting("CORVANE_SIM_REPLAY");
    if (path == nullptr) return true;
    the_player = new Player;
    its_process = getpid();
    the_player->Open(path);
    std::atexit([] {
      if (getpid() == its_process) the_player->report_.SayTotal();
    });
    return true;
  }();
  static_cast<void>(is_read);
  return the_player;
}

void Player::Open(const char* path) {
  if (const char* counts = Setting("CORVANE_SIM_REPLAY_COUNTS")) report_.KeepCountsIn(counts);
  has_times_ = Setting("CORVANE_SIM_REPLAY_TIMES") != nullptr;
  std::string why;
  if (recording_.Read(path, &why)) {
    report_.counts().is_open = 1;
    if (!recording_.end().empty()) report_.Say("%s: %s", path, recording_.end().c_str());
  } else {
    report_.Say("%s; every call fails", why.c_str());
  }
  contexts_ = ReadContexts(recording_);
  search_ = std::make_unique<FrameSearch>(&contexts_);
  dead_.recorded = &contexts_[0];
  dead_.frame = &contexts_[0].frames[0];
  for (const RecordedContext& context : contexts_) {
    report_.counts().recorded_frames += context.frames.size() - 1;
  }
}

// body: returns the recorded call that answers; else null, with the code to return.
template <typename Body>
int Player::Play(const char* function, Body body) noexcept {
  const auto begin = std::chrono::steady_clock::now();
  try {
    std::unique_lock<std::mutex> lock(mutex_);
    ++report_.counts().calls;
    int code = RKNN_ERR_FAIL;
    const RecordedCall* const answer = body(&code);
    if (answer == nullptr) {
      ++report_.counts().other_calls;
      report_.Say("%s, call %llu of the program: the recording has no such call here", function,
                  Number(report_.counts().calls));
      return code;
    }
    lock.unlock();
    if (has_times_) {
      std::this_thread::sleep_until(begin + std::chrono::nanoseconds(answer->header.took_ns));
    }
    return answer->header.ret;
  } catch (const std::bad_alloc&) {
    return RKNN_ERR_MALLOC_FAIL;
  } catch (...) {
    return RKNN_ERR_FAIL;
  }
}

// code: of a call that the recording does not have.
Player::Live& Player::Find(rknn_context handle, int* code) {
  const auto found = live_.find(handle);
  if (found != live_.end()) return found->second;
  *code = RKNN_ERR_CTX_INVALID;
  return dead_;
}

// The next rknn_init of the model, else a context of the model, so that it can be played again.
RecordedContext* Player::TakeInit(const ItemHeader& model) {
  RecordedContext* repeated = nullptr;
  for (RecordedContext& context : contexts_) {
    if (!context.IsOfModel(model)) continue;
    if (!context.is_initialised) {
      context.is_initialised = true;
      return &context;
    }
    repeated = &context;
  }
  if (repeated != nullptr) {
    ++report_.counts().other_calls;
    report_.Say("rknn_init: more contexts of the model of %u bytes than in the recording",
                model.size);
  }
  return repeated;
}

rknn_context Player::NewHandle(rknn_context wanted) {
  while (live_.count(wanted) != 0) ++wanted;
  return wanted;
}

int Player::Init(rknn_context* handle, const void* model, uint32_t size) noexcept {
  ItemHeader header = {};
  header.size = size;
  const bool is_read = model != nullptr && size > 0 && IsReadable(model, size);
  if (is_read) header.hash = rec::Hash(model, size);
  return Play("rknn_init", [&](int* code) -> const RecordedCall* {
    *code = RKNN_ERR_MODEL_INVALID;
    RecordedContext* context = TakeInit(header);
    if (context == nullptr && is_read) {  // the recorder did not read what was refused
      header.hash = 0;
      context = TakeInit(header);
    }
    if (context == nullptr) return nullptr;
    if (context->init->header.ret == RKNN_SUCC) {
      if (handle == nullptr) return nullptr;
      *handle = NewHandle(context->init->header.context);
      Live& live = live_[*handle];
      live.recorded = context;
      live.frame = &context->frames[0];
    }
    return context->init;
  });
}

int Player::Destroy(rknn_context handle) noexcept {
  return Play("rknn_destroy", [&](int* code) {
    Live& live = Find(handle, code);
    if (&live == &dead_) return TakeCall(&live, rec::kDestroy);
    const RecordedCall* const answer = live.recorded->destroy;
    live_.erase(handle);
    return answer;
  });
}

int Player::Query(rknn_context handle, uint32_t command, void* info, uint32_t size) noexcept {
  return Play("rknn_query", [&](int* code) -> const RecordedCall* {
    *code = RKNN_ERR_PARAM_INVALID;
    QueryKey key = {command, 0};
    const bool is_attribute = command == RKNN_QUERY_INPUT_ATTR || command == RKNN_QUERY_OUTPUT_ATTR;
    if (is_attribute && info != nullptr && size >= sizeof(key.second)) {
      std::memcpy(&key.second, info, sizeof(key.second));
    }
    Live& live = Find(handle, code);
    const auto found = live.recorded->queries.find(key);
    if (found == live.recorded->queries.end()) return nullptr;
    // Asked more often than then: the last answer again.
    std::size_t& asked = live.asked[key];
    const RecordedCall* const answer = found->second[std::min(asked, found->second.size() - 1)];
    ++asked;
    const std::string_view bytes = answer->items[0].bytes;
    if (answer->items[0].header.size != size || (!bytes.empty() && info == nullptr)) return nullptr;
    if (!bytes.empty()) std::memcpy(info, bytes.data(), bytes.size());
    return answer;
  });
}

const RecordedCall* Player::TakeFrame(Live* live, const std::vector<GivenInput>& inputs) {
  const FrameSearch::Found found = search_->Find(live->recorded, inputs);
  if (found.context == nullptr) return nullptr;
  const RecordedCall* const set = found.frame->set;
  const auto number = Number(static_cast<uint64_t>(set - recording_.calls().data()) + 1);
  if (found.is_repeated) {
    ++report_.counts().other_calls;
    report_.Say("rknn_inputs_set: the inputs of call %llu of the recording come again", number);
  } else {
    ++report_.counts().played_frames;
  }
  if (!found.is_equal && !AreEqual(inputs, *set)) {
    ++report_.counts().differing_frames;
    report_.Say("rknn_inputs_set, call %llu of the recording (frame %llu of context 0x%llx): %s",
                number, Number(static_cast<uint64_t>(found.frame - found.context->frames.data())),
                Number(set->header.context),
                DescribeDifference(inputs, *set, *found.context).c_str());
  }
  found.frame->is_played = true;
  live->recorded = found.context;
  live->frame = found.frame;
  live->next_call = 0;
  return set;
}

int Player::InputsSet(rknn_context handle, uint32_t count, const rknn_input* inputs) noexcept {
  return Play("rknn_inputs_set", [&](int* code) {
    std::vector<GivenInput> given;
    for (uint32_t i = 0; inputs != nullptr && i < std::min(count, uint32_t{256}); ++i) {
      GivenInput input = {};
      input.header.index = inputs[i].index;
      input.header.size = inputs[i].size;
      input.header.pass_through = inputs[i].pass_through;
      std::memcpy(&input.header.type, &inputs[i].type, sizeof(input.header.type));
      std::memcpy(&input.header.format, &inputs[i].fmt, sizeof(input.header.format));
      // The size may be wrong: then the recorded runtime has refused it unread.
      if (inputs[i].buf != nullptr && IsReadable(inputs[i].buf, inputs[i].size)) {
        input.bytes = static_cast<const uint8_t*>(inputs[i].buf);
        input.header.hash = rec::Hash(input.bytes, input.header.size);
      }
      given.push_back(input);
    }
    return TakeFrame(&Find(handle, code), given);
  });
}

// The frame's next call of the function; null at its end.
const RecordedCall* Player::TakeCall(Live* live, rec::Function function) {
  const auto& calls = live->frame->calls;
  std::size_t at = live->next_call;
  while (at < calls.size() && calls[at]->header.function != function) ++at;
  if (at == calls.size()) return nullptr;
  live->next_call = at + 1;
  return calls[at];
}

int Player::Run(rknn_context handle) noexcept {
  return Play("rknn_run", [&](int* code) { return TakeCall(&Find(handle, code), rec::kRun); });
}

void Player::Hand(const RecordedItem& item, rknn_output* output, std::vector<uint8_t>* buffer) {
  const bool is_as_recorded = output->index == item.header.index &&
                              output->want_float == item.header.want_float &&
                              output->is_prealloc == item.header.is_prealloc &&
                              (output->is_prealloc == 0 || output->size == item.header.size);
  if (!is_as_recorded) {
    ++report_.counts().other_calls;
    report_.Say("rknn_outputs_get: the program wants output %u otherwise than in the recording",
                output->index);
  }
  if (output->is_prealloc == 0) {
    buffer->assign(item.header.size + std::size_t{1}, 0);
    output->buf = buffer->data();
    output->size = item.header.size;
  }
  if (is_as_recorded && item.bytes.size() == item.header.size) {
    if (output->buf != nullptr) std::memcpy(output->buf, item.bytes.data(), item.bytes.size());
    return;
  }
  if (is_as_recorded) ++report_.counts().missing_outputs;
  // Numbers that nobody takes for results.
  const float unknown = std::numeric_limits<float>::quiet_NaN();
  for (uint32_t at = 0;
       output->want_float == 1 && output->buf != nullptr && output->size - at >= sizeof(unknown);
       at += sizeof(unknown)) {
    std::memcpy(static_cast<uint8_t*>(output->buf) + at, &unknown, sizeof(unknown));
  }
}

int Player::OutputsGet(rknn_context handle, uint32_t count, rknn_output* outputs) noexcept {
  return Play("rknn_outputs_get", [&](int* code) -> const RecordedCall* {
    Live& live = Find(handle, code);
    const RecordedCall* const answer = TakeCall(&live, rec::kOutputsGet);
    if (answer == nullptr || answer->header.ret < 0) return answer;
    if (count != answer->items.size() || (count > 0 && outputs == nullptr)) return nullptr;
    live.buffers.resize(std::max<std::size_t>(live.buffers.size(), count));
    for (uint32_t i = 0; i < count; ++i) Hand(answer->items[i], &outputs[i], &live.buffers[i]);
    return answer;
  });
}

int Player::OutputsRelease(rknn_context handle) noexcept {
  return Play("rknn_outputs_release", [&](int* code) {
    Live& live = Find(handle, code);
    live.buffers.clear();
    return TakeCall(&live, rec::kOutputsRelease);
  });
}

}  // namespace rknn_sim

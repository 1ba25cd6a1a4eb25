// Reads a recording of the runtime's calls.
#ifndef CORVANE_RECORDER_RECORDING_H_
#define CORVANE_RECORDER_RECORDING_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "recorder/recording_format.h"

namespace corvane_recording {

struct RecordedItem {
  ItemHeader header;
  std::string_view bytes;  // the stored ones
};

struct RecordedCall {
  RecordHeader header;
  std::vector<RecordedItem> items;
};

class Recording {
 public:
  Recording() = default;
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;
  ~Recording();

  // Once. False, with what is wrong, for a file that is no recording. One that was cut off is read
  // up to there, and end() says so.
  bool Read(const std::string& path, std::string* why);

  const FileHeader& header() const { return header_; }
  const std::vector<RecordedCall>& calls() const { return calls_; }
  // Empty where the file ends with a whole call.
  const std::string& end() const { return end_; }

 private:
  bool Map(const std::string& path);
  bool ReadCall(std::string_view* rest);

  std::string_view file_;  // in memory as long as this
  FileHeader header_ = {};
  std::vector<RecordedCall> calls_;
  std::string end_;
};

const char* NameOf(uint32_t function);  // "rknn_init", ...; "?"

}  // namespace corvane_recording

#endif  // CORVANE_RECORDER_RECORDING_H_

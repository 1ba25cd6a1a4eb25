#include "simulator/control/call_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "simulator/forever.h"
#include "simulator/interface/report.h"
#include "simulator/interface/rknn_names.h"

namespace rknn_sim {

namespace {

Forever<CallLog> call_log;

// For text of up to 255 bytes; AppendText takes any length.
__attribute__((format(printf, 2, 3))) void Append(String* line, const char* format, ...) {
  char text[256];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  line->append(text, static_cast<std::size_t>(std::clamp(length, 0, 255)));
}

// Appends a JSON string. Its bytes may be of any encoding; those outside ASCII become code points.
void AppendText(String* line, const String& text) {
  *line += '"';
  for (const char character : text) {
    const auto byte = static_cast<uint8_t>(character);
    if (byte < ' ' || byte > '~' || byte == '"' || byte == '\\') {
      Append(line, "\\u%04x", byte);
    } else {
      *line += character;
    }
  }
  *line += '"';
}

// Appends the name of an enumerator, or its number where it has no name.
void AppendName(String* line, const char* key, uint32_t value, const char* name) {
  if (name != nullptr) {
    Append(line, ",\"%s\":\"%s\"", key, name);
  } else {
    Append(line, ",\"%s\":%u", key, value);
  }
}

// Appends the arguments of the call.
void AppendDetails(String* line, const Call& call) {
  const uint32_t command = RawValue(call.query);
  switch (call.function) {
    case Function::kInit:
      Append(line, ",\"size\":%u,\"flags\":%u", call.size, call.flags);
      break;
    case Function::kQuery:
      AppendName(line, "cmd", command, QueryName(command));
      if (command == RKNN_QUERY_INPUT_ATTR || command == RKNN_QUERY_OUTPUT_ATTR) {
        Append(line, ",\"index\":%u", call.index);
      }
      Append(line, ",\"size\":%u", call.size);
      break;
    case Function::kInputsSet:
      Append(line, ",\"n_inputs\":%u,\"inputs\":[", call.count);
      for (const InputRecord& input : call.inputs) {
        const rknn_input& record = input.record;
        Append(line, "%s{\"index\":%u,\"size\":%u,\"pass_through\":%u",
               &input == call.inputs.data() ? "" : ",", record.index, record.size,
               record.pass_through);
        const uint32_t type = RawValue(record.type), format = RawValue(record.fmt);
        AppendName(line, "type", type, TypeName(type));
        AppendName(line, "fmt", format, FormatName(format));
        *line += '}';
      }
      *line += ']';
      break;
    case Function::kOutputsGet:
    case Function::kOutputsRelease:
      Append(line, ",\"n_outputs\":%u,\"outputs\":[", call.count);
      for (const rknn_output& output : call.outputs) {
        Append(line, "%s{\"index\":%u,\"size\":%u,\"want_float\":%u,\"is_prealloc\":%u}",
               &output == call.outputs.data() ? "" : ",", output.index, output.size,
               output.want_float, output.is_prealloc);
      }
      *line += ']';
      break;
    case Function::kRun:
    case Function::kDestroy:
      break;
  }
}

constexpr char kFirstKey[] = "{\"call\":";  // with which every line begins

// Whether the file may be begun anew: a path that names the model, say, must not cost the model.
bool IsEmptyOrTrace(int file) {
  char head[sizeof(kFirstKey) - 1];
  const ssize_t length = pread(file, head, sizeof(head), 0);
  return length == 0 || (length == static_cast<ssize_t>(sizeof(head)) &&
                         std::memcmp(head, kFirstKey, sizeof(head)) == 0);
}

long long Microseconds(CallLog::Clock::duration duration) {
  return std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
}

}  // namespace

CallLog& TheCallLog() { return *call_log; }

bool CallLog::Open(const char* path, String* why) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto refuse = [&](const char* reason) {
    return Refuse(why, "'%.200s' cannot be written (%s); wanted a file for the calls", path,
                  reason);
  };
  // A pipe or a terminal is only written to.
  struct stat status = {};
  const bool is_file = stat(path, &status) != 0 || S_ISREG(status.st_mode);
  const int mode = is_file ? O_RDWR | O_CREAT : O_WRONLY;
  const int file = open(path, mode | O_APPEND | O_CLOEXEC, 0666);
  if (file < 0) return refuse(std::strerror(errno));
  if (is_file && !IsEmptyOrTrace(file)) {
    close(file);
    return refuse("it holds something else than an earlier trace");
  }
  if (is_file && ftruncate(file, 0) != 0) {
    const int error = errno;
    close(file);
    return refuse(std::strerror(error));
  }
  file_ = file;
  start_ = Clock::now();
  is_on_ = true;
  return true;
}

void CallLog::Write(const Call& call, Clock::time_point begin) {
  const Clock::time_point end = Clock::now();
  const std::lock_guard<std::mutex> lock(mutex_);
  String line;
  Append(&line, "%s%llu,\"at_us\":%lld,\"took_us\":%lld,\"thread\":%ld", kFirstKey,
         static_cast<unsigned long long>(++calls_), Microseconds(begin - start_),
         Microseconds(end - begin), syscall(SYS_gettid));
  Append(&line, ",\"function\":\"%s\",\"nth\":%llu,\"context\":\"0x%llx\",\"ret\":%d",
         NameOf(call.function), static_cast<unsigned long long>(call.nth),
         static_cast<unsigned long long>(call.context), call.ret);
  AppendDetails(&line, call);
  if (call.is_misuse) {
    line += ",\"misuse\":";
    AppendText(&line, call.misuse);
  }
  line += "}\n";
  // A full disk loses lines, not the program.
  for (std::size_t at = 0; at < line.size();) {
    const ssize_t written = write(file_, line.data() + at, line.size() - at);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    at += static_cast<std::size_t>(written);
  }
}

}  // namespace rknn_sim

#include "recorder/recording.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace corvane_recording {

namespace {

template <typename Header>
bool Cut(std::string_view* bytes, Header* header) {
  if (bytes->size() < sizeof(*header)) return false;
  std::memcpy(header, bytes->data(), sizeof(*header));
  bytes->remove_prefix(sizeof(*header));
  return true;
}

}  // namespace

const char* NameOf(uint32_t function) {
  static const char* const names[kFunctionCount] = {
      "rknn_init", "rknn_destroy",     "rknn_query",          "rknn_inputs_set",
      "rknn_run",  "rknn_outputs_get", "rknn_outputs_release"};
  return function < kFunctionCount ? names[function] : "?";
}

bool Recording::Read(const std::string& path, std::string* why) {
  if (!Map(path)) {
    *why = path + ": " + std::strerror(errno);
    return false;
  }
  std::string_view rest = file_;
  if (!Cut(&rest, &header_) || std::memcmp(header_.magic, kMagic, sizeof(kMagic)) != 0) {
    *why = path + ": is no recording of the runtime's calls";
    return false;
  }
  while (!rest.empty() && ReadCall(&rest)) {
  }
  if (!rest.empty()) {
    end_ = "call " + std::to_string(calls_.size() + 1) + " is cut off or damaged; " +
           std::to_string(rest.size()) + " bytes from there on are not read";
  }
  return true;
}

Recording::~Recording() {
  if (!file_.empty()) munmap(const_cast<char*>(file_.data()), file_.size());
}

bool Recording::Map(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status = {};
  const bool is_open = file >= 0 && fstat(file, &status) == 0;
  const auto size = static_cast<std::size_t>(status.st_size);
  void* const bytes =
      is_open && size > 0 ? mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0) : MAP_FAILED;
  const int error = errno;
  if (file >= 0) close(file);
  errno = error;
  if (bytes != MAP_FAILED) file_ = {static_cast<const char*>(bytes), size};
  return is_open && (size == 0 || bytes != MAP_FAILED);
}

bool Recording::ReadCall(std::string_view* rest) {
  RecordedCall call;
  std::string_view at = *rest;
  if (!Cut(&at, &call.header) || at.size() < call.header.bytes) return false;
  std::string_view body = at.substr(0, call.header.bytes);
  std::vector<ItemHeader> headers;
  for (uint32_t i = 0; i < call.header.items; ++i) {
    RecordedItem item;
    if (!Cut(&body, &item.header)) return false;
    const uint64_t stored = item.header.stored;
    if (stored > item.header.size || body.size() < stored + Padding(item.header.stored))
      return false;
    item.bytes = body.substr(0, stored);
    if (stored > 0 && Hash(item.bytes.data(), item.bytes.size()) != item.header.hash) return false;
    body.remove_prefix(stored + Padding(item.header.stored));
    headers.push_back(item.header);
    call.items.push_back(item);
  }
  if (!body.empty() || Checksum(call.header, headers.data()) != call.header.checksum) return false;
  calls_.push_back(call);
  rest->remove_prefix(sizeof(call.header) + call.header.bytes);
  return true;
}

}  // namespace corvane_recording

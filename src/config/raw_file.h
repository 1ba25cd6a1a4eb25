// An open file by its descriptor. Streams and stdio make allocations of their own and turn a
// failed allocation into "could not open" or a short read; this allocates nothing.
#ifndef CORVANE_SRC_CONFIG_RAW_FILE_H_
#define CORVANE_SRC_CONFIG_RAW_FILE_H_

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <new>
#include <string>

namespace corvane {

class RawFile {
 public:
  static RawFile ForReading(const std::string& path) { return RawFile(path, O_RDONLY); }
  // Creates the file, or empties it.
  static RawFile ForWriting(const std::string& path) {
    return RawFile(path, O_WRONLY | O_CREAT | O_TRUNC);
  }
  RawFile(RawFile&& other) noexcept : descriptor_(other.descriptor_) { other.descriptor_ = -1; }
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;
  RawFile& operator=(RawFile&&) = delete;
  ~RawFile() {
    if (IsOpen()) close(descriptor_);
  }

  bool IsOpen() const { return descriptor_ >= 0; }

  // Reads until the buffer is full or the file ends; a failure counts as the end. Returns how many
  // bytes there were.
  std::size_t Read(char* buffer, std::size_t bytes) {
    std::size_t done = 0;
    while (done < bytes) {
      const ssize_t got = read(descriptor_, buffer + done, bytes - done);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) break;
      done += static_cast<std::size_t>(got);
    }
    return done;
  }

  // Writes all of it, unless a failure ends it before.
  void Write(const char* text, std::size_t bytes) {
    while (bytes > 0) {
      const ssize_t put = write(descriptor_, text, bytes);
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) return;
      text += put;
      bytes -= static_cast<std::size_t>(put);
    }
  }

 private:
  RawFile(const std::string& path, int flags) {
    do {
      descriptor_ = open(path.c_str(), flags | O_CLOEXEC, 0666);
    } while (descriptor_ < 0 && errno == EINTR);
    if (descriptor_ < 0 && errno == ENOMEM) throw std::bad_alloc();
  }

  int descriptor_;
};

}  // namespace corvane

#endif  // CORVANE_SRC_CONFIG_RAW_FILE_H_

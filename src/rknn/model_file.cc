#include "src/rknn/model_file.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <new>
#include <utility>

#include "src/rknn/report.h"

namespace corvane {

namespace {

constexpr int kPrefixBytes = 13;
constexpr int64_t kMaxFileBytes = int64_t{1} << 32;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File OpenForReading(const std::string& path) {
  for (;;) {
    File file(std::fopen(path.c_str(), "rbe"));  // e: a program that another thread starts must
                                                 // not inherit the descriptor
    if (file != nullptr || errno != EINTR) return file;
  }
}

bool ReadFully(std::FILE* file, uint8_t* bytes, std::size_t count) {
  while (count > 0) {
    errno = 0;
    const std::size_t got = std::fread(bytes, 1, count, file);
    if (got < count && errno != EINTR) return false;
    std::clearerr(file);
    bytes += got;
    count -= got;
  }
  return true;
}

bool ReadAfterPrefix(std::FILE* file, ModelBytes* model) {
  std::setvbuf(file, nullptr, _IONBF, 0);  // straight into the array
  if (std::fseek(file, 0, SEEK_END) != 0) return false;
  const int64_t file_bytes = std::ftell(file);
  if (file_bytes < kPrefixBytes || file_bytes > kMaxFileBytes) return false;
  if (std::fseek(file, kPrefixBytes, SEEK_SET) != 0) return false;
  const auto size = static_cast<std::size_t>(file_bytes - kPrefixBytes);

  // A directory reports a length but has no bytes. The first byte is read before memory is
  // allocated, so that such a length is not an allocation.
  uint8_t first_byte = 0;
  if (size > 0 && !ReadFully(file, &first_byte, 1)) return false;
  std::unique_ptr<uint8_t[]> data(new uint8_t[size]);
  if (size > 0) {
    data[0] = first_byte;
    if (!ReadFully(file, data.get() + 1, size - 1)) return false;
  }
  model->data = std::move(data);
  model->size = static_cast<uint32_t>(size);
  return true;
}

}  // namespace

int ReadModelFile(const std::string& path, ModelBytes* model) {
  const File file = OpenForReading(path);
  if (file == nullptr) {
    const int reason = errno;
    if (reason == ENOMEM) throw std::bad_alloc();
    WriteLine(stderr, "failed to loading rknn model. [file='%s']\n", path.c_str());
    return reason;
  }
  if (!ReadAfterPrefix(file.get(), model)) {
    WriteLine(stderr, "failed to read rknn model file. [file='%s']\n", path.c_str());
    return ENODATA;
  }
  return 0;
}

}  // namespace corvane

#include "tools/files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "tools/failure.h"

namespace corvane_tool {

namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

constexpr std::size_t kMaxFileBytes = std::size_t{1} << 32;

[[noreturn]] void Fail(const std::string& path, const std::string& what) {
  throw Failure(path + ": " + what);
}

}  // namespace

std::vector<uint8_t> ReadFile(const std::string& path) {
  const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) Fail(path, std::strerror(errno));
  // Block by block: what is no regular file has no length to believe.
  std::vector<uint8_t> bytes;
  std::size_t used = 0;
  for (;;) {
    bytes.resize(used + (std::size_t{1} << 16) + used / 2);
    const std::size_t got = std::fread(&bytes[used], 1, bytes.size() - used, file.get());
    if (std::ferror(file.get()) != 0) Fail(path, std::strerror(errno));
    used += got;
    if (used > kMaxFileBytes) Fail(path, "larger than 4 GiB");
    if (used < bytes.size()) break;
  }
  bytes.resize(used);
  return bytes;
}

void WriteFile(const std::string& path, const void* bytes, std::size_t count) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) Fail(path, std::strerror(errno));
  const bool written = std::fwrite(bytes, 1, count, file) == count;
  const int write_error = errno;
  if (std::fclose(file) != 0 || !written) {
    const int error = written ? errno : write_error;
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) std::remove(path.c_str());
    Fail(path, std::strerror(error));
  }
}

void MakeFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) Fail(path, error.message());
}

}  // namespace corvane_tool

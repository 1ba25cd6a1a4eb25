#include "tools/files.h"

#include <unistd.h>

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

namespace fs = std::filesystem;

constexpr std::size_t kMaxFileBytes = std::size_t{1} << 32;

[[noreturn]] void Fail(const std::string& path, const std::string& what) {
  throw Failure(path + ": " + what);
}

// 0, or an error number.
int WriteTo(const std::string& path, const void* bytes, std::size_t count) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return errno;
  int error = std::fwrite(bytes, 1, count, file) == count ? 0 : errno;
  if (std::fclose(file) != 0 && error == 0) error = errno;
  return error;
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
  std::error_code ignored;
  const fs::file_status old = fs::status(path, ignored);
  int error = 0;
  if (fs::exists(old) && !fs::is_regular_file(old)) {  // a device or a pipe: nothing to lose
    error = WriteTo(path, bytes, count);
  } else if (fs::exists(old) && access(path.c_str(), W_OK) != 0) {
    error = errno;
  } else {
    // Links stay; what they lead to is replaced.
    const bool is_link = fs::is_symlink(fs::symlink_status(path, ignored));
    const fs::path target = is_link ? fs::weakly_canonical(path, ignored) : fs::path(path);
    const std::string part = target.string() + "." + std::to_string(getpid()) + ".part";
    error = WriteTo(part, bytes, count);
    if (error == 0 && fs::exists(old)) fs::permissions(part, old.permissions(), ignored);
    if (error == 0 && std::rename(part.c_str(), target.c_str()) != 0) error = errno;
    if (error != 0) std::remove(part.c_str());
  }
  if (error != 0) Fail(path, std::strerror(error));
}

void CheckIsNoInput(const std::string& output, const std::vector<std::string>& inputs) {
  std::error_code ignored;
  const fs::path target = fs::weakly_canonical(output, ignored);
  for (const std::string& input : inputs) {
    if (!input.empty() && target == fs::weakly_canonical(input, ignored)) {
      Fail(output, "is an input as well and would be lost; name another output");
    }
  }
}

void MakeFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) Fail(path, error.message());
}

}  // namespace corvane_tool

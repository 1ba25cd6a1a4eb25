#include "tools/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// Writes to an open file, or to none where that failed, and closes it. Returns 0 or an errno value.
int WriteTo(std::FILE* file, const void* bytes, std::size_t count) {
  if (file == nullptr) return errno;
  int error = std::fwrite(bytes, 1, count, file) == count ? 0 : errno;
  if (std::fclose(file) != 0 && error == 0) error = errno;
  return error;
}

// Writes a new file beside the target, readable by its owner alone until it is whole, and puts it
// in the target's place with the owner and mode of the old file, if there is one. Returns 0 or an
// errno value.
int ReplaceFile(const std::string& target, const void* bytes, std::size_t count) {
  std::string part = target + ".XXXXXX";
  const int descriptor = mkostemp(&part[0], O_CLOEXEC);
  if (descriptor < 0) return errno;
  struct stat old = {};
  mode_t mode = 0;
  if (stat(target.c_str(), &old) == 0) {
    mode = old.st_mode & 0777;
    // Only root may give a file away; without that right the file stays the user's own.
    if (fchown(descriptor, old.st_uid, old.st_gid) != 0) errno = 0;
  } else {
    const mode_t mask = umask(0);
    umask(mask);
    mode = 0666 & ~mask;
  }
  int error = fchmod(descriptor, mode) == 0 ? 0 : errno;
  const int write_error = WriteTo(fdopen(descriptor, "wb"), bytes, count);
  if (error == 0) error = write_error;
  if (error == 0 && std::rename(part.c_str(), target.c_str()) != 0) error = errno;
  if (error != 0) std::remove(part.c_str());
  return error;
}

bool IsSameFile(const std::string& a, const std::string& b) {
  std::error_code ignored;
  return fs::equivalent(a, b, ignored) ||
         fs::weakly_canonical(a, ignored) == fs::weakly_canonical(b, ignored);
}

bool IsAmong(const std::vector<std::string>& paths, const std::string& path) {
  return std::any_of(paths.begin(), paths.end(),
                     [&](const std::string& other) { return IsSameFile(other, path); });
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
    error = WriteTo(std::fopen(path.c_str(), "wbe"), bytes, count);
  } else if (fs::exists(old) && access(path.c_str(), W_OK) != 0) {
    error = errno;
  } else {
    // Links stay; what they lead to is replaced.
    const bool is_link = fs::is_symlink(fs::symlink_status(path, ignored));
    error =
        ReplaceFile(is_link ? fs::weakly_canonical(path, ignored).string() : path, bytes, count);
  }
  if (error != 0) Fail(path, std::strerror(error));
}

FileNames::FileNames(const std::vector<std::string>& inputs) {
  for (const std::string& input : inputs) {
    if (!input.empty()) inputs_.push_back(input);
  }
}

void FileNames::AddOutput(const std::string& output) {
  if (IsAmong(inputs_, output)) {
    Fail(output, "is an input as well and would be lost; name another output");
  }
  if (IsAmong(outputs_, output)) {
    Fail(output, "would be written twice; name another output");
  }
  outputs_.push_back(output);
}

void MakeFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) Fail(path, error.message());
}

}  // namespace corvane_tool

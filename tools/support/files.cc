#include "tools/support/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "tools/support/failure.h"

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
    if (!input.empty()) FindOrAdd(input, true);
  }
}

const bool* FileNames::FindOrAdd(const std::string& path, bool is_input) {
  std::error_code ignored;
  const auto spelling = spellings_.emplace(fs::weakly_canonical(path, ignored).string(), is_input);
  if (!spelling.second) return &spelling.first->second;
  struct stat file = {};
  if (stat(path.c_str(), &file) != 0 || !S_ISREG(file.st_mode)) return nullptr;
  const auto found =
      files_.emplace(std::make_pair(uint64_t{file.st_dev}, uint64_t{file.st_ino}), is_input);
  return found.second ? nullptr : &found.first->second;
}

void FileNames::AddOutput(const std::string& output) {
  const bool* const is_input = FindOrAdd(output, false);
  if (is_input == nullptr) return;
  Fail(output, *is_input ? "is an input as well and would be lost; name another output"
                         : "would be written twice; name another output");
}

LineFile::LineFile(std::string path)
    : path_(std::move(path)),
      descriptor_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666)) {
  if (descriptor_ < 0) Fail(path_, std::strerror(errno));
}

LineFile::~LineFile() { close(descriptor_); }

void LineFile::Append(const std::string& line) {
  const std::string text = line + '\n';
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = write(descriptor_, text.data() + done, text.size() - done);
    if (count < 0 && errno != EINTR) Fail(path_, std::strerror(errno));
    if (count > 0) done += static_cast<std::size_t>(count);
  }
}

void MakeFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) Fail(path, error.message());
}

}  // namespace corvane_tool

// How Load and SaveAs use descriptors: interrupted and short calls, descriptors that programs start
// with, modes.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <new>

#include "corvane/ini_file.h"
#include "tests/support/descriptor_probe.h"
#include "tests/support/ini_documents.h"

namespace {

struct {
  bool on = false;
  bool interrupts = false;  // every other call fails with EINTR
  bool is_interrupted = false;
  size_t longest = 1 << 30;  // bytes that a read or write moves at most
  int open_error = 0;
  int write_error = 0;
  int flags = 0;  // of the last open
} calls;

bool IsInterrupted() {
  if (!calls.on || !calls.interrupts) return false;
  calls.is_interrupted = !calls.is_interrupted;
  errno = EINTR;
  return calls.is_interrupted;
}

template <typename Function>
Function* Real(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The library finds them, too.
#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  if (IsInterrupted()) return -1;
  if (calls.on && calls.open_error != 0) {
    errno = calls.open_error;
    return -1;
  }
  calls.flags = flags;
  return Real(static_cast<decltype(&::open)>(nullptr), "open")(path, flags, mode);
}

ssize_t read(int file, void* buffer, size_t size) {
  if (IsInterrupted()) return -1;
  if (calls.on) size = std::min(size, calls.longest);
  return Real(static_cast<decltype(&::read)>(nullptr), "read")(file, buffer, size);
}

ssize_t write(int file, const void* buffer, size_t size) {
  if (IsInterrupted()) return -1;
  if (calls.on && calls.write_error != 0) {
    errno = calls.write_error;
    return -1;
  }
  if (calls.on) size = std::min(size, calls.longest);
  return Real(static_cast<decltype(&::write)>(nullptr), "write")(file, buffer, size);
}

}  // extern "C"
#pragma GCC visibility pop

namespace corvane {
namespace {

using corvane_test::OpenDescriptors;
using corvane_test::TempFile;

TEST(IniDescriptors, InterruptedAndShortCallsGoOn) {
  std::string text = "[section]\n";
  for (int i = 0; i < 3000; ++i) text += "key" + std::to_string(i) + "=a value\n";  // two windows
  const TempFile source("source"), target("target");
  source.Write(text);
  const int descriptors = OpenDescriptors();
  calls = {};
  calls.interrupts = true;
  calls.longest = text.size() - 1;  // so that one byte is left
  calls.on = true;
  IniFile document;
  const int loaded = document.Load(source.path);
  document.SaveAs(target.path);
  calls.on = false;
  EXPECT_EQ(loaded, INI_OK);
  EXPECT_EQ(target.Read(), text);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(IniDescriptors, FilesAreClosedOnExecAndNewOnesFollowTheUmask) {
  const TempFile file("umask");
  IniFile document;
  document.SetStringValue("", "k", "v");
  const mode_t mask = umask(0);
  calls = {};
  document.SaveAs(file.path);
  umask(mask);
  EXPECT_NE(calls.flags & O_CLOEXEC, 0);
  struct stat status = {};
  ASSERT_EQ(stat(file.path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0666u);
  document.Load(file.path);
  EXPECT_NE(calls.flags & O_CLOEXEC, 0);
}

TEST(IniDescriptors, LackOfMemoryIsNoMissingFile) {
  const TempFile file("memory");
  file.Write("k=v\n");
  calls = {};
  for (const int error : {ENOMEM, EACCES}) {
    IniFile document;
    calls.open_error = error;
    calls.on = true;
    int code = -1;
    bool threw = false;
    try {
      document.SaveAs(file.path);
      code = document.Load(file.path);
    } catch (const std::bad_alloc&) {
      threw = true;
    }
    calls.on = false;
    EXPECT_EQ(threw, error == ENOMEM);
    EXPECT_EQ(code, error == ENOMEM ? -1 : int{INI_ERR_OPEN_FILE});
  }
  EXPECT_EQ(file.Read(), "k=v\n");
}

TEST(IniDescriptors, AFailedWriteEndsSaving) {
  const TempFile file("full");
  IniFile document;
  document.SetStringValue("", "k", "v");
  calls = {};
  calls.write_error = ENOSPC;
  calls.on = true;
  const int code = document.SaveAs(file.path);
  calls.on = false;
  EXPECT_EQ(code, INI_OK);
  EXPECT_EQ(file.Read(), "");
}

TEST(IniDescriptors, WorksWithoutStandardStreams) {
  const TempFile source("without"), target("streams");
  source.Write("k=v\n");
  const pid_t child = fork();
  if (child == 0) {
    for (int stream = 0; stream < 3; ++stream) close(stream);
    IniFile document;
    const int code = document.Load(source.path);
    document.SaveAs(target.path);
    _exit(code);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(target.Read(), "k=v\n");
}

}  // namespace
}  // namespace corvane

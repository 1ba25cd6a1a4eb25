// Crash-safe saving. The system calls that SaveIniFile makes are replaced here, so that any of them
// can fail, be interrupted, be the last one of the process, or have something happen before it.
#include "corvane/ini_save.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <thread>

#include "tests/support/allocation_faults.h"
#include "tests/support/descriptor_probe.h"
#include "tests/support/temp_file.h"

namespace {

constexpr int kKilled = 99;

// What happens to the calls; single-threaded while on is set.
struct Plan {
  bool on = false;
  int steps = 0;
  int kill_at = 0;               // the step that the process does not survive
  std::string name;              // the call that something happens to ...
  int nth = 0;                   // ... when it is made for the nth time:
  int error = 0;                 // it fails with this, unless 0
  bool works_anyway = false;     // ... although it has done its work
  std::function<void()> before;  // this is called first
  bool interrupts = false;       // every call fails with EINTR first
  bool was_interrupted = false;
  bool writes_one_byte = false;  // each write writes one byte at most
  std::string made;              // the calls' names
};
Plan plan;

bool IsKilledHere() { return plan.on && plan.steps + 1 == plan.kill_at; }

enum class Fate { kWorks, kFails, kWorksButFails };

Fate FateOf(const std::string& name) {
  if (!plan.on) return Fate::kWorks;
  if (plan.interrupts && name != "close") {
    plan.was_interrupted = !plan.was_interrupted;
    errno = EINTR;
    if (plan.was_interrupted) return Fate::kFails;
  }
  if (IsKilledHere()) _exit(kKilled);
  ++plan.steps;
  plan.made += name + " ";
  if (name != plan.name || --plan.nth != 0) return Fate::kWorks;
  if (plan.before) {
    plan.on = false;
    plan.before();
    plan.on = true;
  }
  if (plan.error == 0) return Fate::kWorks;
  errno = plan.error;
  return plan.works_anyway ? Fate::kWorksButFails : Fate::kFails;
}

// Calls the C library's function (or a sanitizer's wrapper of it), or lets it fail.
template <typename Function, typename... Arguments>
auto Call(Function*, const char* name, Arguments... arguments) {
  using Result = decltype(std::declval<Function*>()(arguments...));
  const Fate fate = FateOf(name);
  if (fate == Fate::kFails) return Result{-1};
  Result result = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name))(arguments...);
  if (fate == Fate::kWorks) return result;
  errno = plan.error;
  return Result{-1};
}
#define CALL(function, ...) \
  Call(static_cast<decltype(&::function)>(nullptr), #function, __VA_ARGS__)

}  // namespace

// The library finds them, too.
#pragma GCC visibility push(default)
extern "C" {

int openat(int directory, const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return CALL(openat, directory, path, flags, mode);
}

// Only the stat calls come this way.
long syscall(long number, ...) noexcept {
  va_list rest;
  va_start(rest, number);
  long a[6];
  for (long& argument : a) argument = va_arg(rest, long);
  va_end(rest);
  return CALL(syscall, number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

ssize_t write(int file, const void* text, size_t size) {
  if (IsKilledHere() || (plan.on && plan.writes_one_byte)) size = size > 0 ? 1 : 0;
  return CALL(write, file, text, size);
}
ssize_t readlinkat(int directory, const char* path, char* text, size_t size) noexcept {
  return CALL(readlinkat, directory, path, text, size);
}
int fchown(int file, uid_t owner, gid_t group) noexcept { return CALL(fchown, file, owner, group); }
int fchmod(int file, mode_t mode) noexcept { return CALL(fchmod, file, mode); }
int fsync(int file) { return CALL(fsync, file); }
int renameat(int from_directory, const char* from, int directory, const char* to) noexcept {
  return CALL(renameat, from_directory, from, directory, to);
}
int unlinkat(int directory, const char* path, int flags) noexcept {
  return CALL(unlinkat, directory, path, flags);
}
int close(int file) { return CALL(close, file); }

}  // extern "C"
#pragma GCC visibility pop

namespace corvane {
namespace {

using corvane_test::FailEachAllocation;
using corvane_test::OpenDescriptors;

const char kOld[] = "the old file\n";

// Each mark, from 0 to 25, gives a text of its own; four pages of it.
IniFile NewDocument(int mark = 0) {
  IniFile document;
  for (int i = 0; i < 300; ++i) {
    document.SetStringValue("section", "key" + std::to_string(i),
                            std::string(40, char('a' + mark)));
  }
  return document;
}

std::string NewText(int mark = 0) {
  std::string text = "[section]\n";
  for (int i = 0; i < 300; ++i) {
    text += "key" + std::to_string(i) + "=" + std::string(40, char('a' + mark)) + "\n";
  }
  return text;
}

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "(none)";
}

// A directory with the old file in it.
struct Folder {
  Folder() : path(corvane_test::UnusedPath()), file(path + "/camera.ini") {
    mkdir(path.c_str(), 0777);
    chmod(path.c_str(), 0777);
    Reset();
  }
  ~Folder() { std::system(("rm -rf " + path).c_str()); }
  void Reset(const std::string& name = "camera.ini", mode_t mode = 0644) const {
    std::ofstream(At(name), std::ios::binary) << kOld;
    chmod(At(name).c_str(), mode);
  }
  void Link(const std::string& text, const std::string& name) const {
    unlink(At(name).c_str());
    EXPECT_EQ(symlink(text.c_str(), At(name).c_str()), 0) << name;
  }
  std::string At(const std::string& name) const { return path + "/" + name; }
  int Files() const {
    int files = -2;  // "." and ".."
    DIR* const directory = opendir(path.c_str());
    if (directory == nullptr) return -1;
    while (readdir(directory) != nullptr) ++files;
    closedir(directory);
    return files;
  }
  const std::string path;
  const std::string file;
};

// Saves with the plan in force. errno is that of the call.
IniSaveResult SaveBy(Plan what, const IniFile& document, const std::string& path) {
  plan = std::move(what);
  plan.on = true;
  const IniSaveResult result = SaveIniFile(document, path);
  plan.on = false;
  return result;
}

Plan FailAt(const char* name, int nth, int error) {
  Plan what;
  what.name = name;
  what.nth = nth;
  what.error = error;
  return what;
}

Plan Before(const char* name, int nth, std::function<void()> before) {
  Plan what = FailAt(name, nth, 0);
  what.before = std::move(before);
  return what;
}

// Runs the check in a process of its own, which may give up rights; its result, or -1.
int InChild(const std::function<int()>& check) {
  const pid_t child = fork();
  if (child == 0) _exit(check());
  int status = -1;
  if (child < 0 || waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void BecomeNormalUser() {
  if (geteuid() != 0) return;
  const gid_t groups[] = {65534, 4321};
  if (setgroups(2, groups) != 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(98);
}

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(IniSave, ReplacesAndCreates) {
  const Folder folder;
  const int descriptors = OpenDescriptors();
  EXPECT_EQ(SaveIniFile(NewDocument(), folder.file), INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), NewText());
  EXPECT_EQ(SaveIniFile(IniFile(), folder.file), INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), "");
  EXPECT_EQ(SaveIniFile(NewDocument(), folder.At(std::string(255, 'n'))), INI_SAVE_OK);
  EXPECT_EQ(InChild([&] {  // from the working directory, as descriptor 0
              close(0);
              if (chdir(folder.path.c_str()) != 0) return 98;
              return int(SaveIniFile(NewDocument(1), "here.ini"));
            }),
            INI_SAVE_OK);
  EXPECT_EQ(Read(folder.At("here.ini")), NewText(1));
  // A thread with a descriptor table of its own.
  std::thread([&] {
    EXPECT_EQ(unshare(CLONE_FILES), 0);
    EXPECT_EQ(SaveIniFile(NewDocument(2), folder.file), INI_SAVE_OK);
  }).join();
  EXPECT_EQ(Read(folder.file), NewText(2));
  EXPECT_EQ(folder.Files(), 3);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(IniSave, KeepsPermissions) {
  const Folder folder;
  EXPECT_EQ(InChild([&] {
              BecomeNormalUser();
              int wrong = 0;
              for (const mode_t mask : {022, 077, 0777}) {
                const std::string fresh = folder.At("new" + std::to_string(mask));
                umask(mask);
                wrong += SaveIniFile(NewDocument(), fresh) != INI_SAVE_OK;
                wrong += ModeOf(fresh) != (0666u & ~mask);
                for (const mode_t mode : {0600, 0640, 0444, 0666, 0000, 0755}) {
                  wrong += chmod(fresh.c_str(), mode) != 0;
                  wrong += SaveIniFile(NewDocument(1), fresh) != INI_SAVE_OK;
                  wrong += ModeOf(fresh) != mode;
                }
                chmod(fresh.c_str(), 0644);
                wrong += Read(fresh) != NewText(1);
              }
              return wrong;
            }),
            0);
  if (geteuid() != 0) return;
  struct {
    uid_t owner;
    gid_t group;
    bool as_root;
    uid_t owner_then;
    gid_t group_then;
    mode_t mode_then;  // of 07751
  } const rows[] = {
      {1234, 4321, true, 1234, 4321, 07751},
      {1234, 4321, false, 65534, 4321, 0751},   // the group alone is kept
      {1234, 1234, false, 65534, 65534, 0751},  // neither is
      {65534, 4321, false, 65534, 4321, 07751},
      {65534, 1234, false, 65534, 65534, 0751},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.owner) + ":" + std::to_string(row.group));
    ASSERT_EQ(chown(folder.file.c_str(), row.owner, row.group), 0);
    ASSERT_EQ(chmod(folder.file.c_str(), 07751), 0);
    EXPECT_EQ(InChild([&] {
                if (!row.as_root) BecomeNormalUser();
                return int(SaveIniFile(NewDocument(), folder.file));
              }),
              INI_SAVE_OK);
    struct stat status = {};
    ASSERT_EQ(stat(folder.file.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, row.owner_then);
    EXPECT_EQ(status.st_gid, row.group_then);
    EXPECT_EQ(status.st_mode & 07777, row.mode_then);
  }
  // Only "not permitted" is forgiven.
  struct {
    int nth, error;
    IniSaveResult result;
  } const failures[] = {{1, EPERM, INI_SAVE_OK},
                        {1, EIO, INI_SAVE_ERR_PERMISSIONS},
                        {1, ENOSPC, INI_SAVE_ERR_PERMISSIONS}};
  for (const auto& failure : failures) {
    folder.Reset();
    ASSERT_EQ(chown(folder.file.c_str(), 1234, 4321), 0);
    EXPECT_EQ(SaveBy(FailAt("fchown", failure.nth, failure.error), NewDocument(), folder.file),
              failure.result);
    EXPECT_EQ(Read(folder.file), failure.result == INI_SAVE_OK ? NewText() : kOld);
  }
}

TEST(IniSave, FollowsLinks) {
  const Folder folder;
  mkdir(folder.At("sub").c_str(), 0777);
  const struct {
    const char* text;
    std::string name;
    IniSaveResult result;
    const char* leads_to;
  } links[] = {
      {"camera.ini", "relative", INI_SAVE_OK, "camera.ini"},
      {"../relative", "sub/chain", INI_SAVE_OK, "camera.ini"},
      {"sub/chain", "longer_chain", INI_SAVE_OK, "camera.ini"},
      {"sub/not_yet", "dangling", INI_SAVE_OK, "sub/not_yet"},
      {"loop", "loop", INI_SAVE_ERR_LINK, nullptr},
      {"pong", "ping", INI_SAVE_ERR_LINK, nullptr},
      {"ping", "pong", INI_SAVE_ERR_LINK, nullptr},
      {"loop/file", "through_loop", INI_SAVE_ERR_LINK, nullptr},
      {"sub/new/", "to_no_name", INI_SAVE_ERR_LINK, nullptr},
      {"nowhere/file", "lost", INI_SAVE_ERR_DIRECTORY, nullptr},
      {"sub", "to_directory", INI_SAVE_ERR_NOT_REGULAR, nullptr},
      {"/dev/null", "to_device", INI_SAVE_ERR_NOT_REGULAR, nullptr},
  };
  for (const auto& link : links) folder.Link(link.text, link.name);
  const int files = folder.Files();
  int mark = 0;
  for (const auto& link : links) {
    SCOPED_TRACE(link.name);
    mark = (mark + 1) % 26;
    EXPECT_EQ(SaveIniFile(NewDocument(mark), folder.At(link.name)), link.result);
    if (link.leads_to != nullptr) {
      EXPECT_EQ(Read(folder.At(link.leads_to)), NewText(mark));
    }
    char text[100] = {};
    EXPECT_GT(readlink(folder.At(link.name).c_str(), text, sizeof text - 1), 0);
    EXPECT_STREQ(text, link.text);
  }
  folder.Link(folder.file, "absolute");
  EXPECT_EQ(SaveIniFile(NewDocument(), folder.At("absolute")), INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), NewText());
  // An open file, and then the same one when it has lost its name to the new file.
  const int file = open(folder.file.c_str(), O_RDONLY);
  const std::string open_file = "/proc/self/fd/" + std::to_string(file);
  EXPECT_EQ(SaveIniFile(NewDocument(1), open_file), INI_SAVE_OK);
  EXPECT_EQ(SaveIniFile(NewDocument(2), open_file), INI_SAVE_ERR_LINK);
  close(file);
  EXPECT_EQ(Read(folder.file), NewText(1));
  EXPECT_EQ(folder.Files(), files + 1);
  // As many links as the system follows, and one more.
  std::string name = "camera.ini";
  for (int i = 1; i <= 41; ++i) {
    folder.Link(name, "l" + std::to_string(i));
    name = "l" + std::to_string(i);
  }
  EXPECT_EQ(SaveIniFile(NewDocument(3), folder.At("l40")), INI_SAVE_OK);
  EXPECT_EQ(SaveIniFile(NewDocument(4), folder.At("l41")), INI_SAVE_ERR_LINK);
  EXPECT_EQ(Read(folder.file), NewText(3));
}

TEST(IniSave, FollowsALinkWhoseDirectoryHasAPathOfNearlyAnyLength) {
  const Folder folder;
  EXPECT_EQ(InChild([&] {
              std::string path = folder.path;
              const std::string part(200, 'd');
              while (path.size() + part.size() + 1 <= 4007) {
                path += "/" + part;
                if (mkdir(path.c_str(), 0777) != 0) return 97;
              }
              const std::string last(4007 - path.size() - 1, 'e');
              path += "/" + last;
              if (!last.empty() && mkdir(path.c_str(), 0777) != 0) return 96;
              const std::string target(200, 't');  // too long for the path, not for the directory
              if (symlink(target.c_str(), (path + "/link").c_str()) != 0) return 95;
              if (SaveIniFile(NewDocument(), path + "/link") != INI_SAVE_OK) return 1;
              return Read(path + "/link") == NewText() ? 0 : 2;
            }),
            0);
}

TEST(IniSave, NamesEveryFailure) {
  const Folder folder;
  mkdir(folder.At("sub").c_str(), 0777);
  ASSERT_EQ(mkfifo(folder.At("pipe").c_str(), 0666), 0);
  const struct {
    std::string path;
    IniSaveResult result;
    int error;
  } paths[] = {
      {"", INI_SAVE_ERR_PATH, ENOENT},
      {folder.file + std::string("\0x", 2), INI_SAVE_ERR_PATH, EINVAL},
      {folder.At("new/"), INI_SAVE_ERR_PATH, EISDIR},
      {folder.file + "/", INI_SAVE_ERR_PATH, EISDIR},
      {folder.At(std::string(256, 'n')), INI_SAVE_ERR_PATH, ENAMETOOLONG},
      {std::string(5000, '/') + "file", INI_SAVE_ERR_PATH, ENAMETOOLONG},
      {folder.At("missing/file"), INI_SAVE_ERR_DIRECTORY, ENOENT},
      {folder.file + "/file", INI_SAVE_ERR_DIRECTORY, ENOTDIR},
      {folder.At("sub"), INI_SAVE_ERR_NOT_REGULAR, EISDIR},
      {folder.At("sub/.."), INI_SAVE_ERR_NOT_REGULAR, EISDIR},
      {folder.At("pipe"), INI_SAVE_ERR_NOT_REGULAR, EINVAL},
      {"/dev/full", INI_SAVE_ERR_NOT_REGULAR, EINVAL},
  };
  for (const auto& path : paths) {
    errno = 0;
    EXPECT_EQ(SaveIniFile(NewDocument(), path.path), path.result) << path.path;
    EXPECT_EQ(errno, path.error) << path.path;
  }

  // The nth call fails. The path is looked up twice: before the new file is made and before the
  // rename.
  const struct {
    const char* call;
    int nth;
    int error;
    IniSaveResult result;
  } calls[] = {
      {"openat", 1, EMFILE, INI_SAVE_ERR_DIRECTORY},
      {"readlinkat", 1, EACCES, INI_SAVE_ERR_DIRECTORY},
      {"readlinkat", 1, ELOOP, INI_SAVE_ERR_LINK},
      {"syscall", 1, EACCES, INI_SAVE_ERR_LINK},
      {"syscall", 1, ENAMETOOLONG, INI_SAVE_ERR_PATH},
      {"syscall", 2, EACCES, INI_SAVE_ERR_DIRECTORY},
      {"openat", 2, EACCES, INI_SAVE_ERR_DIRECTORY},
      {"syscall", 3, EIO, INI_SAVE_ERR_DIRECTORY},
      {"openat", 3, EMFILE, INI_SAVE_ERR_CREATE},
      {"openat", 3, EROFS, INI_SAVE_ERR_CREATE},
      {"write", 1, ENOSPC, INI_SAVE_ERR_WRITE},
      {"syscall", 4, EIO, INI_SAVE_ERR_PERMISSIONS},
      {"fchmod", 1, EPERM, INI_SAVE_ERR_PERMISSIONS},
      {"fsync", 1, EIO, INI_SAVE_ERR_SYNC},
      {"readlinkat", 2, EACCES, INI_SAVE_ERR_DIRECTORY},
      {"syscall", 7, EIO, INI_SAVE_ERR_DIRECTORY},
      {"renameat", 1, EBUSY, INI_SAVE_ERR_RENAME},
      {"fsync", 2, EINVAL, INI_SAVE_ERR_SYNC_DIRECTORY},
  };
  const int files = folder.Files();
  const int descriptors = OpenDescriptors();
  const IniFile document = NewDocument();
  for (const auto& call : calls) {
    SCOPED_TRACE(call.call + std::to_string(call.nth));
    folder.Reset();
    EXPECT_EQ(SaveBy(FailAt(call.call, call.nth, call.error), document, folder.file), call.result);
    EXPECT_EQ(errno, call.error);
    EXPECT_EQ(Read(folder.file), call.result == INI_SAVE_ERR_SYNC_DIRECTORY ? NewText() : kOld);
    EXPECT_EQ(folder.Files(), files);
    EXPECT_EQ(OpenDescriptors(), descriptors);
  }

  // The temporary file's name, and its mode beside an old file.
  folder.Reset();
  const auto check_temporary = [&] {
    int found = 0;
    DIR* const directory = opendir(folder.path.c_str());
    while (const dirent* entry = readdir(directory)) {
      const std::string name = entry->d_name;
      if (name.rfind(".ini_save.", 0) != 0) continue;
      ++found;
      EXPECT_EQ(name.size(), 26u) << name;
      EXPECT_EQ(name.find_first_not_of("0123456789abcdef", 10), std::string::npos) << name;
      EXPECT_EQ(ModeOf(folder.At(name)), 0600u);
    }
    closedir(directory);
    EXPECT_EQ(found, 1);
  };
  EXPECT_EQ(SaveBy(Before("write", 1, check_temporary), document, folder.file), INI_SAVE_OK);
  // Another file has the temporary name already; a new file is synced, too.
  folder.Reset();
  EXPECT_EQ(SaveBy(FailAt("openat", 3, EEXIST), document, folder.file), INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), NewText());
  EXPECT_EQ(SaveBy(FailAt("fsync", 1, EIO), document, folder.At("fresh")), INI_SAVE_ERR_SYNC);
  EXPECT_EQ(folder.Files(), files);
  // A rename that has worked is no failure, whatever the file system says.
  Plan lie = FailAt("renameat", 1, EIO);
  lie.works_anyway = true;
  EXPECT_EQ(SaveBy(lie, NewDocument(1), folder.file), INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), NewText(1));
  EXPECT_EQ(folder.Files(), files);
}

TEST(IniSave, FollowsWhatOthersChangeMeanwhile) {
  const Folder folder;
  mkdir(folder.At("sub").c_str(), 0777);
  const std::string link = folder.At("link");
  const auto swap_to = [&](const std::string& text) {
    return [&folder, text] { folder.Link(text, "link"); };
  };
  struct {
    const char* what;
    Plan plan;
    IniSaveResult result;
    std::string camera, other;
    mode_t other_mode;
  } const rows[] = {
      {"link swapped before the system looks", Before("syscall", 1, swap_to("other")), INI_SAVE_OK,
       kOld, NewText(), 0640},
      {"link swapped when its file is written", Before("fchmod", 1, swap_to("other")), INI_SAVE_OK,
       kOld, NewText(), 0640},
      {"link swapped to another directory", Before("fchmod", 1, swap_to("sub/other")),
       INI_SAVE_ERR_LINK, kOld, kOld, 0640},
      {"file vanished", Before("fchmod", 1, [&] { unlink(folder.file.c_str()); }), INI_SAVE_OK,
       NewText(), kOld, 0640},
      {"link's file changed its mode",
       Before("fsync", 1, [&] { chmod(folder.file.c_str(), 0600); }), INI_SAVE_OK, NewText(), kOld,
       0640},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    folder.Reset();
    folder.Reset("other", 0640);
    folder.Link("camera.ini", "link");
    EXPECT_EQ(SaveBy(row.plan, NewDocument(), link), row.result);
    EXPECT_EQ(Read(folder.file), row.camera);
    EXPECT_EQ(Read(folder.At("other")), row.other);
    EXPECT_EQ(ModeOf(folder.At("other")), row.other_mode);
    EXPECT_EQ(folder.Files(), 4);
  }
  EXPECT_EQ(ModeOf(folder.file), 0600u);
  // A file that appears is replaced, and keeps its mode.
  unlink(folder.At("other").c_str());
  EXPECT_EQ(SaveBy(Before("fsync", 1, [&] { folder.Reset("other", 0604); }), NewDocument(1),
                   folder.At("other")),
            INI_SAVE_OK);
  EXPECT_EQ(Read(folder.At("other")), NewText(1));
  EXPECT_EQ(ModeOf(folder.At("other")), 0604u);
}

TEST(IniSave, RefusesTextThatWouldNotLoadBack) {
  const Folder folder;
  struct {
    const char* section;
    const char* key;
    const char* value;
    bool is_refused;
  } const rows[] = {
      {"s", "password", "a#b", true},  {"s", "k", "two\nlines", true}, {"s", "k", " v", true},
      {"s", "k", "v\t", true},         {"s", "k=", "v", true},         {"s", "[k", "v", true},
      {"s", " k", "v", true},          {"s", "#k", "v", true},         {"s]", "k", "v", true},
      {" s", "k", "v", true},          {"s#", "k", "v", true},         {" ", "k", "v", true},
      {"s", "k", "v = w; [x]", false}, {"", "k", "v", false},          {"s", "", "", false},
      {"[s", "k", "a b", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.section) + "|" + row.key + "|" + row.value);
    folder.Reset();
    IniFile document;
    document.SetStringValue("first", "a", "b");
    document.SetStringValue(row.section, row.key, row.value);
    EXPECT_EQ(SaveIniFile(document, folder.file), row.is_refused ? INI_SAVE_ERR_TEXT : INI_SAVE_OK);
    EXPECT_EQ(Read(folder.file) == kOld, row.is_refused);
    EXPECT_TRUE(errno == EINVAL || !row.is_refused);
    EXPECT_EQ(folder.Files(), 1);
  }

  // Comments must stay comments; white space around them does not count.
  struct {
    const char* comment;
    const char* right_comment;
    bool is_refused;
  } const comments[] = {
      {"# above\n\n  # more", " beside ", false},
      {"no delimiter\n", "", true},
      {"# above\nk2=v", "", true},
      {"", "two\nlines", true},
      {"", "with # another", false},
  };
  for (const auto& row : comments) {
    for (const std::string key : {"k", ""}) {  // of the item, of the section
      IniFile document;
      document.SetStringValue("s", "k", "v");
      document.SetComment("s", key, row.comment);
      document.SetRightComment("s", key, row.right_comment);
      EXPECT_EQ(SaveIniFile(document, folder.file),
                row.is_refused ? INI_SAVE_ERR_TEXT : INI_SAVE_OK)
          << row.comment << "|" << row.right_comment;
    }
  }

  IniFile document;
  document.SetStringValue("a", "k", "v");
  document.SetStringValue("b", "k", "v");
  document.getMutableSection("b")->name = "a";
  EXPECT_EQ(SaveIniFile(document, folder.file), INI_SAVE_ERR_TEXT) << "two sections of one name";
  document.getMutableSection("a")->name = "";
  EXPECT_EQ(SaveIniFile(document, folder.file), INI_SAVE_OK) << "the nameless one is in front";
  document.SetRightComment("", "", "note");
  EXPECT_EQ(SaveIniFile(document, folder.file), INI_SAVE_ERR_TEXT) << "no header to carry it";
  document.SetRightComment("", "", "");
  document.SetComment("", "", "# top");
  EXPECT_EQ(SaveIniFile(document, folder.file), INI_SAVE_ERR_TEXT) << "would be its item's";
  document.SetComment("", "", "");
  document.SetCommentDelimiter("v");
  EXPECT_EQ(SaveIniFile(document, folder.file), INI_SAVE_ERR_TEXT);
  document.SetCommentDelimiter("");
  EXPECT_EQ(SaveIniFile(document, folder.file), INI_SAVE_ERR_TEXT) << "every line is a comment";
}

TEST(IniSave, NumbersAndSentencesOfItsCodes) {
  const IniSaveResult codes[] = {INI_SAVE_OK,
                                 INI_SAVE_ERR_PATH,
                                 INI_SAVE_ERR_LINK,
                                 INI_SAVE_ERR_DIRECTORY,
                                 INI_SAVE_ERR_NOT_REGULAR,
                                 INI_SAVE_ERR_MEMORY_FILE,
                                 INI_SAVE_ERR_LIMIT,
                                 INI_SAVE_ERR_CREATE,
                                 INI_SAVE_ERR_WRITE,
                                 INI_SAVE_ERR_PERMISSIONS,
                                 INI_SAVE_ERR_SYNC,
                                 INI_SAVE_ERR_RENAME,
                                 INI_SAVE_ERR_SYNC_DIRECTORY,
                                 INI_SAVE_ERR_TEXT};
  std::set<std::string> sentences;
  int number = 0;
  for (const IniSaveResult code : codes) {
    EXPECT_EQ(int(code), number++);
    sentences.insert(IniSaveMessage(code));
  }
  EXPECT_EQ(sentences.size(), 13u) << "two codes no longer happen, and share a sentence";
  EXPECT_STREQ(IniSaveMessage(static_cast<IniSaveResult>(15)), "unknown result of saving");
}

TEST(IniSave, NeedsRightsInTheDirectory) {
  const Folder folder;
  for (const auto& right :
       {std::make_pair(0555, INI_SAVE_ERR_CREATE), std::make_pair(0333, INI_SAVE_ERR_DIRECTORY),
        std::make_pair(0666, INI_SAVE_ERR_DIRECTORY)}) {
    chmod(folder.path.c_str(), mode_t(right.first));
    EXPECT_EQ(InChild([&] {
                BecomeNormalUser();
                return int(SaveIniFile(NewDocument(), folder.file));
              }),
              right.second)
        << std::oct << right.first;
    chmod(folder.path.c_str(), 0777);
    EXPECT_EQ(Read(folder.file), kOld);
    EXPECT_EQ(folder.Files(), 1);
  }
}

TEST(IniSave, SeesWhatCutsTheFile) {
  const Folder folder;
  const rlim_t size = NewText().size();
  for (const rlim_t limit : {rlim_t{0}, size - 1, size}) {
    const bool fits = limit == size;
    EXPECT_EQ(InChild([&] {
                std::signal(SIGXFSZ, SIG_IGN);
                const rlimit limits = {limit, limit};
                if (setrlimit(RLIMIT_FSIZE, &limits) != 0) return 98;
                const IniSaveResult result = SaveIniFile(NewDocument(), folder.file);
                return fits || errno == EFBIG ? int(result) : 97;
              }),
              fits ? INI_SAVE_OK : INI_SAVE_ERR_WRITE)
        << limit;
    EXPECT_EQ(Read(folder.file), fits ? NewText() : kOld);
    EXPECT_EQ(folder.Files(), 1);
  }
  // One byte after the other.
  Plan slow;
  slow.writes_one_byte = true;
  EXPECT_EQ(SaveBy(slow, NewDocument(1), folder.file), INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), NewText(1));

  // A disk of four pages: with a file of one page, the document's four do not fit.
  constexpr int kCannotMount = 97;
  const int on_full_disk = InChild([&] {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", folder.path.c_str(), "tmpfs", 0, "size=16k") != 0) {
      return kCannotMount;
    }
    folder.Reset();
    if (SaveIniFile(NewDocument(), folder.file) != INI_SAVE_ERR_WRITE) return 1;
    if (errno != ENOSPC) return 2;
    if (Read(folder.file) != kOld || folder.Files() != 1) return 3;
    // A file that is a mount point cannot be replaced.
    if (mount(folder.file.c_str(), folder.file.c_str(), nullptr, MS_BIND, nullptr) != 0) return 4;
    if (SaveIniFile(IniFile(), folder.file) != INI_SAVE_ERR_RENAME || errno != EBUSY) return 5;
    umount(folder.file.c_str());
    unlink(folder.file.c_str());
    if (SaveIniFile(NewDocument(), folder.file) != INI_SAVE_OK) return 6;
    return Read(folder.file) == NewText() && folder.Files() == 1 ? 0 : 7;
  });
  if (on_full_disk == kCannotMount) {
    std::puts("[ NOTE ] the full disk is left out: this user cannot mount one");
  } else {
    EXPECT_EQ(on_full_disk, 0);
  }
}

TEST(IniSave, SeesThatDescriptorsRanOut) {
  const Folder folder;
  const IniFile document = NewDocument();
  const IniSaveResult results[] = {INI_SAVE_ERR_DIRECTORY, INI_SAVE_ERR_DIRECTORY,
                                   INI_SAVE_ERR_CREATE, INI_SAVE_OK};
  for (rlim_t left = 0; left < 4; ++left) {
    EXPECT_EQ(InChild([&] {
                const int free = dup(0);
                close(free);
                const rlimit limits = {rlim_t(free) + left, rlim_t(free) + left};
                if (setrlimit(RLIMIT_NOFILE, &limits) != 0) return 98;
                const IniSaveResult result = SaveIniFile(document, folder.file);
                return result == INI_SAVE_OK || errno == EMFILE ? int(result) : 97;
              }),
              results[left])
        << left;
    EXPECT_EQ(Read(folder.file), results[left] == INI_SAVE_OK ? NewText() : kOld);
    EXPECT_EQ(folder.Files(), 1);
  }
}

TEST(IniSave, SyncsBeforeItRenames) {
  const Folder folder;
  Plan interrupted;
  interrupted.interrupts = true;
  EXPECT_EQ(SaveBy(interrupted, NewDocument(), folder.file), INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), NewText());
  EXPECT_EQ(plan.made,
            "openat readlinkat syscall syscall "                // what the path leads to
            "openat syscall openat write "                      // its directory; the new file
            "syscall fchmod fsync "                             // the old file's permissions
            "close openat readlinkat syscall syscall syscall "  // the same once more
            "renameat fsync close close close ");
}

TEST(IniSave, SurvivesTheDeathOfItsProcess) {
  const Folder folder;
  const IniFile document = NewDocument();
  bool was_new = false;
  int result = kKilled;
  for (int step = 1; result == kKilled; ++step) {
    ASSERT_LT(step, 200);
    folder.Reset();
    result = InChild([&] {
      Plan killed;
      killed.kill_at = step;
      return int(SaveBy(killed, document, folder.file));
    });
    const std::string text = Read(folder.file);
    EXPECT_TRUE(text == NewText() || (!was_new && text == kOld)) << step;
    was_new = was_new || text == NewText();
    // What a dead process left does not disturb the next one.
    EXPECT_EQ(SaveIniFile(NewDocument(2), folder.file), INI_SAVE_OK);
  }
  EXPECT_EQ(result, INI_SAVE_OK);
  EXPECT_TRUE(was_new);
}

TEST(IniSave, PassesOnThatMemoryRanOut) {
  const Folder folder;
  const IniFile document = NewDocument();
  const int descriptors = OpenDescriptors();
  const auto is_untouched = [&](long nth, bool threw, long leaked) {
    EXPECT_TRUE(threw) << nth;
    EXPECT_EQ(leaked, 0) << nth;
    EXPECT_EQ(Read(folder.file), kOld) << nth;
    EXPECT_EQ(folder.Files(), 1) << nth;
    EXPECT_EQ(OpenDescriptors(), descriptors) << nth;
  };
  EXPECT_GT(FailEachAllocation([&] { SaveIniFile(document, folder.file); }, is_untouched), 4);
  EXPECT_EQ(Read(folder.file), NewText());
}

TEST(IniSave, ConcurrentSaversLeaveOneWholeFile) {
  const Folder folder;
  folder.Link("camera.ini", "link");
  std::atomic<int> failed{0};
  std::atomic<int> running{4};
  std::vector<std::thread> savers;
  for (int mark = 0; mark < 4; ++mark) {
    savers.emplace_back([&, mark] {
      const IniFile document = NewDocument(mark);
      for (int i = 0; i < 25; ++i)
        failed += SaveIniFile(document, folder.At("link")) != INI_SAVE_OK;
      --running;
    });
  }
  const auto is_whole = [&](const std::string& text) {
    for (int mark = 0; mark < 4; ++mark) {
      if (text == NewText(mark)) return true;
    }
    return false;
  };
  while (running > 0) {
    const std::string text = Read(folder.file);
    EXPECT_TRUE(text == kOld || is_whole(text));
  }
  for (std::thread& saver : savers) saver.join();
  EXPECT_EQ(failed, 0);
  EXPECT_TRUE(is_whole(Read(folder.file)));
  EXPECT_EQ(folder.Files(), 2);
}

}  // namespace
}  // namespace corvane

// Crash-safe saving. The system calls that SaveIniFile and SaveAs make are replaced here, so that
// any of them can fail, be interrupted, or be the last one of the process.
#include "corvane/ini_save.h"

#include <dirent.h>
#include <dlfcn.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <thread>

#include "tests/support/allocation_faults.h"
#include "tests/support/ini_documents.h"

namespace {

constexpr int kKilled = 99;

// What happens to the calls; single-threaded while on is set.
struct {
  bool on = false;
  int steps = 0;
  int kill_at = 0;             // the step that the process does not survive
  const char* name = nullptr;  // the call that fails ...
  int nth = 0;                 // ... when made for the nth time
  int error = 0;               // ... with this
  bool interrupt = false;      // every call fails with EINTR first
  bool interrupted = false;
  const char* made[200] = {};  // the calls
} plan;

bool Is(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

bool IsKilledHere() { return plan.on && plan.steps + 1 == plan.kill_at; }

// Whether the call is to fail, with errno.
bool Fails(const char* name) {
  if (!plan.on) return false;
  if (plan.interrupt && !Is(name, "close")) {
    plan.interrupted = !plan.interrupted;
    errno = EINTR;
    if (plan.interrupted) return true;
  }
  if (IsKilledHere()) _exit(kKilled);
  plan.made[plan.steps++ % 200] = name;
  if (plan.name == nullptr || !Is(name, plan.name) || --plan.nth != 0) return false;
  errno = plan.error;
  return true;
}

// The C library's function (or a sanitizer's wrapper of it).
template <typename Function>
Function* Real(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
#define REAL(function) Real(static_cast<decltype(&::function)>(nullptr), #function)

}  // namespace

// The library is to find them, too.
#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return Fails("open") ? -1 : REAL(open)(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return Fails("openat") ? -1 : REAL(openat)(directory, path, flags, mode);
}

// Only memfd_create comes this way.
long syscall(long number, ...) noexcept {
  va_list rest;
  va_start(rest, number);
  long a[6];
  for (long& argument : a) argument = va_arg(rest, long);
  va_end(rest);
  if (number == SYS_memfd_create && Fails("memfd_create")) return -1;
  return REAL(syscall)(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

ssize_t write(int file, const void* text, size_t size) {
  if (IsKilledHere()) {
    REAL(write)(file, text, size / 2);
    _exit(kKilled);
  }
  return Fails("write") ? -1 : REAL(write)(file, text, size);
}

ssize_t pwrite(int file, const void* text, size_t size, off_t at) {
  return Fails("pwrite") ? -1 : REAL(pwrite)(file, text, size, at);
}

ssize_t pread(int file, void* text, size_t size, off_t at) {
  return Fails("pread") ? -1 : REAL(pread)(file, text, size, at);
}

ssize_t readlink(const char* path, char* text, size_t size) noexcept {
  return Fails("readlink") ? -1 : REAL(readlink)(path, text, size);
}

int fchown(int file, uid_t owner, gid_t group) noexcept {
  return Fails("fchown") ? -1 : REAL(fchown)(file, owner, group);
}

int fchmod(int file, mode_t mode) noexcept {
  return Fails("fchmod") ? -1 : REAL(fchmod)(file, mode);
}

int fsync(int file) { return Fails("fsync") ? -1 : REAL(fsync)(file); }

int renameat(int from_directory, const char* from, int directory, const char* to) noexcept {
  return Fails("renameat") ? -1 : REAL(renameat)(from_directory, from, directory, to);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
  return Fails("unlinkat") ? -1 : REAL(unlinkat)(directory, path, flags);
}

int close(int file) {
  const bool fails = Fails("close");
  const int reason = errno;
  const int result = REAL(close)(file);
  if (!fails) return result;
  errno = reason;
  return -1;
}

}  // extern "C"
#pragma GCC visibility pop

namespace corvane {
namespace {

using corvane_test::FailEachAllocation;
using corvane_test::TempPath;

const char kOld[] = "the old file\n";

// Larger than a buffer of the comparison.
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
  Folder() : path(TempPath("save")), file(path + "/camera.ini") {
    std::system(("rm -rf " + path).c_str());
    mkdir(path.c_str(), 0777);
    chmod(path.c_str(), 0777);
    Reset();
  }
  ~Folder() { std::system(("rm -rf " + path).c_str()); }
  void Reset() const {
    std::ofstream(file, std::ios::binary) << kOld;
    chmod(file.c_str(), 0644);
  }
  std::string At(const std::string& name) const { return path + "/" + name; }
  // How many files are there, or -1.
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

int LowestFreeDescriptor() {
  const int descriptor = dup(0);
  close(descriptor);
  return descriptor;
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
  const gid_t group = 65534;
  if (setgroups(1, &group) != 0 || setgid(group) != 0 || setuid(65534) != 0) _exit(98);
}

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(IniSave, ReplacesAndCreates) {
  const Folder folder;
  const int descriptors = LowestFreeDescriptor();
  EXPECT_EQ(SaveIniFile(NewDocument(), folder.file), INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), NewText());
  EXPECT_EQ(SaveIniFile(IniFile(), folder.file), INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), "");
  EXPECT_EQ(SaveIniFile(NewDocument(), folder.At(std::string(255, 'n'))), INI_SAVE_OK);
  // From the working directory, and up to a NUL.
  EXPECT_EQ(InChild([&] {
              if (chdir(folder.path.c_str()) != 0) return 98;
              return int(SaveIniFile(NewDocument(1), std::string("here.ini\0x", 10)));
            }),
            INI_SAVE_OK);
  EXPECT_EQ(Read(folder.At("here.ini")), NewText(1));
  EXPECT_EQ(folder.Files(), 3);
  EXPECT_EQ(LowestFreeDescriptor(), descriptors);
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
  // Root keeps the owner; another user gets the file, without set-user-ID.
  struct stat status = {};
  ASSERT_EQ(chown(folder.file.c_str(), 1234, 4321), 0);
  ASSERT_EQ(chmod(folder.file.c_str(), 04751), 0);
  EXPECT_EQ(SaveIniFile(NewDocument(), folder.file), INI_SAVE_OK);
  ASSERT_EQ(stat(folder.file.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234u);
  EXPECT_EQ(status.st_gid, 4321u);
  EXPECT_EQ(status.st_mode & 07777, 04751u);
  EXPECT_EQ(InChild([&] {
              BecomeNormalUser();
              return int(SaveIniFile(NewDocument(), folder.file));
            }),
            INI_SAVE_OK);
  ASSERT_EQ(stat(folder.file.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534u);
  EXPECT_EQ(status.st_mode & 07777, 0751u);
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
      {"nowhere/file", "lost", INI_SAVE_ERR_DIRECTORY, nullptr},
      {"sub", "to_directory", INI_SAVE_ERR_NOT_REGULAR, nullptr},
      {"/dev/null", "to_device", INI_SAVE_ERR_NOT_REGULAR, nullptr},
  };
  for (const auto& link : links) ASSERT_EQ(symlink(link.text, folder.At(link.name).c_str()), 0);
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
  ASSERT_EQ(symlink(folder.file.c_str(), folder.At("absolute").c_str()), 0);
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
      {folder.At("new/"), INI_SAVE_ERR_PATH, EISDIR},
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

  const struct {
    const char* call;
    int nth;
    int error;
    IniSaveResult result;
  } calls[] = {
      {"readlink", 1, EACCES, INI_SAVE_ERR_DIRECTORY},
      {"readlink", 1, ELOOP, INI_SAVE_ERR_LINK},
      {"open", 1, EMFILE, INI_SAVE_ERR_DIRECTORY},
      {"memfd_create", 1, ENOSYS, INI_SAVE_ERR_MEMORY_FILE},
      {"open", 2, EMFILE, INI_SAVE_ERR_MEMORY_FILE},  // SaveAs
      {"write", 1, ENOSPC, INI_SAVE_ERR_WRITE},       // SaveAs, into memory: the texts differ
      {"pwrite", 1, EFBIG, INI_SAVE_ERR_LIMIT},
      {"pwrite", 2, EFBIG, INI_SAVE_ERR_LIMIT},
      {"openat", 1, EROFS, INI_SAVE_ERR_CREATE},
      {"open", 3, EMFILE, INI_SAVE_ERR_WRITE},  // SaveAs
      {"write", 2, ENOSPC, INI_SAVE_ERR_WRITE},
      {"pread", 1, EIO, INI_SAVE_ERR_WRITE},
      {"pread", 4, EIO, INI_SAVE_ERR_WRITE},
      {"fchmod", 1, EPERM, INI_SAVE_ERR_PERMISSIONS},
      {"fsync", 1, EIO, INI_SAVE_ERR_SYNC},
      {"renameat", 1, EBUSY, INI_SAVE_ERR_RENAME},
      {"fsync", 2, EINVAL, INI_SAVE_ERR_SYNC_DIRECTORY},
  };
  const int files = folder.Files();
  const int descriptors = LowestFreeDescriptor();
  const IniFile document = NewDocument();
  for (const auto& call : calls) {
    SCOPED_TRACE(call.call + std::to_string(call.nth));
    folder.Reset();
    plan = {};
    plan.name = call.call;
    plan.nth = call.nth;
    plan.error = call.error;
    plan.on = true;
    const IniSaveResult result = SaveIniFile(document, folder.file);
    const int error = errno;
    plan.on = false;
    EXPECT_EQ(result, call.result);
    if (result != INI_SAVE_ERR_WRITE && !Is(call.call, "open")) {
      EXPECT_EQ(error, call.error);
    }
    EXPECT_EQ(Read(folder.file), result == INI_SAVE_ERR_SYNC_DIRECTORY ? NewText() : kOld);
    EXPECT_EQ(folder.Files(), files);
    EXPECT_EQ(LowestFreeDescriptor(), descriptors);
  }
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
  for (const auto& limit :
       {std::make_pair(size - 1, INI_SAVE_ERR_LIMIT), std::make_pair(size, INI_SAVE_ERR_LIMIT),
        std::make_pair(rlim_t{0}, INI_SAVE_ERR_LIMIT), std::make_pair(size + 1, INI_SAVE_OK)}) {
    EXPECT_EQ(InChild([&] {
                std::signal(SIGXFSZ, SIG_IGN);
                const rlimit limits = {limit.first, limit.first};
                if (setrlimit(RLIMIT_FSIZE, &limits) != 0) return 98;
                return int(SaveIniFile(NewDocument(), folder.file));
              }),
              limit.second)
        << limit.first;
    EXPECT_EQ(Read(folder.file), limit.second == INI_SAVE_OK ? NewText() : kOld);
    EXPECT_EQ(folder.Files(), 1);
  }

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
    unlink(folder.file.c_str());
    if (SaveIniFile(NewDocument(), folder.file) != INI_SAVE_OK) return 4;
    if (SaveIniFile(NewDocument(1), folder.file) != INI_SAVE_ERR_WRITE) return 5;
    return Read(folder.file) == NewText() && folder.Files() == 1 ? 0 : 6;
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
  const IniSaveResult results[] = {INI_SAVE_ERR_DIRECTORY, INI_SAVE_ERR_MEMORY_FILE,
                                   INI_SAVE_ERR_MEMORY_FILE, INI_SAVE_ERR_WRITE, INI_SAVE_OK};
  for (rlim_t left = 0; left < 5; ++left) {
    EXPECT_EQ(InChild([&] {
                const rlim_t descriptors = rlim_t(LowestFreeDescriptor()) + left;
                const rlimit limits = {descriptors, descriptors};
                if (setrlimit(RLIMIT_NOFILE, &limits) != 0) return 98;
                return int(SaveIniFile(document, folder.file));
              }),
              results[left])
        << left;
    EXPECT_EQ(Read(folder.file), results[left] == INI_SAVE_OK ? NewText() : kOld);
    EXPECT_EQ(folder.Files(), 1);
  }
}

TEST(IniSave, SyncsBeforeItRenames) {
  const Folder folder;
  const IniFile document = NewDocument();
  plan = {};
  plan.interrupt = true;
  plan.on = true;
  const IniSaveResult result = SaveIniFile(document, folder.file);
  plan.on = false;
  EXPECT_EQ(result, INI_SAVE_OK);
  EXPECT_EQ(Read(folder.file), NewText());
  std::string made;
  for (int i = 0; i < plan.steps; ++i) {
    if (Is(plan.made[i], "pread") || Is(plan.made[i], "close")) continue;
    made += plan.made[i] + std::string(" ");
  }
  EXPECT_EQ(made,
            "readlink open memfd_create pwrite open write pwrite "
            "openat open write fchmod fsync renameat fsync ");
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
      plan = {};
      plan.kill_at = step;
      plan.on = true;
      return int(SaveIniFile(document, folder.file));
    });
    const std::string text = Read(folder.file);
    EXPECT_TRUE(text == NewText() || (!was_new && text == kOld)) << step;
    was_new = was_new || text == NewText();
    // What a dead process left disturbs nobody.
    EXPECT_EQ(SaveIniFile(NewDocument(2), folder.file), INI_SAVE_OK);
  }
  EXPECT_EQ(result, INI_SAVE_OK);
  EXPECT_TRUE(was_new);
}

TEST(IniSave, PassesOnThatMemoryRanOut) {
  const Folder folder;
  const IniFile document = NewDocument();
  const std::string path = folder.file;
  const int descriptors = LowestFreeDescriptor();
  const auto is_untouched = [&](long nth, bool threw, long leaked) {
    EXPECT_TRUE(threw) << nth;
    EXPECT_EQ(leaked, 0) << nth;
    EXPECT_EQ(Read(path), kOld) << nth;
    EXPECT_EQ(folder.Files(), 1) << nth;
    EXPECT_EQ(LowestFreeDescriptor(), descriptors) << nth;
  };
  EXPECT_GT(FailEachAllocation([&] { SaveIniFile(document, path); }, is_untouched), 4);
  EXPECT_EQ(Read(path), NewText());

  folder.Reset();
  for (const int nth : {2, 3}) {  // SaveAs, into memory and onto the disk
    plan = {};
    plan.name = "open";
    plan.nth = nth;
    plan.error = ENOMEM;
    plan.on = true;
    EXPECT_THROW(SaveIniFile(document, path), std::bad_alloc);
    plan.on = false;
    is_untouched(nth, true, 0);
  }
}

TEST(IniSave, ConcurrentSaversLeaveOneWholeFile) {
  const Folder folder;
  ASSERT_EQ(symlink("camera.ini", folder.At("link").c_str()), 0);
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

// Crash-safe saving: the file is the old one or the whole new one, wherever the saver is stopped.
#include "corvane/ini_save.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdarg>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

namespace {

// The calls by which a saver changes the file system. They are this program's own, so that it can
// be killed in front of each, or told that one of them failed.
thread_local int calls_until_death = 0;  // 0: lives
thread_local const char* failing_call = "";
thread_local int failure_errno = 0;

bool Fails(const char* call) {
  if (calls_until_death > 0 && --calls_until_death == 0) _exit(9);
  if (std::string(failing_call) != call) return false;
  failing_call = "";  // once: a full disk does not fill the memory
  errno = failure_errno;
  return true;
}

}  // namespace

#pragma GCC visibility push(default)  // for the library, too
extern "C" {
int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
  va_end(arguments);
  const char* const call = (flags & O_DIRECTORY) != 0 ? "open folder" : "open";
  return Fails(call) ? -1 : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
ssize_t write(int fd, const void* bytes, size_t count) {
  return Fails("write") ? -1 : syscall(SYS_write, fd, bytes, count);
}
int fsync(int fd) { return Fails("fsync") ? -1 : static_cast<int>(syscall(SYS_fsync, fd)); }
int fchmod(int fd, mode_t mode) {
  return Fails("fchmod") ? -1 : static_cast<int>(syscall(SYS_fchmod, fd, mode));
}
int rename(const char* from, const char* to) noexcept {
  if (Fails("rename")) return -1;
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}
}
#pragma GCC visibility pop

namespace corvane {
namespace {

class IniSaveTest : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = testing::TempDir() + "corvane_save_XXXXXX";
    ASSERT_NE(mkdtemp(&folder_[0]), nullptr);
    target_ = folder_ + "/settings.ini";
    new_.SetStringValue("camera", "name", std::string(10000, 'n'));
    new_.SetIntValue("camera", "gain", 2);
    new_.SaveAs(folder_ + "/expected");
    new_text_ = Content(folder_ + "/expected");
    unlink((folder_ + "/expected").c_str());
    std::ofstream(target_) << old_text_;
  }
  void TearDown() override { ASSERT_EQ(system(("rm -rf " + folder_).c_str()), 0); }

  static std::string Content(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  int FileCount() const {
    int count = 0;
    FILE* names = popen(("ls -A " + folder_ + " | wc -l").c_str(), "r");
    EXPECT_EQ(fscanf(names, "%d", &count), 1);
    pclose(names);
    return count;
  }
  mode_t ModeOf(const std::string& path) const {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return status.st_mode;
  }

  std::string folder_, target_;
  const std::string old_text_ = "[camera]\ngain=1\n";
  std::string new_text_;
  IniFile new_;
};

TEST_F(IniSaveTest, ReplacesTheFileAndKeepsItsPermissions) {
  ASSERT_EQ(chmod(target_.c_str(), 0640), 0);
  EXPECT_EQ(SaveIniFile(new_, target_), INI_SAVE_OK);
  EXPECT_EQ(Content(target_), new_text_);
  EXPECT_EQ(ModeOf(target_) & 07777, 0640u);
  EXPECT_EQ(FileCount(), 1);
}

TEST_F(IniSaveTest, MakesANewFileAsTheUmaskHasIt) {
  const mode_t old_umask = umask(027);
  EXPECT_EQ(SaveIniFile(IniFile(), folder_ + "/new.ini"), INI_SAVE_OK);
  umask(old_umask);
  EXPECT_EQ(ModeOf(folder_ + "/new.ini") & 07777, 0640u);
  EXPECT_EQ(Content(folder_ + "/new.ini"), "");
}

TEST_F(IniSaveTest, FollowsLinks) {
  const std::string link = folder_ + "/link", chain = folder_ + "/chain",
                    dangling = folder_ + "/dangling";
  ASSERT_EQ(symlink("settings.ini", link.c_str()), 0);  // relative to its folder
  ASSERT_EQ(symlink(link.c_str(), chain.c_str()), 0);
  ASSERT_EQ(symlink("not_yet.ini", dangling.c_str()), 0);
  EXPECT_EQ(SaveIniFile(new_, chain), INI_SAVE_OK);
  EXPECT_EQ(SaveIniFile(new_, dangling), INI_SAVE_OK);
  EXPECT_TRUE(S_ISLNK(ModeOf(link)) && S_ISLNK(ModeOf(chain)) && S_ISLNK(ModeOf(dangling)));
  EXPECT_EQ(Content(target_), new_text_);
  EXPECT_EQ(Content(folder_ + "/not_yet.ini"), new_text_);
}

TEST_F(IniSaveTest, RefusesWhatIsNoFile) {
  const std::string loop = folder_ + "/loop";
  ASSERT_EQ(symlink("loop", loop.c_str()), 0);
  EXPECT_EQ(SaveIniFile(new_, loop), INI_SAVE_ERR_PATH);
  EXPECT_EQ(SaveIniFile(new_, folder_), INI_SAVE_ERR_PATH);
  EXPECT_EQ(SaveIniFile(new_, ""), INI_SAVE_ERR_PATH);
  EXPECT_EQ(SaveIniFile(new_, "/dev/null"), INI_SAVE_ERR_PATH);
  EXPECT_EQ(SaveIniFile(new_, folder_ + "/none/settings.ini"), INI_SAVE_ERR_CREATE);
}

TEST_F(IniSaveTest, ReportsEachFailureAndLeavesTheOldFile) {
  struct {
    const char* call;
    int error, result;
  } const rows[] = {{"open", EACCES, INI_SAVE_ERR_CREATE},
                    {"write", ENOSPC, INI_SAVE_ERR_WRITE},
                    {"fchmod", EPERM, INI_SAVE_ERR_PERMISSIONS},
                    {"fsync", EIO, INI_SAVE_ERR_SYNC},
                    {"rename", EACCES, INI_SAVE_ERR_RENAME},
                    {"open folder", EMFILE, INI_SAVE_ERR_SYNC_FOLDER}};
  for (const auto& row : rows) {
    failure_errno = row.error;
    failing_call = row.call;
    const int result = SaveIniFile(new_, target_);
    const int error = errno;
    failing_call = "";
    EXPECT_EQ(result, row.result) << row.call;
    if (row.result != INI_SAVE_ERR_WRITE) {
      EXPECT_EQ(error, row.error) << row.call;
    }
    EXPECT_EQ(Content(target_), row.result == INI_SAVE_ERR_SYNC_FOLDER ? new_text_ : old_text_)
        << row.call;
    EXPECT_EQ(FileCount(), 1) << row.call;
  }
}

// A limit on file sizes cuts the file and the copy that it is compared with at the same byte.
TEST_F(IniSaveTest, NoticesAFileThatWasCutShort) {
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {4096, 4096};
    setrlimit(RLIMIT_FSIZE, &limit);
    _exit(SaveIniFile(new_, target_));
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), INI_SAVE_ERR_WRITE);
  EXPECT_EQ(Content(target_), old_text_);
  EXPECT_EQ(FileCount(), 1);
}

TEST_F(IniSaveTest, LeavesAWholeFileWhereverItIsKilled) {
  int deaths = 0;
  for (int step = 1;; ++step) {
    std::ofstream(target_) << old_text_;
    const pid_t child = fork();
    if (child == 0) {
      calls_until_death = step;
      _exit(SaveIniFile(new_, target_));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    const std::string content = Content(target_);
    EXPECT_TRUE(content == old_text_ || content == new_text_) << "killed at call " << step;
    if (WEXITSTATUS(status) == INI_SAVE_OK) break;
    ASSERT_EQ(WEXITSTATUS(status), 9);
    ++deaths;
  }
  EXPECT_GE(deaths, 9);  // two files opened and written thrice, mode, syncs, rename, folder
}

TEST_F(IniSaveTest, SaversAtTheSameTimeLeaveOneFileWhole) {
  std::vector<std::thread> savers;
  for (int t = 0; t < 4; ++t) {
    savers.emplace_back([this, t] {
      IniFile document;
      document.SetStringValue("", "text", std::string(50000, static_cast<char>('a' + t)));
      for (int i = 0; i < 10; ++i) EXPECT_EQ(SaveIniFile(document, target_), INI_SAVE_OK);
    });
  }
  for (std::thread& saver : savers) saver.join();
  const std::string content = Content(target_);
  ASSERT_EQ(content.size(), 50006u);
  EXPECT_EQ(content.find_first_not_of(content[5], 5), 50005u);
  EXPECT_EQ(FileCount(), 1);
}

}  // namespace
}  // namespace corvane

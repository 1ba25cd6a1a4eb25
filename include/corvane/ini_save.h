// Saving an INI document so that a crash or a power cut leaves the old file or the new one, whole,
// and so that every failure is reported (IniFile::Save and SaveAs report none).
//
// All of it is inline over IniFile::SaveAs; the library exports nothing for it. Linux only.
#ifndef CORVANE_INI_SAVE_H_
#define CORVANE_INI_SAVE_H_

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "corvane/ini_file.h"

namespace corvane {

// What SaveIniFile returns. errno says more, where the system had a reason.
enum IniSaveResult {
  INI_SAVE_OK = 0,               // the new file is in place, and so it stays after a power cut
  INI_SAVE_ERR_PATH = 1,         // no path, links in a circle, or something that is no regular file
  INI_SAVE_ERR_CREATE = 2,       // no temporary file beside the target: no such folder, no right
  INI_SAVE_ERR_WRITE = 3,        // not written whole: the disk is full, or a limit was met
  INI_SAVE_ERR_CHECK = 4,        // cannot tell whether it was written whole: no memfd or no /proc
  INI_SAVE_ERR_PERMISSIONS = 5,  // the target's permissions cannot be given to the new file
  INI_SAVE_ERR_SYNC = 6,         // the new file did not reach the disk
  INI_SAVE_ERR_RENAME = 7,       // the new file could not take the target's place
  INI_SAVE_ERR_SYNC_FOLDER = 8   // the new file is in place, but a power cut may bring the old back
};

// What SaveIniFile is made of; not for use by others.
namespace ini_save_detail {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    const int saved_errno = errno;
    if (fd_ >= 0) close(fd_);
    errno = saved_errno;
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

// The temporary file, gone with its owner unless it has become the target.
class TemporaryName {
 public:
  TemporaryName() : is_there_(false) {}
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;
  ~TemporaryName() {
    const int saved_errno = errno;
    if (is_there_) unlink(path_.c_str());
    errno = saved_errno;
  }
  // Opens a new file beside the target: exclusively, so that nobody else's is touched.
  int Create(const std::string& target, mode_t mode) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
      char suffix[48];
      std::snprintf(suffix, sizeof(suffix), ".%ld-%d.new", static_cast<long>(getpid()), attempt);
      path_ = target + suffix;
      const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
      is_there_ = fd >= 0;
      if (is_there_ || (errno != EEXIST && errno != EINTR)) return fd;
    }
    return -1;
  }
  const std::string& path() const { return path_; }
  void HasMoved() { is_there_ = false; }

 private:
  std::string path_;
  bool is_there_;
};

inline std::string FolderOf(const std::string& path) {
  const std::string::size_type slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return path.substr(0, slash == 0 ? 1 : slash);
}

// Follows the links of the last component, a dangling one too: the file that is to be replaced.
inline bool FollowLinks(std::string* path) {
  for (int links = 0; links < 40; ++links) {
    char text[4096];
    const ssize_t length = readlink(path->c_str(), text, sizeof(text));
    if (length < 0) return errno == EINVAL || errno == ENOENT;  // no link, or nothing there yet
    if (length == static_cast<ssize_t>(sizeof(text))) break;
    const std::string link(text, static_cast<std::string::size_type>(length));
    *path = !link.empty() && link[0] == '/' ? link : FolderOf(*path) + "/" + link;
  }
  errno = ELOOP;
  return false;
}

inline bool Sync(int fd) {
  int result = 0;
  do result = fsync(fd);
  while (result != 0 && errno == EINTR);
  return result == 0;
}

// Whether both hold the same bytes.
inline bool HoldTheSame(int fd, int other_fd) {
  struct stat status = {}, other_status = {};
  if (fstat(fd, &status) != 0 || fstat(other_fd, &other_status) != 0) return false;
  if (status.st_size != other_status.st_size) return false;
  char bytes[4096], other_bytes[4096];
  for (off_t at = 0; at < status.st_size;) {
    const ssize_t count = pread(fd, bytes, sizeof(bytes), at);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    for (ssize_t got = 0; got < count;) {
      const ssize_t more = pread(other_fd, other_bytes + got, static_cast<std::size_t>(count - got),
                                 at + static_cast<off_t>(got));
      if (more < 0 && errno == EINTR) continue;
      if (more <= 0) return false;
      got += more;
    }
    if (std::memcmp(bytes, other_bytes, static_cast<std::size_t>(count)) != 0) return false;
    at += static_cast<off_t>(count);
  }
  return true;
}

// Whether fd holds all of the document: compared with a second copy, in memory. A limit on the size
// of files cuts both alike, so one byte more must have found room in the copy, too.
inline int CheckWhole(const IniFile& document, int fd) {
  const Descriptor copy(static_cast<int>(syscall(SYS_memfd_create, "ini", 1U)));  // close on exec
  if (copy.get() < 0) return INI_SAVE_ERR_CHECK;
  char path[40];
  std::snprintf(path, sizeof(path), "/proc/self/fd/%d", copy.get());
  if (access(path, W_OK) != 0) return INI_SAVE_ERR_CHECK;
  document.SaveAs(path);
  if (!HoldTheSame(fd, copy.get())) return INI_SAVE_ERR_WRITE;
  const off_t end = lseek(copy.get(), 0, SEEK_END);
  return pwrite(copy.get(), "", 1, end) == 1 ? INI_SAVE_OK : INI_SAVE_ERR_WRITE;
}

}  // namespace ini_save_detail

// Writes document to path as SaveAs does, but safely: to a temporary file beside the target, which
// is checked to be whole, synced to the disk and renamed over the target; then the folder is
// synced.
//
// Whatever happens, and whenever the power goes, path is the old file or the whole new one. On any
// result but INI_SAVE_OK and INI_SAVE_ERR_SYNC_FOLDER the old file is untouched and the temporary
// one removed; only a crash in between may leave that behind (named like the target with
// ".PID-N.new").
//
// A symbolic link stays one: the file that it leads to is replaced. The new file has the
// permissions of the old one, and its owner and group where the process may give them; where there
// was none, those of a new file (0666 less the umask). Other hard links of the old file keep the
// old content.
//
// The folder must be one in which nobody untrusted can rename files: the temporary file is created
// exclusively, but SaveAs opens it once more by name.
//
// Throws std::bad_alloc like SaveAs; the old file is untouched then and nothing is left behind. A
// file of exactly the size limit of the process (RLIMIT_FSIZE) counts as not written whole.
// Threads: as IniFile; savers of one path, also of several processes, leave one of their files
// whole.
inline int SaveIniFile(const IniFile& document, const std::string& path) {
  namespace detail = ini_save_detail;
  errno = 0;
  std::string target = path;
  if (target.empty() || !detail::FollowLinks(&target)) return INI_SAVE_ERR_PATH;
  struct stat old = {};
  const bool has_old = stat(target.c_str(), &old) == 0;
  if (has_old && !S_ISREG(old.st_mode)) return INI_SAVE_ERR_PATH;

  detail::TemporaryName temporary;
  // What was private must not be readable by others while it is written.
  const detail::Descriptor file(temporary.Create(target, has_old ? 0600 : 0666));
  if (file.get() < 0) return INI_SAVE_ERR_CREATE;
  document.SaveAs(temporary.path());
  const int whole = detail::CheckWhole(document, file.get());
  if (whole != INI_SAVE_OK) return whole;

  if (has_old) {
    // Only root may give files away; for others the owner becomes theirs, as with any new file.
    const bool is_same_owner = fchown(file.get(), old.st_uid, old.st_gid) == 0;
    const mode_t kept = is_same_owner ? 07777 : 0777;
    if (fchmod(file.get(), old.st_mode & kept) != 0) return INI_SAVE_ERR_PERMISSIONS;
  }
  if (!detail::Sync(file.get())) return INI_SAVE_ERR_SYNC;
  if (rename(temporary.path().c_str(), target.c_str()) != 0) return INI_SAVE_ERR_RENAME;
  temporary.HasMoved();

  const detail::Descriptor folder(
      open(detail::FolderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // Some file systems know no sync of a folder; they say so by EINVAL.
  if (folder.get() < 0 || (!detail::Sync(folder.get()) && errno != EINVAL)) {
    return INI_SAVE_ERR_SYNC_FOLDER;
  }
  return INI_SAVE_OK;
}

}  // namespace corvane

#endif  // CORVANE_INI_SAVE_H_

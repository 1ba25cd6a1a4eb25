// Crash-safe saving: a new file beside the target, written and synced, then renamed over it.
#include "corvane/ini_save.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "src/config/ini_round_trip.h"
#include "src/config/ini_writer.h"

namespace corvane {
namespace {

constexpr int kMaxLinks = 40;       // as the system's own limit
constexpr int kMaxAttempts = 1000;  // while others change what the path leads to

// The call's result, which is negative on failure; repeated while a signal interrupts it.
template <typename Call>
auto Retry(Call call) -> decltype(call()) {
  decltype(call()) result;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

// The C library's stat functions would ask for a newer glibc than the boards have. On 64-bit
// systems the kernel's record is the C library's.
int StatAt(int directory, const char* name, int flags, struct stat* status) {
  return static_cast<int>(
      Retry([&] { return syscall(SYS_newfstatat, directory, name, status, flags); }));
}
int StatOf(int file, struct stat* status) {
  return static_cast<int>(Retry([&] { return syscall(SYS_fstat, file, status); }));
}

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// An open file, or none. Closing leaves errno alone and has no second try: Linux has released the
// descriptor even where close was interrupted.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Reset(-1); }

  void Reset(int number) {
    const int reason = errno;
    if (IsOpen()) close(number_);
    errno = reason;
    number_ = number;
  }
  bool IsOpen() const { return number_ >= 0; }
  int get() const { return number_; }

 private:
  int number_;
};

// What a path leads to: a name in a directory, and the file there if there is one.
struct Target {
  Descriptor directory;
  std::string name;
  bool exists = false;
  struct stat status = {};
};

// Goes to the directory and name that the path leads to when the links at its end are followed.
// Each directory is opened from the one before, so paths of any length can be combined.
IniSaveResult FollowLinks(const std::string& path, Target* target) {
  std::string rest = path;
  target->directory.Reset(-1);
  for (int links = 0; links <= kMaxLinks; ++links) {
    const IniSaveResult bad_name = links == 0 ? INI_SAVE_ERR_PATH : INI_SAVE_ERR_LINK;
    const std::string::size_type name_at = rest.rfind('/') + 1;  // without "/": npos + 1 is 0
    target->name = rest.substr(name_at);
    rest.resize(name_at);
    if (target->name.empty()) {
      errno = rest.empty() ? ENOENT : EISDIR;
      return bad_name;
    }
    const int from = target->directory.IsOpen() ? target->directory.get() : AT_FDCWD;
    const int directory = Retry([&] {
      return openat(from, rest.empty() ? "." : rest.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    });
    if (directory < 0) {
      if (errno == ENAMETOOLONG) return bad_name;
      return errno == ELOOP ? INI_SAVE_ERR_LINK : INI_SAVE_ERR_DIRECTORY;
    }
    target->directory.Reset(directory);

    char text[4096];
    const ssize_t size =
        Retry([&] { return readlinkat(directory, target->name.c_str(), text, sizeof(text)); });
    if (size < 0) {
      if (errno == EINVAL || errno == ENOENT) return INI_SAVE_OK;  // no link; nothing at all
      if (errno == ENAMETOOLONG) return bad_name;
      return errno == ELOOP ? INI_SAVE_ERR_LINK : INI_SAVE_ERR_DIRECTORY;
    }
    if (static_cast<std::size_t>(size) == sizeof(text)) {
      errno = ENAMETOOLONG;
      return INI_SAVE_ERR_LINK;
    }
    rest.assign(text, static_cast<std::size_t>(size));
  }
  errno = ELOOP;
  return INI_SAVE_ERR_LINK;
}

// Finds what the path leads to. The system must agree: it refuses some links (in sticky
// directories), knows files without a name (through /proc), and shows a link that is changed
// meanwhile.
IniSaveResult FindTarget(const std::string& path, Target* target) {
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    const IniSaveResult followed = FollowLinks(path, target);
    if (followed != INI_SAVE_OK) return followed;
    struct stat seen = {};
    const bool is_seen = StatAt(AT_FDCWD, path.c_str(), 0, &seen) == 0;
    if (!is_seen && errno != ENOENT) {
      return errno == ENAMETOOLONG ? INI_SAVE_ERR_PATH : INI_SAVE_ERR_LINK;
    }
    if (is_seen && !S_ISREG(seen.st_mode)) {
      errno = S_ISDIR(seen.st_mode) ? EISDIR : EINVAL;
      return INI_SAVE_ERR_NOT_REGULAR;
    }
    target->exists = StatAt(target->directory.get(), target->name.c_str(), AT_SYMLINK_NOFOLLOW,
                            &target->status) == 0;
    if (!target->exists && errno != ENOENT) return INI_SAVE_ERR_DIRECTORY;
    if (target->exists == is_seen && (!is_seen || IsSameFile(seen, target->status))) {
      return INI_SAVE_OK;
    }
  }
  errno = EAGAIN;
  return INI_SAVE_ERR_LINK;
}

// A file beside the target, which is removed at the end unless it was renamed.
class TemporaryFile {
 public:
  explicit TemporaryFile(int directory)
      : directory_(directory), name_(".ini_save.0123456789abcdef") {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    const int reason = errno;
    if (exists_) Retry([this] { return unlinkat(directory_, name_.c_str(), 0); });
    errno = reason;
  }

  // Opens a new file. Allocates nothing: once the file is there, nothing may fail before it has an
  // owner.
  bool Create(mode_t mode) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    uint64_t number =
        static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
    number ^= static_cast<uint64_t>(getpid()) << 40;
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
      number = number * 6364136223846793005U + 1442695040888963407U;
      for (unsigned digit = 0; digit < 16; ++digit) {
        name_[name_.size() - 1 - digit] = "0123456789abcdef"[(number >> (4 * digit)) & 15];
      }
      file_.Reset(Retry([this, mode] {
        return openat(directory_, name_.c_str(),
                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
      }));
      exists_ = file_.IsOpen();
      if (exists_ || errno != EEXIST) break;
    }
    return exists_;
  }

  bool Write(const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
      const ssize_t put =
          Retry([&] { return write(file_.get(), text.data() + done, text.size() - done); });
      if (put == 0) errno = EIO;
      if (put <= 0) return false;
      done += static_cast<std::size_t>(put);
    }
    return true;
  }

  bool Sync() {
    return Retry([this] { return fsync(file_.get()); }) == 0;
  }

  // Gives the file the owner and mode of another; the owner only where the process may.
  bool SetPermissions(const struct stat& wanted) {
    struct stat now = {};
    if (StatOf(file_.get(), &now) != 0) return false;
    mode_t mode = wanted.st_mode & 07777;
    if (now.st_uid != wanted.st_uid || now.st_gid != wanted.st_gid) {
      if (!ChangeOwner(wanted.st_uid, wanted.st_gid)) {
        if (errno != EPERM) return false;
        const bool keeps_group = ChangeOwner(static_cast<uid_t>(-1), wanted.st_gid);
        if (!keeps_group && errno != EPERM) return false;
        if (!keeps_group || now.st_uid != wanted.st_uid) mode &= 0777;
      }
      if (StatOf(file_.get(), &now) != 0) return false;
    }
    // Not asked for without need: FAT refuses.
    return (now.st_mode & 07777) == mode || Retry([&] { return fchmod(file_.get(), mode); }) == 0;
  }

  // A network file system can report the failure of a rename that has worked.
  bool RenameTo(const std::string& name) {
    if (Retry([&] { return renameat(directory_, name_.c_str(), directory_, name.c_str()); }) != 0) {
      const int reason = errno;
      struct stat own = {}, target = {};
      const bool has_worked = StatOf(file_.get(), &own) == 0 &&
                              StatAt(directory_, name.c_str(), AT_SYMLINK_NOFOLLOW, &target) == 0 &&
                              IsSameFile(own, target);
      errno = reason;
      if (!has_worked) return false;
    }
    exists_ = false;
    return true;
  }

 private:
  bool ChangeOwner(uid_t owner, gid_t group) {
    return Retry([&] { return fchown(file_.get(), owner, group); }) == 0;
  }

  const int directory_;
  std::string name_;
  bool exists_ = false;
  Descriptor file_;
};

bool HasSamePermissions(const struct stat& a, const struct stat& b) {
  return a.st_uid == b.st_uid && a.st_gid == b.st_gid && a.st_mode == b.st_mode;
}

// Gives the file the permissions of the target and puts it in the target's place. What the path
// leads to is looked at again right before the rename, as it may have changed since.
IniSaveResult Replace(const std::string& path, const struct stat& directory, Target* target,
                      TemporaryFile* file) {
  bool has_permissions = !target->exists;
  struct stat wanted = target->status;
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    if (!has_permissions) {
      if (!file->SetPermissions(wanted)) return INI_SAVE_ERR_PERMISSIONS;
      if (!file->Sync()) return INI_SAVE_ERR_SYNC;
    }
    const IniSaveResult found = FindTarget(path, target);
    if (found != INI_SAVE_OK) return found;
    struct stat found_directory = {};
    if (StatOf(target->directory.get(), &found_directory) != 0) return INI_SAVE_ERR_DIRECTORY;
    if (!IsSameFile(found_directory, directory)) break;
    has_permissions = !target->exists || HasSamePermissions(target->status, wanted);
    wanted = target->status;
    if (!has_permissions) continue;
    return file->RenameTo(target->name) ? INI_SAVE_OK : INI_SAVE_ERR_RENAME;
  }
  errno = EAGAIN;
  return INI_SAVE_ERR_LINK;
}

}  // namespace

IniSaveResult SaveIniFile(const IniFile& document, const std::string& path) {
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return INI_SAVE_ERR_PATH;
  }
  const std::string text = IniText(document);
  if (!LoadsBackAs(text, document)) {
    errno = EINVAL;
    return INI_SAVE_ERR_TEXT;
  }

  Target target;
  const IniSaveResult found = FindTarget(path, &target);
  if (found != INI_SAVE_OK) return found;
  const Descriptor directory(Retry(
      [&] { return openat(target.directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  struct stat directory_status = {};
  if (!directory.IsOpen() || StatOf(directory.get(), &directory_status) != 0) {
    return INI_SAVE_ERR_DIRECTORY;
  }

  TemporaryFile file(directory.get());
  if (!file.Create(target.exists ? 0600 : 0666)) return INI_SAVE_ERR_CREATE;
  if (!file.Write(text)) return INI_SAVE_ERR_WRITE;
  if (!target.exists && !file.Sync()) return INI_SAVE_ERR_SYNC;
  const IniSaveResult replaced = Replace(path, directory_status, &target, &file);
  if (replaced != INI_SAVE_OK) return replaced;
  const bool is_synced = Retry([&] { return fsync(directory.get()); }) == 0;
  return is_synced ? INI_SAVE_OK : INI_SAVE_ERR_SYNC_DIRECTORY;
}

}  // namespace corvane

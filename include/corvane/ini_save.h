// Crash-safe saving of an INI file, for devices that lose power.
//
//   corvane::IniFile config;
//   ...
//   const corvane::IniSaveResult saved = corvane::SaveIniFile(config, "/etc/camera.ini");
//   if (saved != corvane::INI_SAVE_OK) std::fprintf(stderr, "not saved: %d, %m\n", saved);
//
// IniFile::SaveAs empties the file and then writes, and reports nothing. SaveIniFile has SaveAs
// write a new file beside the old one, proves that it is whole, brings it to the disk, and only
// then renames it over the old one: at any time, also after a crash or a power cut, the path leads
// to the whole old file or to the whole new one.
//
// How it is proved. SaveAs writes the document a second time, into an anonymous file in memory.
// SaveIniFile writes one byte behind that text, and compares both texts byte for byte. Hence:
//   - a full disk, a quota, an I/O error or a lack of descriptors leaves the file other than the
//     text in memory;
//   - what cuts both alike, a limit on file sizes (RLIMIT_FSIZE), refuses the byte behind, too. A
//     document must therefore be smaller than the limit, not as large. (Without a handler for
//     SIGXFSZ, or SIG_IGN, the system ends a process that writes beyond the limit.)
//   - what the system can write to the disk only later, it reports to fsync.
// Not seen would be two failures that pass: one of the disk and one of the memory, cutting at the
// same byte, and the latter gone when the byte behind is written.
//
// The file's identity:
//   - Symbolic links are followed, up to 40, also to a file that does not exist yet; they stay.
//     Other hard links to the old file keep the old content.
//   - A new file gets the mode that the umask leaves of 0666. An old one's mode is kept; its owner
//     and group are kept as far as the process may set them, and where it may not, the bits
//     S_ISUID, S_ISGID and S_ISVTX are dropped. Access control lists and other extended attributes
//     are not carried over.
//   - The directory must allow reading, writing and searching. Write permission on the file itself
//     is not asked for: it is replaced, not written to.
//
// The temporary file is called ".ini_save." and 16 hexadecimal digits, is never a file that was
// there before, and is readable by its owner alone while it replaces a file. It is written through
// its descriptor (/proc/self/fd), never looked up by its name, so that no link put in its place can
// misdirect SaveAs. That nobody but trusted users can rename files in the directory (it is theirs,
// or sticky as /tmp) is assumed: whoever can, can replace the target itself. A crash can leave a
// temporary file; it may be deleted while no save is running.
//
// Needed: Linux 3.17 and /proc. Everything is inline; the calling program needs nothing more than
// libCorvaneCommon. The disk must have room for both files.
//
// Threads and processes: calls on different documents, also with the same path, may run at once;
// the last to finish wins. The document itself is only read. File permissions or links that someone
// changes during the call may be lost.
#ifndef CORVANE_INI_SAVE_H_
#define CORVANE_INI_SAVE_H_

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "corvane/ini_file.h"

namespace corvane {

// What SaveIniFile reports. errno tells the reason of a failure.
//
// With all but INI_SAVE_OK and INI_SAVE_ERR_SYNC_DIRECTORY, the old file is untouched, or there is
// still none. The temporary file is removed in any case.
enum IniSaveResult {
  INI_SAVE_OK = 0,               // the new file is there, and on the disk
  INI_SAVE_ERR_PATH = 1,         // the path is empty, too long, or ends with "/"
  INI_SAVE_ERR_LINK = 2,         // a loop or too many links, one that the system does not let
                                 // the process follow, or one to a file without a name
  INI_SAVE_ERR_DIRECTORY = 3,    // the directory is missing, or may not be read or searched
  INI_SAVE_ERR_NOT_REGULAR = 4,  // the path leads to a directory, a device, a pipe, ...
  INI_SAVE_ERR_MEMORY_FILE = 5,  // no file in memory: no memory or descriptor left, no /proc, or
                                 // Linux is older than 3.17
  INI_SAVE_ERR_LIMIT = 6,        // the file in memory may not be as large as the document
  INI_SAVE_ERR_CREATE = 7,       // no new file in the directory: no permission, space or
                                 // descriptor, a read-only file system, ...
  INI_SAVE_ERR_WRITE = 8,        // the new file could not be written whole: the disk is full, ...
  INI_SAVE_ERR_PERMISSIONS = 9,  // the new file cannot have the old one's mode
  INI_SAVE_ERR_SYNC = 10,        // the new file could not be brought to the disk
  INI_SAVE_ERR_RENAME = 11,      // the new file could not replace the old one
  INI_SAVE_ERR_SYNC_DIRECTORY = 12  // the whole new file is there, but after a power cut it may be
                                    // the whole old one again; the file system may not be able to
                                    // promise more
};

// The parts of SaveIniFile; not for other use.
namespace ini_save_detail {

// The call's result, which is negative on failure; repeated while a signal interrupts it.
template <typename Call>
auto Retry(Call call) -> decltype(call()) {
  decltype(call()) result;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

// An open file, or none; closed at the end, with errno left alone.
class Descriptor {
 public:
  // Takes what open returned.
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  // Linux has released the descriptor even where close was interrupted: there is no second try.
  ~Descriptor() {
    const int reason = errno;
    if (IsOpen()) close(descriptor_);
    errno = reason;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  // False after a failed open.
  bool IsOpen() const { return descriptor_ >= 0; }
  // The number, for system calls.
  int get() const { return descriptor_; }
  // The path by which this process can open the same file again, whatever happens to its name.
  std::string Path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

// A name in a directory that is removed at the end, unless it was given to another file.
struct TemporaryName {
  // No such file yet.
  explicit TemporaryName(int directory_descriptor)
      : directory(directory_descriptor), name(".ini_save.0123456789abcdef"), exists(false) {}
  ~TemporaryName() {
    const int reason = errno;
    if (exists) Retry([this] { return unlinkat(directory, name.c_str(), 0); });
    errno = reason;
  }
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;

  // Creates and opens a file under a name that no file has. Allocates nothing: once the file is
  // there, nothing may fail before it has an owner.
  int Create(mode_t mode) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    std::uint64_t number = static_cast<std::uint64_t>(now.tv_sec) * 1000000000u +
                           static_cast<std::uint64_t>(now.tv_nsec);
    number ^= static_cast<std::uint64_t>(getpid()) << 40;
    for (int attempt = 0; attempt < 1000; ++attempt) {
      number = number * 6364136223846793005u + 1442695040888963407u;
      for (unsigned digit = 0; digit < 16; ++digit) {
        name[name.size() - 1 - digit] = "0123456789abcdef"[(number >> (4 * digit)) & 15];
      }
      const int descriptor = Retry([this, mode] {
        return openat(directory, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
      });
      exists = descriptor >= 0;
      if (exists || errno != EEXIST) return descriptor;
    }
    return -1;
  }

  const int directory;  // the descriptor; the caller's
  std::string name;     // in the directory
  bool exists;          // whether there is something to remove
};

// An empty file in memory.
inline int CreateMemoryFile() {
#ifdef SYS_memfd_create
  const unsigned close_on_exec = 1;
  return static_cast<int>(syscall(SYS_memfd_create, "corvane_ini_save", close_on_exec));
#else
  errno = ENOSYS;
  return -1;
#endif
}

// What the path leads to when every link at its end is followed; such a file need not exist.
inline IniSaveResult FollowLinks(const std::string& path, std::string* target) {
  *target = path.c_str();  // the system's view of a path with a NUL
  for (int links = 0; links <= 40; ++links) {
    char text[4096];
    const ssize_t size = Retry([&] { return readlink(target->c_str(), text, sizeof text); });
    if (size < 0) {
      if (errno == EINVAL || errno == ENOENT) return INI_SAVE_OK;  // no link; nothing at all
      if (errno == ENAMETOOLONG) return INI_SAVE_ERR_PATH;
      return errno == ELOOP ? INI_SAVE_ERR_LINK : INI_SAVE_ERR_DIRECTORY;
    }
    if (static_cast<std::size_t>(size) == sizeof text) {
      errno = ENAMETOOLONG;
      return INI_SAVE_ERR_LINK;
    }
    // A relative link starts where it stands. (No "/": npos + 1 is 0.)
    target->resize(text[0] == '/' ? 0 : target->rfind('/') + 1);
    target->append(text, static_cast<std::size_t>(size));
  }
  errno = ELOOP;
  return INI_SAVE_ERR_LINK;
}

// Looks at the file to be replaced: name in directory, which the path was found to lead to. Without
// such a file, *exists is false.
inline IniSaveResult LookAtTarget(const std::string& path, int directory, const std::string& name,
                                  struct stat* target, bool* exists) {
  // The system itself goes there first: it refuses some links (in sticky directories), and
  // links in /proc lead to files that have no name.
  struct stat seen = {};
  const bool is_seen = Retry([&] { return stat(path.c_str(), &seen); }) == 0;
  if (!is_seen && errno != ENOENT) {
    return errno == ENAMETOOLONG ? INI_SAVE_ERR_PATH : INI_SAVE_ERR_LINK;
  }
  if (is_seen && !S_ISREG(seen.st_mode)) {
    errno = S_ISDIR(seen.st_mode) ? EISDIR : EINVAL;
    return INI_SAVE_ERR_NOT_REGULAR;
  }
  *exists =
      Retry([&] { return fstatat(directory, name.c_str(), target, AT_SYMLINK_NOFOLLOW); }) == 0;
  if (!*exists) {
    if (errno == ENAMETOOLONG) return INI_SAVE_ERR_PATH;
    if (errno != ENOENT) return INI_SAVE_ERR_DIRECTORY;
    return is_seen ? INI_SAVE_ERR_LINK : INI_SAVE_OK;
  }
  if (S_ISREG(target->st_mode)) return INI_SAVE_OK;
  errno = EINVAL;
  return INI_SAVE_ERR_NOT_REGULAR;
}

// Has SaveAs write the document into the empty file in memory; *size is the text's.
inline IniSaveResult WriteToMemory(const IniFile& document, const Descriptor& memory, off_t* size) {
  // What no document's text is, as every line ends with a line break: it stays where SaveAs cannot
  // open the file.
  const char unwritten = '?';
  if (Retry([&] { return pwrite(memory.get(), &unwritten, 1, 0); }) != 1) return INI_SAVE_ERR_LIMIT;
  document.SaveAs(memory.Path());
  struct stat written = {};
  if (fstat(memory.get(), &written) != 0) return INI_SAVE_ERR_MEMORY_FILE;
  *size = written.st_size;
  char first = 0;
  if (*size == 1 && Retry([&] { return pread(memory.get(), &first, 1, 0); }) == 1 &&
      first == unwritten) {
    const Descriptor again(
        Retry([&] { return open(memory.Path().c_str(), O_WRONLY | O_CLOEXEC); }));
    if (again.IsOpen()) errno = EAGAIN;
    return INI_SAVE_ERR_MEMORY_FILE;
  }
  const bool more_fits = Retry([&] { return pwrite(memory.get(), "", 1, *size); }) == 1;
  return more_fits ? INI_SAVE_OK : INI_SAVE_ERR_LIMIT;
}

// Whether the file has exactly this size, and the same text as the first bytes of the other.
inline bool IsSameText(int file, int other, off_t size) {
  struct stat written = {};
  if (fstat(file, &written) != 0 || written.st_size != size) return false;
  char text[4096];
  char other_text[4096];
  for (off_t at = 0; at < size;) {
    const std::size_t rest = static_cast<std::size_t>(size - at);
    const std::size_t wanted = rest < sizeof text ? rest : sizeof text;
    const ssize_t got = Retry([&] { return pread(file, text, wanted, at); });
    if (got <= 0) return false;
    const std::size_t count = static_cast<std::size_t>(got);
    const ssize_t other_got = Retry([&] { return pread(other, other_text, count, at); });
    if (other_got != got || std::memcmp(text, other_text, count) != 0) return false;
    at += got;
  }
  return true;
}

// Gives the file the owner and the mode; the owner only where the process may.
inline bool SetPermissions(int file, const struct stat& wanted) {
  struct stat now = {};
  if (fstat(file, &now) != 0) return false;
  mode_t mode = wanted.st_mode & 07777;
  if (now.st_uid != wanted.st_uid || now.st_gid != wanted.st_gid) {
    const uid_t keep = static_cast<uid_t>(-1);
    if (Retry([&] { return fchown(file, wanted.st_uid, wanted.st_gid); }) != 0) {
      const bool has_group = Retry([&] { return fchown(file, keep, wanted.st_gid); }) == 0;
      if (!has_group || now.st_uid != wanted.st_uid) mode &= 0777;
    }
    if (fstat(file, &now) != 0) return false;
  }
  // Not asked for without need: FAT refuses.
  return (now.st_mode & 07777) == mode || Retry([&] { return fchmod(file, mode); }) == 0;
}

}  // namespace ini_save_detail

// Saves the document to path: either wholly, which is INI_SAVE_OK, or not at all.
//
// std::bad_alloc: the old file is untouched, and nothing is left behind.
inline IniSaveResult SaveIniFile(const IniFile& document, const std::string& path) {
  using namespace ini_save_detail;  // NOLINT(google-build-using-namespace)

  std::string target;
  const IniSaveResult followed = FollowLinks(path, &target);
  if (followed != INI_SAVE_OK) return followed;
  const std::string::size_type name_at = target.rfind('/') + 1;
  const std::string name = target.substr(name_at);
  if (name.empty()) {
    errno = target.empty() ? ENOENT : EISDIR;
    return INI_SAVE_ERR_PATH;
  }
  const std::string folder = name_at == 0 ? "." : target.substr(0, name_at);
  const Descriptor directory(
      Retry([&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (!directory.IsOpen()) return INI_SAVE_ERR_DIRECTORY;

  struct stat wanted = {};
  bool replaces = false;
  const IniSaveResult looked = LookAtTarget(path, directory.get(), name, &wanted, &replaces);
  if (looked != INI_SAVE_OK) return looked;

  const Descriptor memory(Retry(CreateMemoryFile));
  if (!memory.IsOpen()) return INI_SAVE_ERR_MEMORY_FILE;
  off_t size = 0;
  const IniSaveResult remembered = WriteToMemory(document, memory, &size);
  if (remembered != INI_SAVE_OK) return remembered;

  // This descriptor is older than every write to the file: fsync tells it of all their failures.
  TemporaryName temporary(directory.get());
  const Descriptor file(temporary.Create(replaces ? 0600 : 0666));
  if (!file.IsOpen()) return INI_SAVE_ERR_CREATE;
  struct stat created = {};
  if (fstat(file.get(), &created) != 0) return INI_SAVE_ERR_CREATE;
  if (!replaces) wanted = created;
  // An umask can take the owner's own rights, which SaveAs needs.
  if ((created.st_mode & 0600) != 0600 && Retry([&] { return fchmod(file.get(), 0600); }) != 0) {
    return INI_SAVE_ERR_PERMISSIONS;
  }

  document.SaveAs(file.Path());
  if (!IsSameText(file.get(), memory.get(), size)) {
    // SaveAs kept the reason; another write at the end meets it again.
    const off_t end = lseek(file.get(), 0, SEEK_END);
    if (Retry([&] { return pwrite(file.get(), "", 1, end); }) == 1) errno = EIO;
    return INI_SAVE_ERR_WRITE;
  }
  if (!SetPermissions(file.get(), wanted)) return INI_SAVE_ERR_PERMISSIONS;
  if (Retry([&] { return fsync(file.get()); }) != 0) return INI_SAVE_ERR_SYNC;

  if (Retry([&] {
        return renameat(directory.get(), temporary.name.c_str(), directory.get(), name.c_str());
      }) != 0) {
    return INI_SAVE_ERR_RENAME;
  }
  temporary.exists = false;
  const bool is_lasting = Retry([&] { return fsync(directory.get()); }) == 0;
  return is_lasting ? INI_SAVE_OK : INI_SAVE_ERR_SYNC_DIRECTORY;
}

}  // namespace corvane

#endif  // CORVANE_INI_SAVE_H_

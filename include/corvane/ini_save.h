// Crash-safe saving of an INI file, for devices that lose power.
//
//   corvane::IniFile config;
//   ...
//   const corvane::IniSaveResult saved = corvane::SaveIniFile(config, "/etc/camera.ini");
//   if (saved != corvane::INI_SAVE_OK) {
//     std::fprintf(stderr, "%s: %m\n", corvane::IniSaveMessage(saved));
//   }
//
// IniFile::SaveAs empties the file, then writes, and reports nothing. SaveIniFile writes a new file
// beside the old one, brings it to the disk, and then renames it over the old one: at any time,
// also after a crash or a power cut, the path leads to the whole old file or to the whole new one.
//
// What is written is what SaveAs writes. A document that would not load back is refused before
// anything on the disk changes: loading the text with the document's delimiter must give the same
// sections and items in the same order, with the same names, keys and values. (Not so, for example:
// a value with the delimiter, a line break or a space at its end; a key with "="; two sections of
// one name.) Comments may differ in the white space around their lines, and an empty nameless
// section may be added in front, as Load always does.
//
// The file's identity:
//   - Symbolic links are followed, up to 40, also to a file that does not exist yet; they stay.
//     Other hard links to the old file keep the old content.
//   - A new file gets the mode that the umask leaves of 0666. An old one's mode is kept; its owner
//     and group are kept as far as the process may set them (EPERM), and where it may not, the bits
//     S_ISUID, S_ISGID and S_ISVTX are dropped. Access control lists and other extended attributes
//     are not carried over.
//   - The directory must allow reading, writing and searching. Write permission on the file itself
//     is not needed: it is replaced, not written to.
//   - A file that is itself a mount point, such as a single file that is bind-mounted into a
//     container, cannot be replaced: INI_SAVE_ERR_RENAME with EBUSY. Mount its directory instead.
//
// The temporary file is called ".ini_save." and 16 hexadecimal digits, is never a file that existed
// before, and is readable by its owner alone while it replaces a file. None is left after a return;
// a crash can leave one, which may be deleted while no save is running. That only trusted users can
// rename files in the directory (it is theirs, or sticky as /tmp) is assumed: who can, can replace
// the target itself. The disk must have room for both files, and memory for twice the document.
//
// A limit on file sizes (RLIMIT_FSIZE) shows as INI_SAVE_ERR_WRITE with EFBIG, if the process
// ignores or handles SIGXFSZ; otherwise the system ends it.
//
// Threads and processes: calls on different documents, also with the same path, may run at once;
// the last to finish wins. The document itself is only read. Permissions or links that someone
// changes during the call may be lost.
#ifndef CORVANE_INI_SAVE_H_
#define CORVANE_INI_SAVE_H_

#include <string>

#include "corvane/export.h"
#include "corvane/ini_file.h"

namespace corvane {

// What SaveIniFile reports. errno tells the reason of a failure.
//
// With all but INI_SAVE_OK and INI_SAVE_ERR_SYNC_DIRECTORY, the old file is untouched, or there is
// still none.
enum IniSaveResult {
  INI_SAVE_OK = 0,               // the new file is there, and on the disk
  INI_SAVE_ERR_PATH = 1,         // the path is empty, too long, ends with "/", or holds a NUL
  INI_SAVE_ERR_LINK = 2,         // a loop or too many links, one that the system does not let the
                                 // process follow, one to a file without a name, or one that others
                                 // keep changing (EAGAIN)
  INI_SAVE_ERR_DIRECTORY = 3,    // the directory is missing, or may not be read or searched
  INI_SAVE_ERR_NOT_REGULAR = 4,  // the path leads to a directory, a device, a pipe, ...
  INI_SAVE_ERR_MEMORY_FILE = 5,  // no longer happens
  INI_SAVE_ERR_LIMIT = 6,        // no longer happens
  INI_SAVE_ERR_CREATE = 7,       // no new file in the directory: no permission, space or
                                 // descriptor, a read-only file system, ...
  INI_SAVE_ERR_WRITE = 8,        // the new file could not be written whole: the disk is full, ...
  INI_SAVE_ERR_PERMISSIONS = 9,  // the new file cannot have the old one's mode or owner
  INI_SAVE_ERR_SYNC = 10,        // the new file could not be brought to the disk
  INI_SAVE_ERR_RENAME = 11,      // the new file could not replace the old one
  INI_SAVE_ERR_SYNC_DIRECTORY = 12,  // the whole new file is there, but after a power cut it may be
                                     // the whole old one again; the file system may not be able to
                                     // promise more
  INI_SAVE_ERR_TEXT = 13             // the document would not load back as it is (EINVAL)
};

// Saves the document to path: either wholly, which is INI_SAVE_OK, or not at all.
//
// std::bad_alloc: the old file is untouched, and no temporary file is left.
CORVANE_EXPORT IniSaveResult SaveIniFile(const IniFile& document, const std::string& path);

// A sentence for people, without a full stop. Never null, whatever the code.
CORVANE_INLINE const char* IniSaveMessage(IniSaveResult code) {
  switch (code) {
    case INI_SAVE_OK:
      return "the file is saved";
    case INI_SAVE_ERR_PATH:
      return "the path is empty, too long, ends with a slash or holds a NUL";
    case INI_SAVE_ERR_LINK:
      return "the path's symbolic links cannot be followed";
    case INI_SAVE_ERR_DIRECTORY:
      return "the file's directory is missing, or may not be read or searched";
    case INI_SAVE_ERR_NOT_REGULAR:
      return "the path does not lead to a regular file";
    case INI_SAVE_ERR_MEMORY_FILE:
    case INI_SAVE_ERR_LIMIT:
      break;
    case INI_SAVE_ERR_CREATE:
      return "no new file can be created in the file's directory";
    case INI_SAVE_ERR_WRITE:
      return "the new file cannot be written whole";
    case INI_SAVE_ERR_PERMISSIONS:
      return "the new file cannot get the old one's owner or mode";
    case INI_SAVE_ERR_SYNC:
      return "the new file cannot be brought to the disk";
    case INI_SAVE_ERR_RENAME:
      return "the new file cannot replace the old one";
    case INI_SAVE_ERR_SYNC_DIRECTORY:
      return "the file is saved, but a power cut may bring the old one back";
    case INI_SAVE_ERR_TEXT:
      return "the document holds text that would not load back as it is";
  }
  return "unknown result of saving";
}

}  // namespace corvane

#endif  // CORVANE_INI_SAVE_H_

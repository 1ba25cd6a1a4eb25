// INI configuration files: load with comments, query, edit, write back.
//
//   corvane::IniFile config;
//   if (config.Load("camera.ini") != corvane::INI_OK) ...
//   int width = 0;
//   config.GetIntValueOrDefault("sensor", "width", &width, 640);
//   config.SetDoubleValue("sensor", "gain", 1.5);
//   config.Save();
//
// The file's form:
//
//   # a comment block: comment lines and blank lines, kept with the line that follows
//   key = value           # a right comment
//   [section]             # a right comment of the section
//   key = more = values
//
// Lines end with "\n"; white space (the C library's isspace) around lines, names, keys, values and
// right comments is dropped, a carriage return with it. Items in front of the first header belong
// to the nameless section, whose name is "". Strings are bytes: no character set, no byte-order
// mark, no escapes, no quotes; NUL is a byte like any other.
//
// What may surprise:
//   - A value ends at the first comment delimiter in it: with the default "#",
//     "color = #ff0000" is the key "color" with an empty value. Only one delimiter is known at a
//     time; ";" opens no comment unless SetCommentDelimiter(";") says so.
//   - A key may stand several times in a section. All operations on one item use the first;
//     GetValues returns all.
//   - A getter that finds the key but no number in its value gives 0 and INI_OK: the default is
//     used for a missing key only, never for a bad value.
//   - Setting a value drops the comment block above its key; the right comment stays.
//   - SetDoubleValue keeps six decimals, and writes and GetDoubleValue reads the decimal point of
//     the process's locale: 1e-9 comes back as 0, and after setlocale() to a locale with a decimal
//     comma "0.5" reads as 0.
//   - Save and SaveAs report nothing: they return INI_OK even when the file cannot be written.
//   - Load stops at the first bad line and keeps what it read before. Save after that replaces the
//     file by just this part; check Load's result first.
//
// Arguments may be references into the document itself (a section's name, an item's key, ...) or
// to what an out-parameter points to. Out-parameters must not be null.
//
// Memory: when it runs out the call throws std::bad_alloc and leaks nothing. The document and the
// out-parameters are then as before the call, with two exceptions: GetValues leaves its vector
// empty, and Load leaves the document with the new path and a front part of the file, of whole
// items (nothing, not even the nameless section, if it had not got that far). SaveAs has not
// touched the file then.
//
// What Load takes: about 32 KiB of stack, and memory for the document. An item costs 128 bytes and
// each of its strings of more than 15 bytes a block of its own, so a file of "=" lines, two bytes
// each, becomes a document of some 67 times its size: limit the size of files that others write.
//
// Threads: a document takes no lock; calls on one document, queries included, must be serialised by
// the caller. Different documents are independent.
#ifndef CORVANE_INI_FILE_H_
#define CORVANE_INI_FILE_H_

#include <memory>
#include <string>
#include <vector>

#include "corvane/export.h"

namespace corvane {

// What the operations that return int report.
enum IniResult {
  INI_OK = 0,                      // done
  INI_ERR_NO_CLOSING_BRACKET = 2,  // Load: a header line without "]"
  INI_ERR_EMPTY_SECTION_NAME = 3,  // Load: "[" and "]" with nothing between
  INI_ERR_DUPLICATE_SECTION = 4,   // Load: a header names a section that is there already;
                                   // "[ ]" too: it names the nameless one
  INI_ERR_NO_EQUALS_SIGN = 5,      // Load: a line that is no blank, comment or header has no "="
  INI_ERR_OPEN_FILE = 6,           // Load: the file cannot be opened for reading
  INI_ERR_KEY_NOT_FOUND = 8,       // the section has no item with the key
  INI_ERR_SECTION_NOT_FOUND = 9,   // no section has the name
};

// One key line.
struct IniFileItem {
  std::string key;           // the text before the first "="; may be empty
  std::string value;         // the text after it, up to the comment delimiter
  std::string comment;       // the block above: each line with its delimiter and "\n", or empty
  std::string rightComment;  // the text after the delimiter, without it
};

// One section. Change its name only to one that no other section of the document has.
struct IniFileSection {
  std::string name;                // "" for the nameless section, which has no header line
  std::string comment;             // the block above the header
  std::string rightComment;        // of the header line; other text after its "]" is ignored
  std::vector<IniFileItem> items;  // in file order
};

// A document: sections in file order. Can be moved, not copied; a moved-from document is as if new.
class IniFile {
 public:
  // An empty document: no sections (not even the nameless one), no path, comment delimiter "#".
  CORVANE_EXPORT IniFile();
  CORVANE_EXPORT ~IniFile();
  CORVANE_EXPORT IniFile(IniFile&& other) noexcept;
  CORVANE_EXPORT IniFile& operator=(IniFile&& other) noexcept;
  IniFile(const IniFile&) = delete;
  IniFile& operator=(const IniFile&) = delete;

  // Replaces the whole document, path included, by the file's content; the delimiter stays.
  //
  // INI_ERR_OPEN_FILE: the document is empty, and Save would write to path.
  // INI_ERR_NO_CLOSING_BRACKET, _EMPTY_SECTION_NAME, _DUPLICATE_SECTION, _NO_EQUALS_SIGN: reading
  //   stopped at that line; everything in front of it is in the document, the comment block right
  //   above it is not.
  // Otherwise the first section is the nameless one, even if it has no items. Comments after the
  // last item are dropped. A file that cannot be read on (a directory, say) counts as ended.
  CORVANE_EXPORT int Load(const std::string& path);

  // Back to an empty document without a path; the delimiter stays.
  CORVANE_EXPORT void release();

  // The section with exactly this name ("": the nameless one), or null. The pointer stays good
  // until the section is deleted, the document is released, loaded, assigned to or destroyed.
  CORVANE_EXPORT const IniFileSection* getSection(const std::string& name) const;
  CORVANE_EXPORT IniFileSection* getMutableSection(const std::string& name);

  // --- Queries. Section and key are compared byte for byte.
  //
  // Results: INI_OK, INI_ERR_KEY_NOT_FOUND or INI_ERR_SECTION_NOT_FOUND. If nothing is found, the
  // string and bool getters leave *value alone and the number getters set it to 0; the OrDefault
  // forms set it to default_value and still return the code.

  // The value as the document has it.
  CORVANE_EXPORT int GetStringValue(const std::string& section, const std::string& key,
                                    std::string* value) const;
  CORVANE_EXPORT void GetStringValueOrDefault(const std::string& section, const std::string& key,
                                              std::string* value,
                                              const std::string& default_value) const;

  // The value as strtol reads it in base 10, of which the low 32 bits are kept: "12 px" gives 12,
  // "0x10" and "yes" give 0, "4294967297" gives 1.
  CORVANE_EXPORT int GetIntValue(const std::string& section, const std::string& key,
                                 int* value) const;
  CORVANE_EXPORT int GetIntValueOrDefault(const std::string& section, const std::string& key,
                                          int* value, int default_value) const;

  // The value as strtod reads it in the process's locale; 0.0 where it finds no number.
  CORVANE_EXPORT int GetDoubleValue(const std::string& section, const std::string& key,
                                    double* value) const;
  CORVANE_EXPORT int GetDoubleValueOrDefault(const std::string& section, const std::string& key,
                                             double* value, double default_value) const;

  // "true" and "1", "false" and "0", in any case. Any other text leaves *value as it was, with
  // INI_OK and without the default: set *value before the call.
  CORVANE_EXPORT int GetBoolValue(const std::string& section, const std::string& key,
                                  bool* value) const;
  CORVANE_EXPORT int GetBoolValueOrDefault(const std::string& section, const std::string& key,
                                           bool* value, bool default_value) const;

  // Replaces *values by the values of all items with the key, in order; by nothing on failure.
  CORVANE_EXPORT int GetValues(const std::string& section, const std::string& key,
                               std::vector<std::string>* values) const;

  // Appends the names of all sections, in order, and returns the size of *names after that.
  CORVANE_EXPORT int GetSections(std::vector<std::string>* names) const;
  CORVANE_EXPORT int GetSectionNum() const;  // the nameless section included
  // Whether the section is there; whether it has an item with the key.
  CORVANE_EXPORT bool HasSection(const std::string& section) const;
  CORVANE_EXPORT bool HasKey(const std::string& section, const std::string& key) const;

  // The comment block above (right comment of) the first item with the key, or the section's
  // own if key is empty. Left alone if not found.
  CORVANE_EXPORT int GetComment(const std::string& section, const std::string& key,
                                std::string* comment) const;
  CORVANE_EXPORT int GetRightComment(const std::string& section, const std::string& key,
                                     std::string* right_comment) const;

  // --- Edits. They work on any document, loaded or not.

  // Sets the value of the first item with the key and empties its comment block; a missing item is
  // appended to its section, a missing section to the document (the nameless one goes to the
  // front). Always INI_OK: nothing is refused, and texts that Load would read differently (a value
  // with the delimiter or a line break, a key with "=") are stored and written as they are.
  CORVANE_EXPORT int SetStringValue(const std::string& section, const std::string& key,
                                    const std::string& value);
  CORVANE_EXPORT int SetIntValue(const std::string& section, const std::string& key, int value);
  // As "%f": six decimals, however long the text gets (309 digits for the largest double).
  CORVANE_EXPORT int SetDoubleValue(const std::string& section, const std::string& key,
                                    double value);
  // As "true" or "false".
  CORVANE_EXPORT int SetBoolValue(const std::string& section, const std::string& key, bool value);

  // Replaces the comment block (right comment) of the first item with the key, or the section's own
  // if key is empty. Nothing is created: INI_ERR_SECTION_NOT_FOUND or INI_ERR_KEY_NOT_FOUND.
  // The text is kept as it is. In a comment block begin each line with the delimiter, or it will
  // not load as a comment; a right comment goes without it, and without line breaks.
  CORVANE_EXPORT int SetComment(const std::string& section, const std::string& key,
                                const std::string& comment);
  CORVANE_EXPORT int SetRightComment(const std::string& section, const std::string& key,
                                     const std::string& right_comment);

  // What opens a comment from now on, in Load and in front of the right comments that SaveAs
  // writes. Comment blocks in the document keep the delimiter they have. Any text, of any length;
  // "" makes every line that is not blank a comment.
  CORVANE_EXPORT void SetCommentDelimiter(const std::string& delimiter);

  // The section with all its items; the first item with the key. Nothing happens if missing.
  CORVANE_EXPORT void DeleteSection(const std::string& section);
  CORVANE_EXPORT void DeleteKey(const std::string& section, const std::string& key);

  // Writes the document: "key=value" lines without spaces, right comments as " " + delimiter +
  // text, comment blocks as stored and closed with a line break. Loading it back gives the same
  // document, if its texts are such as Load makes them. A right comment of the nameless section,
  // which has no header, becomes a comment line (or lines) in front of that section's items.
  //
  // Always INI_OK, whatever became of the file. An existing file is emptied first; a failed write
  // (a full disk) loses its content.
  CORVANE_EXPORT int SaveAs(const std::string& path) const;
  CORVANE_EXPORT int Save() const;  // to the path of the last Load; without one nothing is written

 private:
  friend struct IniFileParts;  // the library's own
  int setValue(const std::string& section, const std::string& key, std::string text);

  std::vector<std::unique_ptr<IniFileSection>> sections;
  std::string filePath;
  std::string commentDelimiter;
};

}  // namespace corvane

#endif  // CORVANE_INI_FILE_H_

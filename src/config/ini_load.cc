// Reads a file in windows and parses them.
#include <algorithm>
#include <cstring>
#include <memory>

#include "corvane/ini_file.h"
#include "src/config/ini_parser.h"
#include "src/config/raw_file.h"

namespace corvane {
namespace {

// Most files fit the first window, which costs no allocation.
constexpr std::size_t kStackWindowBytes = 16 * 1024;
constexpr std::size_t kHeapWindowBytes = 256 * 1024;

}  // namespace

int IniFile::Load(const std::string& path) {
  std::string new_path(path);  // path may be in what release() frees
  release();
  filePath.swap(new_path);
  RawFile file = RawFile::ForReading(filePath);
  if (!file.IsOpen()) return INI_ERR_OPEN_FILE;
  sections.reserve(8);
  sections.push_back(std::unique_ptr<IniFileSection>(new IniFileSection));

  IniParser parser(commentDelimiter, &sections);
  char stack_window[kStackWindowBytes];
  std::unique_ptr<char[]> heap_window;
  char* window = stack_window;
  std::size_t capacity = kStackWindowBytes;
  std::size_t filled = 0;
  for (;;) {
    filled += file.Read(window + filled, capacity - filled);
    const bool is_last = filled < capacity;
    const char* rest = window;
    const int code = parser.ParseLines(Slice{window, window + filled}, is_last, &rest);
    if (code != INI_OK || is_last) return code;
    // What stays is parsed again, so it must not be most of the window.
    const auto kept = static_cast<std::size_t>(window + filled - rest);
    if (capacity < kHeapWindowBytes || kept > capacity / 2) {
      capacity = std::max(kHeapWindowBytes, 2 * capacity);
      std::unique_ptr<char[]> grown(new char[capacity]);
      std::memcpy(grown.get(), rest, kept);
      heap_window.swap(grown);
      window = heap_window.get();
    } else {
      std::memmove(window, rest, kept);
    }
    filled = kept;
  }
}

}  // namespace corvane

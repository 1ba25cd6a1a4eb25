// A recording of the runtime's calls as a file.
//
// The file is a FileHeader and records, in the order in which the calls ended. A record is a
// RecordHeader and `items` items; an item is an ItemHeader and `stored` bytes, filled up with zeros
// to a multiple of 8. Everything is little-endian, as the machines are. Each record was written by
// one call, so after a crash or a power cut at most the last one is cut off.
//
//   rknn_init             flags: its flag. One item: size and hash of the model; never stored.
//   rknn_query            flags: the command. One item: index (as the caller gave it, of an
//                         attribute), size; the record that came back, where the call succeeded.
//   rknn_inputs_set       One item for each input, as the caller described it, with its bytes.
//   rknn_outputs_get      One item for each output, with its bytes where the call succeeded.
//   rknn_outputs_release  One item for each output, never stored.
//   rknn_run, rknn_destroy
//
// Bytes that were not asked for are not stored, but their hash is there.
#ifndef CORVANE_RECORDER_RECORDING_FORMAT_H_
#define CORVANE_RECORDER_RECORDING_FORMAT_H_

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace corvane_recording {

enum Function : uint32_t {
  kInit,
  kDestroy,
  kQuery,
  kInputsSet,
  kRun,
  kOutputsGet,
  kOutputsRelease,
  kFunctionCount
};

constexpr char kMagic[8] = {'C', 'O', 'R', 'V', 'R', 'E', 'C', '1'};

struct FileHeader {
  char magic[8];
  int64_t began_us;   // since 1970
  uint32_t every;     // of how many frames the bytes of one are kept
  uint32_t is_arm64;  // where it was recorded
  uint64_t reserved;
};
static_assert(sizeof(FileHeader) == 32, "is a file's layout");

struct RecordHeader {
  uint64_t checksum;  // of the rest of this header and of all item headers, in this order
  uint32_t function;
  int32_t ret;
  uint64_t context;  // the handle; of rknn_init the new one, where it succeeded
  uint64_t at_ns;    // since the recording began
  uint64_t took_ns;
  uint32_t thread;  // the kernel's number
  uint32_t flags;
  uint32_t items;
  uint32_t bytes;  // of all items
};
static_assert(sizeof(RecordHeader) == 56, "is a file's layout");

struct ItemHeader {
  uint64_t hash;  // of its `size` bytes; 0: they were not read
  uint32_t index;
  uint32_t size;
  uint32_t stored;  // size, or 0
  uint32_t type, format;
  uint8_t pass_through, want_float, is_prealloc, reserved;
};
static_assert(sizeof(ItemHeader) == 32, "is a file's layout");

inline uint64_t Mix(uint64_t hash, uint64_t word) {
  hash = (hash ^ word) * 0x9e3779b97f4a7c15u;
  return hash ^ hash >> 29;
}

// Four chains, so that one multiplication need not wait for the one before.
inline uint64_t Hash(const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  uint64_t chains[4] = {1, 2, 3, 4};
  uint64_t words[4];
  size_t left = size;
  for (; left >= sizeof(words); left -= sizeof(words), bytes += sizeof(words)) {
    memcpy(words, bytes, sizeof(words));
    for (int i = 0; i < 4; ++i) chains[i] = Mix(chains[i], words[i]);
  }
  memset(words, 0, sizeof(words));
  if (left > 0) memcpy(words, bytes, left);
  uint64_t hash = size;
  for (int i = 0; i < 4; ++i) hash = Mix(Mix(hash, chains[i]), words[i]);
  return hash;
}

inline uint64_t Checksum(const RecordHeader& header, const ItemHeader* items) {
  const unsigned char* rest = reinterpret_cast<const unsigned char*>(&header);
  uint64_t checksum =
      Hash(rest + sizeof(header.checksum), sizeof(header) - sizeof(header.checksum));
  for (uint32_t i = 0; i < header.items; ++i) {
    checksum = Mix(checksum, Hash(&items[i], sizeof(items[i])));
  }
  return checksum;
}

inline uint32_t Padding(uint32_t stored) { return -stored & 7; }

}  // namespace corvane_recording

#endif  // CORVANE_RECORDER_RECORDING_FORMAT_H_

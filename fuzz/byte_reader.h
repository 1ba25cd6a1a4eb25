// Takes values off the front of a fuzzer's bytes; zeros when they have run out.
#ifndef CORVANE_FUZZ_BYTE_READER_H_
#define CORVANE_FUZZ_BYTE_READER_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace corvane_fuzz {

class ByteReader {
 public:
  ByteReader(const uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  template <typename T>
  T Take() {
    T value = {};
    const std::size_t size = std::min(sizeof(T), left_);
    if (size > 0) std::memcpy(&value, data_, size);
    Skip(size);
    return value;
  }
  ByteReader TakeReader(std::size_t size) {
    const ByteReader front(data_, std::min(size, left_));
    Skip(front.left_);
    return front;
  }
  // All that is left.
  std::string TakeText() {
    const ByteReader rest = TakeReader(left_);
    return std::string(reinterpret_cast<const char*>(rest.data_), rest.left_);
  }
  bool IsEmpty() const { return left_ == 0; }
  const uint8_t* data() const { return data_; }
  std::size_t size() const { return left_; }

 private:
  void Skip(std::size_t size) {
    data_ += size;
    left_ -= size;
  }

  const uint8_t* data_;
  std::size_t left_;
};

inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "fuzzing found: %s\n", what);
  std::abort();
}

}  // namespace corvane_fuzz

#endif  // CORVANE_FUZZ_BYTE_READER_H_

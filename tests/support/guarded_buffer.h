// A buffer between two unreadable pages: a read or write past its guarded end is a fault at once.
#ifndef CORVANE_TESTS_SUPPORT_GUARDED_BUFFER_H_
#define CORVANE_TESTS_SUPPORT_GUARDED_BUFFER_H_

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace corvane_test {

class GuardedBuffer {
 public:
  enum class Flush { kAtBegin, kAtEnd };  // which end of the buffer touches an unreadable page

  explicit GuardedBuffer(std::size_t bytes, Flush flush = Flush::kAtEnd) : size_(bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t room = (bytes + page - 1) / page * page;
    mapped_ = room + 2 * page;
    void* const pages = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    pages_ = static_cast<uint8_t*>(pages);
    data_ = pages_ + page + (flush == Flush::kAtEnd ? room - bytes : 0);
    if (room > 0 && mprotect(pages_ + page, room, PROT_READ | PROT_WRITE) != 0) {
      munmap(pages_, mapped_);
      throw std::bad_alloc();
    }
  }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  ~GuardedBuffer() { munmap(pages_, mapped_); }

  uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }

 private:
  std::size_t size_;
  std::size_t mapped_ = 0;
  uint8_t* pages_ = nullptr;
  uint8_t* data_ = nullptr;
};

}  // namespace corvane_test

#endif  // CORVANE_TESTS_SUPPORT_GUARDED_BUFFER_H_

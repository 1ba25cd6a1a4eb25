#include "recorder/recording_writer.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

namespace corvane_recording {

namespace {

// 0 where the variable is not set or no number.
uint64_t Setting(const char* name) {
  const char* const text = getenv(name);
  return text == nullptr ? 0 : strtoull(text, nullptr, 10);
}

}  // namespace

Recorder Recorder::the_recorder;

uint64_t Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

Recorder* Recorder::Get() {
  if (!__atomic_load_n(&the_recorder.is_opened_, __ATOMIC_ACQUIRE)) {
    pthread_mutex_lock(&the_recorder.mutex_);
    if (!the_recorder.is_opened_) the_recorder.Open();
    __atomic_store_n(&the_recorder.is_opened_, true, __ATOMIC_RELEASE);
    pthread_mutex_unlock(&the_recorder.mutex_);
  }
  return the_recorder.is_on() ? &the_recorder : nullptr;
}

Kept Recorder::BeginFrame() {
  const uint64_t frame = __atomic_fetch_add(&frames_, 1, __ATOMIC_RELAXED);
  if (max_frames_ > 0 && frame >= max_frames_) return Kept::kNothing;
  return every_ <= 1 || frame % every_ == 0 ? Kept::kBytes : Kept::kHashes;
}

void Recorder::Write(RecordHeader* header, Item* items) {
  const uint32_t count = header->items;
  iovec parts[3 * kMaxItems + 1];
  ItemHeader headers[kMaxItems];
  static const uint64_t zeros = 0;
  int used = 1;
  for (uint32_t i = 0; i < count; ++i) {
    headers[i] = items[i].header;
    const uint32_t padding = Padding(headers[i].stored);
    parts[used++] = {&headers[i], sizeof(headers[i])};
    header->bytes += static_cast<uint32_t>(sizeof(headers[i])) + headers[i].stored + padding;
    if (headers[i].stored > 0)
      parts[used++] = {const_cast<void*>(items[i].data), headers[i].stored};
    if (padding > 0) parts[used++] = {const_cast<uint64_t*>(&zeros), padding};
  }
  header->at_ns -= began_;
  header->thread = static_cast<uint32_t>(syscall(SYS_gettid));
  header->checksum = Checksum(*header, headers);
  parts[0] = {header, sizeof(*header)};
  const uint64_t bytes = sizeof(*header) + header->bytes;
  pthread_mutex_lock(&mutex_);
  if (!is_on()) {  // stopped meanwhile
  } else if (max_bytes_ > 0 && written_ + bytes > max_bytes_) {
    Stop("the next call does not fit below the largest size asked for");
  } else {
    // Not writev, where a thread may be cancelled, which then would leave the mutex locked.
    const long done = syscall(SYS_writev, file_, parts, used);
    if (done != static_cast<long>(bytes)) Stop(done < 0 ? strerror(errno) : "no more room");
    written_ += bytes;
  }
  pthread_mutex_unlock(&mutex_);
}

void Recorder::Open() {
  const char* const path = getenv("CORVANE_RECORD");
  if (path == nullptr || *path == '\0') return;
  every_ = Setting("CORVANE_RECORD_EVERY");
  max_frames_ = Setting("CORVANE_RECORD_FRAMES");
  max_bytes_ = Setting("CORVANE_RECORD_MAX_BYTES");
  pthread_atfork([] { pthread_mutex_lock(&the_recorder.mutex_); },
                 [] { pthread_mutex_unlock(&the_recorder.mutex_); },
                 [] {
                   the_recorder.file_ = -1;
                   pthread_mutex_unlock(&the_recorder.mutex_);
                 });
  const int file = open(path, O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  FileHeader header = {};
  memcpy(header.magic, kMagic, sizeof(kMagic));
  header.began_us = int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
  header.every = static_cast<uint32_t>(every_);
#ifdef __aarch64__
  header.is_arm64 = 1;
#endif
  if (file < 0 || write(file, &header, sizeof(header)) != static_cast<ssize_t>(sizeof(header))) {
    dprintf(STDERR_FILENO, "corvane recorder: %s: %s; nothing is recorded\n", path,
            errno == EEXIST ? "is there already, perhaps of the process that started this one"
                            : strerror(errno));
    return;
  }
  written_ = sizeof(header);
  began_ = Now();
  __atomic_store_n(&file_, file, __ATOMIC_RELAXED);
}

void Recorder::Stop(const char* why) {
  if (*why != '\0') dprintf(STDERR_FILENO, "corvane recorder: stopped: %s\n", why);
  __atomic_store_n(&file_, -1, __ATOMIC_RELAXED);
}

}  // namespace corvane_recording

// Lets programs that a new glibc's headers and start files built run on a board's glibc 2.17.
//
// What a newer glibc has under a newer version is defined here once more: as a call of the version
// that 2.17 has, or by system calls. The definitions stay inside the program.
// tests/package/check_tools fails when one more is needed.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#ifndef __aarch64__
#error "only AArch64 boards have so old a glibc"
#endif

// OLD(RESULT, FUNCTION, PARAMETERS, ARGUMENTS): FUNCTION is glibc 2.17's.
#define OLD(result, function, parameters, arguments)                 \
  result old_##function parameters;                                  \
  __asm__(".symver old_" #function ", " #function "@GLIBC_2.17");    \
  __attribute__((visibility("hidden"))) result function parameters { \
    return old_##function arguments;                                 \
  }

#define DEFINED __attribute__((visibility("hidden")))

OLD(void*, dlopen, (const char* file, int mode), (file, mode))
OLD(void*, dlsym, (void* library, const char* name), (library, name))
OLD(int, dlinfo, (void* library, int request, void* result), (library, request, result))
OLD(char*, dlerror, (void), ())
OLD(int, pthread_create,
    (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument),
    (thread, attributes, start, argument))
OLD(int, pthread_join, (pthread_t thread, void** result), (thread, result))
OLD(int, pthread_detach, (pthread_t thread), (thread))
OLD(int, pthread_once, (pthread_once_t * once, void (*call)(void)), (once, call))
OLD(int, pthread_key_create, (pthread_key_t * key, void (*destroy)(void*)), (key, destroy))
OLD(int, __pthread_key_create, (pthread_key_t * key, void (*destroy)(void*)), (key, destroy))
OLD(int, pthread_key_delete, (pthread_key_t key), (key))
OLD(void*, pthread_getspecific, (pthread_key_t key), (key))
OLD(int, pthread_setspecific, (pthread_key_t key, const void* value), (key, value))
OLD(double, log2, (double value), (value))

// The kernel's record is glibc's.
DEFINED int stat(const char* path, struct stat* status) {
  return (int)syscall(SYS_newfstatat, AT_FDCWD, path, status, 0);
}
DEFINED int lstat(const char* path, struct stat* status) {
  return (int)syscall(SYS_newfstatat, AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}
DEFINED int fstat(int file, struct stat* status) { return (int)syscall(SYS_fstat, file, status); }
DEFINED int fstat64(int file, struct stat64* status) {
  return (int)syscall(SYS_fstat, file, status);
}

DEFINED int getentropy(void* buffer, size_t size) {
  const int file = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  const ssize_t got = file < 0 ? -1 : read(file, buffer, size);
  if (file >= 0) close(file);
  return got == (ssize_t)size ? 0 : -1;
}
DEFINED uint32_t arc4random(void) {
  uint32_t value;
  if (getentropy(&value, sizeof(value)) != 0) abort();
  return value;
}

// "Perhaps": libstdc++ then counts references atomically.
DEFINED char __libc_single_threaded = 0;

// Where the unwinder finds the frames of the code at an address.
struct Search {
  uintptr_t address;
  struct dl_find_object* result;
};
static int LookInto(struct dl_phdr_info* object, size_t size, void* data) {
  (void)size;
  const struct Search* const search = data;
  const ElfW(Phdr)* frames = NULL;
  uintptr_t begin = UINTPTR_MAX, end = 0;
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const ElfW(Phdr)* const segment = &object->dlpi_phdr[i];
    const uintptr_t start = object->dlpi_addr + segment->p_vaddr;
    if (segment->p_type == PT_GNU_EH_FRAME) frames = segment;
    if (segment->p_type != PT_LOAD) continue;
    if (start < begin) begin = start;
    if (start + segment->p_memsz > end) end = start + segment->p_memsz;
  }
  if (search->address < begin || search->address >= end || frames == NULL) return 0;
  *search->result = (struct dl_find_object){0};
  search->result->dlfo_map_start = (void*)begin;
  search->result->dlfo_map_end = (void*)end;
  search->result->dlfo_eh_frame = (void*)(object->dlpi_addr + frames->p_vaddr);
  return 1;
}
DEFINED int _dl_find_object(void* address, struct dl_find_object* result) {
  struct Search search = {(uintptr_t)address, result};
  return dl_iterate_phdr(LookInto, &search) == 1 ? 0 : -1;
}

// Destructors of a thread's variables, the last first.
struct Destructor {
  void (*call)(void*);
  void* object;
  struct Destructor* next;
};
static pthread_key_t destructors;
static void RunDestructors(void* list) {
  struct Destructor* next = list;
  while (next != NULL) {
    struct Destructor* const one = next;
    next = one->next;
    one->call(one->object);
    free(one);
  }
}
static void MakeKey(void) { pthread_key_create(&destructors, RunDestructors); }
DEFINED int __cxa_thread_atexit_impl(void (*call)(void*), void* object, void* library) {
  (void)library;
  static pthread_once_t once = PTHREAD_ONCE_INIT;
  pthread_once(&once, MakeKey);
  struct Destructor* const one = malloc(sizeof(*one));
  if (one == NULL) return -1;
  *one = (struct Destructor){call, object, pthread_getspecific(destructors)};
  return pthread_setspecific(destructors, one);
}

// The start file of a new glibc hands over no function that runs the constructors, because a new
// __libc_start_main does it by itself.
typedef void Constructor(int, char**, char**);
extern Constructor* const __preinit_array_start[] __attribute__((visibility("hidden")));
extern Constructor* const __preinit_array_end[] __attribute__((visibility("hidden")));
extern Constructor* const __init_array_start[] __attribute__((visibility("hidden")));
extern Constructor* const __init_array_end[] __attribute__((visibility("hidden")));
static void RunConstructors(int count, char** words, char** environment) {
  for (Constructor* const* at = __preinit_array_start; at != __preinit_array_end; ++at) {
    (*at)(count, words, environment);
  }
  for (Constructor* const* at = __init_array_start; at != __init_array_end; ++at) {
    (*at)(count, words, environment);
  }
}
typedef int Main(int, char**, char**);
int old_start(Main* main, int count, char** words, Constructor* init, void (*fini)(void),
              void (*loader_fini)(void), void* stack);
__asm__(".symver old_start, __libc_start_main@GLIBC_2.17");
DEFINED int __libc_start_main(Main* main, int count, char** words, Constructor* init,
                              void (*fini)(void), void (*loader_fini)(void), void* stack) {
  (void)init;
  return old_start(main, count, words, RunConstructors, fini, loader_fini, stack);
}

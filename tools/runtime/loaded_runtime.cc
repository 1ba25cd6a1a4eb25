#include "tools/runtime/loaded_runtime.h"

#include <dlfcn.h>

#include <cstdio>

namespace corvane_tool {

namespace {

bool LoadLibrary() {
  static const bool is_loaded = [] {
    if (dlopen("librknn_api.so", RTLD_LAZY | RTLD_GLOBAL) != nullptr) return true;
    std::fprintf(stderr, "corvane: no runtime: %s\n", dlerror());
    return false;
  }();
  return is_loaded;
}

}  // namespace

void* FindInRuntime(const char* name) {
  if (!LoadLibrary()) return nullptr;
  void* const found = dlsym(RTLD_DEFAULT, name);
  if (found == nullptr) std::fprintf(stderr, "corvane: librknn_api.so has no %s\n", name);
  return found;
}

}  // namespace corvane_tool

#include "simulator/engines/onnxruntime_library.h"

#include <dirent.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "simulator/control/environment.h"
#include "simulator/interface/report.h"

namespace rknn_sim {
namespace onnxruntime {

namespace {

// What the library's one exported function returns.
struct Base {
  const void* (*get_table)(uint32_t version);
  const char* (*get_version)();
};

const Base* base = nullptr;

constexpr char kName[] = "libonnxruntime.so";
constexpr uint32_t kTableVersion = 1;  // the first; its functions are enough

// The folder's libonnxruntime.so*, the shortest name of several.
String FindInFolder(DIR* folder, const char* path) {
  String name;
  while (const dirent* entry = readdir(folder)) {
    const String found = entry->d_name;
    if (found.compare(0, std::strlen(kName), kName) != 0) continue;
    if (name.empty() || found.size() < name.size()) name = found;
  }
  return name.empty() ? String(path) : path + ("/" + name);
}

void* OpenNamed(const char* path, String* why) {
  String file = path;
  if (DIR* const folder = opendir(path)) {
    file = FindInFolder(folder, path);
    closedir(folder);
  }
  // A name without a slash would be looked for elsewhere.
  if (file.find('/') == String::npos) file.insert(0, "./");
  void* const handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    Refuse(why, "CORVANE_SIM_ONNXRUNTIME: ONNX Runtime cannot be loaded: %s", dlerror());
  }
  return handle;
}

// Debian's package and the release archives name the file by its version, some without a link.
void* OpenUsual() {
  constexpr int kNewestMinor = 40, kNewestPatch = 3;
  if (void* handle = dlopen(kName, RTLD_NOW | RTLD_LOCAL)) return handle;
  if (void* handle = dlopen("libonnxruntime.so.1", RTLD_NOW | RTLD_LOCAL)) return handle;
  for (int minor = kNewestMinor; minor > 0; --minor) {
    char name[48];
    std::snprintf(name, sizeof(name), "%s.1.%d", kName, minor);
    if (void* handle = dlopen(name, RTLD_NOW | RTLD_LOCAL)) return handle;
    for (int patch = kNewestPatch; patch >= 0; --patch) {
      std::snprintf(name, sizeof(name), "%s.1.%d.%d", kName, minor, patch);
      if (void* handle = dlopen(name, RTLD_NOW | RTLD_LOCAL)) return handle;
    }
  }
  return nullptr;
}

}  // namespace

void (*const* Library::table_)() = nullptr;

bool Library::Load(String* why) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  if (table_ != nullptr) return true;
  const char* const path = OnnxRuntimeWanted();
  void* const handle = path != nullptr ? OpenNamed(path, why) : OpenUsual();
  if (handle == nullptr) {
    if (path == nullptr) {
      *why =
          "the dynamic loader finds no libonnxruntime.so (Debian 13: libonnxruntime1.21; elsewhere "
          "name the file by CORVANE_SIM_ONNXRUNTIME)";
    }
    return false;
  }
  using GetBase = const Base* (*)();
  const auto get_base = reinterpret_cast<GetBase>(dlsym(handle, "OrtGetApiBase"));
  base = get_base == nullptr ? nullptr : get_base();
  const void* const table = base == nullptr ? nullptr : base->get_table(kTableVersion);
  if (table != nullptr) {
    table_ = static_cast<void (*const*)()>(table);
    return true;
  }
  dlclose(handle);
  return Refuse(why, "the library '%.150s' is not ONNX Runtime's", path != nullptr ? path : kName);
}

const char* Library::Version() { return base->get_version(); }

}  // namespace onnxruntime
}  // namespace rknn_sim

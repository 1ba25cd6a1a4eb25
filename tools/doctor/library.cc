#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "tools/doctor/checks.h"
#include "tools/support/child_process.h"

namespace corvane_tool {

namespace {

constexpr const char* kFunctions[] = {"rknn_init",           "rknn_destroy", "rknn_query",
                                      "rknn_inputs_set",     "rknn_run",     "rknn_outputs_get",
                                      "rknn_outputs_release"};
// Only later generations have them. Their rknn_init reads a fifth argument, which this library does
// not hand over, so it must not be called.
constexpr const char* kLaterFunctions[] = {"rknn_dup_context", "rknn_set_core_mask",
                                           "rknn_set_io_mem", "rknn_create_mem_from_fd"};

constexpr const char* kGetRuntime =
    "put the vendor's librknn_api.so of this generation into /usr/lib, or its folder into "
    "LD_LIBRARY_PATH";

Json Probe() {
  void* const library = dlopen("librknn_api.so", RTLD_LAZY | RTLD_LOCAL);
  if (library == nullptr) return {{"error", dlerror()}};
  Json json = {{"missing", Json::array()}, {"later", Json::array()}};
  link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) == 0) json["path"] = map->l_name;
  for (const char* name : kFunctions) {
    if (dlsym(library, name) == nullptr) json["missing"].push_back(name);
  }
  for (const char* name : kLaterFunctions) {
    if (dlsym(library, name) != nullptr) json["later"].push_back(name);
  }
  json["simulator"] = dlsym(library, "rknn_sim_model_problems") != nullptr;
  return json;
}

std::string Joined(const Json& names) {
  std::string text;
  for (const Json& name : names) text += (text.empty() ? "" : ", ") + name.get<std::string>();
  return text;
}

// Those that the loader would find where it does not find this one.
std::string OtherLibraries(const std::string& path) {
  const char* const paths = std::getenv("LD_LIBRARY_PATH");
  std::istringstream folders(std::string(paths != nullptr ? paths : "") +
                             ":/usr/lib64:/usr/lib:/lib64:/lib:/usr/lib/aarch64-linux-gnu");
  std::string others;
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string file = folder + "/librknn_api.so";
    if (!folder.empty() && file != path && access(file.c_str(), R_OK) == 0) others += " " + file;
  }
  return others;
}

RuntimeLibrary Judge(const Json& found, Board board, Findings* findings) {
  const std::string path = found.value("path", "");
  const bool is_simulator = found.value("simulator", false);
  if (!found.at("missing").empty()) {
    findings->Wrong("runtime", path + " has no " + Joined(found.at("missing")), kGetRuntime);
    return {};
  }
  if (!found.at("later").empty()) {
    findings->Wrong("runtime",
                    path + " is of a later generation: it has " + Joined(found.at("later")),
                    "that runtime has other records and a fifth argument of rknn_init; take the "
                    "one for RK1808 and RK3399Pro");
    return {};
  }
  if (is_simulator && (board == Board::kRk1808 || board == Board::kRk3399Pro)) {
    const std::string others = OtherLibraries(path);
    findings->Wrong("runtime", path + " is the simulated runtime, on a board with an NPU",
                    others.empty()
                        ? kGetRuntime
                        : "take its folder out of LD_LIBRARY_PATH; there is also" + others);
    return {true, true};
  }
  findings->Ok("runtime", path + (is_simulator ? ", the simulated runtime" : ""));
  return {true, is_simulator};
}

}  // namespace

RuntimeLibrary CheckLibrary(Board board, std::chrono::milliseconds limit, Findings* findings) {
  const ChildAnswer child = RunInChild(
      [](int file) {
        const std::string text = Text(Probe());
        WriteAll(file, text.data(), text.size());
      },
      limit);
  if (child.is_late || !child.end.empty()) {
    findings->Wrong("runtime",
                    child.is_late ? "loading librknn_api.so hangs"
                                  : "loading librknn_api.so ends the process: " + child.end,
                    kGetRuntime);
    return {};
  }
  const Json found = Json::parse(child.bytes);
  if (found.contains("error")) {
    findings->Wrong("runtime", found.at("error").get<std::string>(), kGetRuntime);
    return {};
  }
  return Judge(found, board, findings);
}

}  // namespace corvane_tool

#include <algorithm>
#include <cctype>
#include <string>

#include "tools/doctor/checks.h"

namespace corvane_tool {

namespace {

constexpr const char* kHelper = "npu_transfer_proxy";

std::string Readable(std::string list) {  // of strings that end with NUL
  std::replace(list.begin(), list.end(), '\0', ' ');
  list.erase(list.find_last_not_of(' ') + 1);
  return list;
}

void CheckNode(const SystemFiles& files, const std::string& node, Findings* findings) {
  if (!files.Exists(node)) {
    // No board has confirmed the name; where the model runs, the node has another.
    findings->Look("device", node + " is missing",
                   "where the model does not run: load the NPU's driver; dmesg says why it failed");
  } else if (!files.IsOpenToUs(node)) {
    findings->Wrong("device", node + " may not be read and written by this user",
                    "a udev rule or the node's group; or run as another user");
  } else {
    findings->Ok("device", node);
  }
}

void CheckHelper(const SystemFiles& files, Findings* findings) {
  for (const std::string& process : files.List("/proc")) {
    if (!std::all_of(process.begin(), process.end(),
                     [](unsigned char c) { return std::isdigit(c); })) {
      continue;
    }
    const std::string stat = files.Read("/proc/" + process + "/stat").value_or("");
    const std::size_t end =
        stat.rfind(')');  // "12 (npu_transfer_pr) S 1 ..."; 15 bytes of the name
    const std::size_t begin = stat.find('(');
    if (begin == std::string::npos || end == std::string::npos || end < begin) continue;
    const std::string name = stat.substr(begin + 1, end - begin - 1);
    if (name != std::string(kHelper).substr(0, 15)) continue;
    const char state = end + 2 < stat.size() ? stat[end + 2] : '?';
    if (state == 'Z' || state == 'X') {
      findings->Wrong("helper", std::string(kHelper) + " is a zombie (process " + process + ")",
                      "restart the vendor's service; where that fails, the board");
    } else if (state == 'T' || state == 't') {
      findings->Wrong("helper", std::string(kHelper) + " is stopped (process " + process + ")",
                      "kill -CONT " + process);
    } else {
      findings->Ok("helper", std::string(kHelper) + ", process " + process);
    }
    return;
  }
  findings->Wrong("helper", std::string(kHelper) + " does not run",
                  "start the vendor's service: it carries every call to the NPU");
}

}  // namespace

Board CheckBoard(const SystemFiles& files, Findings* findings) {
  const std::string tree = Readable(files.Read("/proc/device-tree/compatible").value_or(""));
  if (tree.find("rockchip,rk1808") != std::string::npos) {
    findings->Ok("board", "RK1808 (" + tree + ")");
    CheckNode(files, "/dev/galcore", findings);
    return Board::kRk1808;
  }
  if (tree.find("rockchip,rk3399pro") != std::string::npos) {
    findings->Ok("board", "RK3399Pro (" + tree + ")");
    CheckHelper(files, findings);
    return Board::kRk3399Pro;
  }
  for (const char* later :
       {"rockchip,rk35", "rockchip,rv1103", "rockchip,rv1106", "rockchip,rk2118"}) {
    if (tree.find(later) == std::string::npos) continue;
    findings->Wrong("board", tree + ": its NPU is of a later generation",
                    "another runtime, other models; this library is for RK1808 and RK3399Pro");
    return Board::kUnknown;
  }
  if (tree.empty()) {
    findings->Ok("board", "none: a machine without a device tree");
    return Board::kNone;
  }
  findings->Look("board", tree + " is not known to have this NPU",
                 "the runtime is for RK1808 and RK3399Pro; on others only the simulated one runs");
  return Board::kUnknown;
}

}  // namespace corvane_tool

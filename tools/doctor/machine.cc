#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "tools/doctor/checks.h"

namespace corvane_tool {

namespace {

const std::string kCpus = "/sys/devices/system/cpu/";

// "4 x Cortex-A53"
std::string CoreKinds(const SystemFiles& files) {
  static const std::map<std::string, std::string> names = {
      {"0xd03", "Cortex-A53"}, {"0xd04", "Cortex-A35"}, {"0xd05", "Cortex-A55"},
      {"0xd07", "Cortex-A57"}, {"0xd08", "Cortex-A72"}, {"0xd09", "Cortex-A73"},
      {"0xd0b", "Cortex-A76"}};
  std::map<std::string, int> kinds;
  std::istringstream lines(files.Read("/proc/cpuinfo").value_or(""));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(": ");
    if (colon == std::string::npos) continue;
    const std::string value = line.substr(colon + 2);
    if (line.compare(0, 8, "CPU part") == 0) {
      ++kinds[names.count(value) != 0 ? names.at(value) : "part " + value];
    } else if (line.compare(0, 10, "model name") == 0) {
      ++kinds[value];
    }
  }
  std::string text;
  for (const auto& [kind, count] : kinds) {
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " x " + kind;
  }
  return text.empty() ? "unknown" : text;
}

void CheckCores(const SystemFiles& files, Findings* findings) {
  const std::string present = files.Read(kCpus + "present").value_or("");
  const std::string online = files.Read(kCpus + "online").value_or("");
  const std::string text = CoreKinds(files) + ", online " + (online.empty() ? "unknown" : online);
  if (present == online) {
    findings->Ok("cores", text);
  } else {
    findings->Look("cores", text + " of " + present,
                   "echo 1 > " + kCpus + "cpuN/online; the kernel takes cores off when it is hot");
  }
}

void CheckClocks(const SystemFiles& files, Findings* findings) {
  for (const std::string& policy : files.List(kCpus + "cpufreq")) {
    if (policy.compare(0, 6, "policy") != 0) continue;
    std::string folder = kCpus + "cpufreq/";
    folder += policy + "/";
    const std::string governor = files.Read(folder + "scaling_governor").value_or("unknown");
    const std::string driver = files.Read(folder + "scaling_driver").value_or("");
    const long long now = files.ReadNumber(folder + "scaling_cur_freq").value_or(0);
    const long long allowed = files.ReadNumber(folder + "scaling_max_freq").value_or(0);
    const long long highest = files.ReadNumber(folder + "cpuinfo_max_freq").value_or(0);
    const auto gigahertz = [](long long kilohertz) { return static_cast<double>(kilohertz) / 1e6; };
    char clocks[120];
    std::snprintf(clocks, sizeof(clocks), "now %.2f GHz, at most %.2f GHz of %.2f GHz",
                  gigahertz(now), gigahertz(allowed), gigahertz(highest));
    std::string text = policy;
    text += ": " + governor + ", " + clocks;
    // Of these drivers "powersave" is the name of what others call schedutil.
    const bool is_adaptive = driver.find("pstate") != std::string::npos;
    if (governor == "powersave" && !is_adaptive) {
      findings->Look("clock", text, "echo performance > " + folder + "scaling_governor");
    } else if (allowed * 10 < highest * 9) {
      findings->Look("clock", text,
                     "echo " + std::to_string(highest) + " > " + folder +
                         "scaling_max_freq; or it is throttled: look at the temperature");
    } else {
      findings->Ok("clock", text);
    }
  }
}

void CheckTemperature(const SystemFiles& files, Findings* findings) {
  const std::string zones = "/sys/class/thermal/";
  long long hottest = -1000000;
  std::string where;
  for (const std::string& zone : files.List(zones)) {
    if (zone.compare(0, 12, "thermal_zone") != 0) continue;
    const long long now = files.ReadNumber(zones + zone + "/temp").value_or(-1000000);
    if (now <= hottest) continue;
    hottest = now;
    where = files.Read(zones + zone + "/type").value_or(zone);
  }
  if (where.empty()) return;
  const std::string text = std::to_string(hottest / 1000) + " degrees Celsius (" + where + ")";
  const char* const cure = "cool it: the clocks of CPU and NPU go down, results come later";
  if (hottest >= 95000) {
    findings->Wrong("temperature", text, cure);
  } else if (hottest >= 80000) {
    findings->Look("temperature", text, cure);
  } else {
    findings->Ok("temperature", text);
  }
}

void CheckMemory(const SystemFiles& files, Findings* findings) {
  std::istringstream lines(files.Read("/proc/meminfo").value_or(""));
  long long available = -1;
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 13, "MemAvailable:") == 0) available = std::atoll(line.c_str() + 13);
  }
  if (available >= 0) {
    const std::string text = std::to_string(available / 1024) + " MB available";
    const char* const cure = "end other programs; load fewer or smaller models";
    if (available < 64 * 1024) {
      findings->Wrong("memory", text, cure);
    } else if (available < 256 * 1024) {
      findings->Look("memory", text, cure);
    } else {
      findings->Ok("memory", text);
    }
  }
  const auto pages = files.Read("/sys/kernel/mm/transparent_hugepage/enabled");
  if (pages) findings->Ok("memory", "transparent huge pages: " + *pages);
}

}  // namespace

void CheckMachine(const SystemFiles& files, Findings* findings) {
  utsname kernel;
  if (uname(&kernel) == 0) {
    findings->Ok("system",
                 std::string(kernel.sysname) + " " + kernel.release + " " + kernel.machine);
  }
  CheckCores(files, findings);
  CheckClocks(files, findings);
  CheckTemperature(files, findings);
  CheckMemory(files, findings);
}

}  // namespace corvane_tool

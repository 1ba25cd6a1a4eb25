#include "tools/doctor/findings.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace corvane_tool {

namespace {

const char* Name(Level level) {
  return level == Level::kOk ? "ok" : level == Level::kLook ? "look" : "wrong";
}

}  // namespace

void Findings::Ok(const std::string& subject, const std::string& text) {
  Add({Level::kOk, subject, text, ""});
}

void Findings::Look(const std::string& subject, const std::string& text, const std::string& cure) {
  Add({Level::kLook, subject, text, cure});
}

void Findings::Wrong(const std::string& subject, const std::string& text, const std::string& cure) {
  Add({Level::kWrong, subject, text, cure});
}

void Findings::Add(Finding finding) {
  std::printf("%-6s %-12s %s\n", Name(finding.level), finding.subject.c_str(),
              finding.text.c_str());
  if (!finding.cure.empty()) std::printf("%-6s %-12s -> %s\n", "", "", finding.cure.c_str());
  std::fflush(stdout);
  all_.push_back(std::move(finding));
}

Level Findings::worst() const {
  Level worst = Level::kOk;
  for (const Finding& finding : all_) worst = std::max(worst, finding.level);
  return worst;
}

Json Findings::ToJson() const {
  Json findings = Json::array();
  for (const Finding& finding : all_) {
    findings.push_back({{"level", Name(finding.level)},
                        {"subject", finding.subject},
                        {"text", finding.text},
                        {"cure", finding.cure}});
  }
  return {{"worst", Name(worst())}, {"findings", findings}};
}

}  // namespace corvane_tool

// What the doctor has found: each finding is fine, worth a look, or wrong.
#ifndef CORVANE_TOOLS_DOCTOR_FINDINGS_H_
#define CORVANE_TOOLS_DOCTOR_FINDINGS_H_

#include <string>
#include <vector>

#include "tools/results/json.h"

namespace corvane_tool {

enum class Level { kOk, kLook, kWrong };

struct Finding {
  Level level;
  std::string subject;  // "runtime", "device", ...: the same for all findings about it
  std::string text;     // what was found
  std::string cure;     // one line; empty where all is well
};

class Findings {
 public:
  // Each is printed as it comes.
  void Ok(const std::string& subject, const std::string& text);
  void Look(const std::string& subject, const std::string& text, const std::string& cure);
  void Wrong(const std::string& subject, const std::string& text, const std::string& cure);

  Level worst() const;
  Json ToJson() const;

 private:
  void Add(Finding finding);

  std::vector<Finding> all_;
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_DOCTOR_FINDINGS_H_

// Model files as the library reads them: 13 bytes that are skipped unread, then the model.
#ifndef CORVANE_TOOLS_RUNTIME_MODEL_FILE_H_
#define CORVANE_TOOLS_RUNTIME_MODEL_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvane_tool {

constexpr std::size_t kModelPrefixBytes = 13;

struct ModelFile {
  std::string prefix;  // with what cannot be printed as '.'
  std::vector<uint8_t> model;
};

ModelFile ReadModelFile(const std::string& path);
// What to add to the message that the runtime refuses a model: a cure where the file does not begin
// with the prefix that WriteModelFile writes, else nothing.
std::string PackingHint(const std::string& path);
void WriteModelFile(const std::string& path, const std::vector<uint8_t>& model);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_MODEL_FILE_H_

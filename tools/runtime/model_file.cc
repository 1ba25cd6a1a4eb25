#include "tools/runtime/model_file.h"

#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

namespace {
constexpr char kPrefix[kModelPrefixBytes + 1] = "CORVANE-MODEL";
}

ModelFile ReadModelFile(const std::string& path) {
  ModelFile file;
  file.model = ReadFile(path);
  if (file.model.size() < kModelPrefixBytes) {
    throw Failure(path + ": " + std::to_string(file.model.size()) +
                  " bytes; a model file has a prefix of " + std::to_string(kModelPrefixBytes));
  }
  const auto model_begin = file.model.begin() + kModelPrefixBytes;
  file.prefix.assign(file.model.begin(), model_begin);
  for (char& c : file.prefix) {
    if (c < ' ' || c > '~') c = '.';
  }
  file.model.erase(file.model.begin(), model_begin);
  return file;
}

std::string PackingHint(const std::string& path) {
  if (ReadModelFile(path).prefix == kPrefix) return "";
  return "; its first 13 bytes, which are skipped, are not what corvane pack writes: if it was "
         "never packed, pack it first";
}

void WriteModelFile(const std::string& path, const std::vector<uint8_t>& model) {
  std::vector<uint8_t> bytes(kPrefix, kPrefix + kModelPrefixBytes);
  bytes.insert(bytes.end(), model.begin(), model.end());
  WriteFile(path, bytes.data(), bytes.size());
}

}  // namespace corvane_tool

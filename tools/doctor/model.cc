#include <cstring>
#include <string>

#include "tools/doctor/checks.h"
#include "tools/runtime/model_file.h"
#include "tools/runtime/onnx_metadata.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

namespace {

bool BeginsWith(const std::vector<uint8_t>& bytes, const char* text) {
  const std::size_t length = std::strlen(text);
  return bytes.size() >= length && std::memcmp(bytes.data(), text, length) == 0;
}

enum class Kind { kCompiled, kOnnx, kText, kPacked, kUnknown };

Kind KindOf(const std::vector<uint8_t>& bytes) {
  if (BeginsWith(bytes, "RKNN")) return Kind::kCompiled;
  if (BeginsWith(bytes, "CORVANE-SIM")) return Kind::kText;
  if (BeginsWith(bytes, "CORVANE-MODEL")) return Kind::kPacked;
  return IsOnnx(bytes) ? Kind::kOnnx : Kind::kUnknown;
}

}  // namespace

bool CheckModelFile(const std::string& path, const RuntimeLibrary& library, Findings* findings) {
  const auto wrong = [&](const std::string& text, const std::string& cure) {
    findings->Wrong("model", path + ": " + text, cure);
    return false;
  };
  std::vector<uint8_t> all;
  try {
    all = ReadFile(path);
  } catch (const Failure& failure) {
    findings->Wrong("model", failure.what(), "name the file that corvane pack has written");
    return false;
  }
  const std::string pack = "corvane pack " + path + " -o FILE";
  const std::string pack_raw = "corvane pack --raw " + path + " -o FILE";
  const Kind whole = KindOf(all);
  if (whole == Kind::kCompiled) return wrong("not packed: the model begins at once", pack_raw);
  if (whole == Kind::kOnnx) return wrong("not packed: an ONNX file", pack);
  if (all.size() <= kModelPrefixBytes) {
    return wrong(std::to_string(all.size()) + " bytes, no model after the prefix of " +
                     std::to_string(kModelPrefixBytes),
                 "copy the file again; compare checksums");
  }
  const ModelFile file = ReadModelFile(path);
  const std::string size =
      std::to_string(file.model.size()) + " bytes after the prefix \"" + file.prefix + "\"";
  switch (KindOf(file.model)) {
    case Kind::kPacked:
      return wrong("packed twice", "pack the model itself");
    case Kind::kUnknown:
      return wrong("neither a compiled model nor ONNX: " + size,
                   "if it was never packed: " + pack_raw + "; else copy it again");
    case Kind::kCompiled:
      if (library.is_usable && library.is_simulator) {
        return wrong("compiled for the NPU, which the simulated runtime cannot run",
                     "pack the ONNX model that it was compiled from");
      }
      findings->Ok("model", path + ": compiled for an NPU, " + size);
      return library.is_usable;
    case Kind::kOnnx:
    case Kind::kText:
      if (library.is_usable && !library.is_simulator) {
        return wrong("for the simulated runtime only",
                     "compile it for the board, then " + pack_raw);
      }
      findings->Ok("model", path + ": for the simulated runtime, " + size);
      return library.is_usable;
  }
  return false;
}

}  // namespace corvane_tool

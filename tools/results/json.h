// The JSON library with the one number type that the tool writes: floats, shortest form that reads
// back the same.
#ifndef CORVANE_TOOLS_RESULTS_JSON_H_
#define CORVANE_TOOLS_RESULTS_JSON_H_

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace corvane_tool {

using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, int64_t,
                                  uint64_t, float>;

// On one line. File names may hold any bytes: those that are no UTF-8 become U+FFFD.
inline std::string Text(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RESULTS_JSON_H_

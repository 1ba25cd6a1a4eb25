// Whether a text loads back as the document that it was written from.
#ifndef CORVANE_SRC_CONFIG_INI_ROUND_TRIP_H_
#define CORVANE_SRC_CONFIG_INI_ROUND_TRIP_H_

#include <string>

#include "corvane/ini_file.h"

namespace corvane {

// Names, keys, values and their order must be the same. Comments may differ in the white space
// around their lines, and the loaded document may have an empty nameless section in front.
bool LoadsBackAs(const std::string& text, const IniFile& document);

}  // namespace corvane

#endif  // CORVANE_SRC_CONFIG_INI_ROUND_TRIP_H_

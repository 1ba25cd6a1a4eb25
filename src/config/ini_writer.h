// The text of a document, as SaveAs and SaveIniFile write it.
#ifndef CORVANE_SRC_CONFIG_INI_WRITER_H_
#define CORVANE_SRC_CONFIG_INI_WRITER_H_

#include <string>

#include "corvane/ini_file.h"

namespace corvane {

std::string IniText(const IniFile& document);

}  // namespace corvane

#endif  // CORVANE_SRC_CONFIG_INI_WRITER_H_

// Whole files in, whole files out. Every failure is a Failure that names the file and the cause.
#ifndef CORVANE_TOOLS_FILES_H_
#define CORVANE_TOOLS_FILES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvane_tool {

std::vector<uint8_t> ReadFile(const std::string& path);

// Nothing half-written stays behind: on failure the file is removed.
void WriteFile(const std::string& path, const void* bytes, std::size_t count);

// Makes the folder and those above it, where they are missing.
void MakeFolder(const std::string& path);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_FILES_H_

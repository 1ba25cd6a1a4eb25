// Whole files in, whole files out. Every failure is a Failure that names the file and the cause.
#ifndef CORVANE_TOOLS_FILES_H_
#define CORVANE_TOOLS_FILES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvane_tool {

std::vector<uint8_t> ReadFile(const std::string& path);

// Replaces the file when all of it has been written: a failure leaves the old one.
void WriteFile(const std::string& path, const void* bytes, std::size_t count);

// Fails if the output is one of the inputs, also by another path. Inputs may be empty.
void CheckIsNoInput(const std::string& output, const std::vector<std::string>& inputs);

// Makes the folder and those above it, where they are missing.
void MakeFolder(const std::string& path);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_FILES_H_

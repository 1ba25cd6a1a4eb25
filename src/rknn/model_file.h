// Reads a model file: a prefix that is skipped, then the compiled model.
#ifndef CORVANE_SRC_RKNN_MODEL_FILE_H_
#define CORVANE_SRC_RKNN_MODEL_FILE_H_

#include <cstdint>
#include <memory>
#include <string>

namespace corvane {

struct ModelBytes {
  std::unique_ptr<uint8_t[]> data;
  uint32_t size = 0;
};

// Reads the bytes after the prefix of the file at path. Returns 0, or writes the cause to standard
// error and returns an errno value: that of opening the file, or ENODATA when its length is not
// that of a model file or it cannot be read to its end. Throws std::bad_alloc.
int ReadModelFile(const std::string& path, ModelBytes* model);

}  // namespace corvane

#endif  // CORVANE_SRC_RKNN_MODEL_FILE_H_

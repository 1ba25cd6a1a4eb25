// Any bytes as a .npy file. What must hold: the file is refused by a Failure that names it, or the
// values fill the shape and a file written of them is read back the same.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/byte_reader.h"
#include "fuzz/scratch_file.h"
#include "tools/results/npy.h"
#include "tools/support/failure.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  using corvane_fuzz::Require;
  static const corvane_fuzz::ScratchFile file;
  file.Write(corvane_fuzz::ByteReader(data, size).TakeText());
  corvane_tool::Tensor tensor;
  try {
    tensor = corvane_tool::ReadNpy(file.path());
  } catch (const corvane_tool::Failure& failure) {
    const std::string message = failure.what();
    Require(message.find(file.path()) != std::string::npos, "a message without the file's name");
    return 0;
  }
  std::size_t elements = 1;
  for (const uint32_t extent : tensor.shape) elements *= extent;
  Require(elements == tensor.values.size(), "values that do not fill the shape");
  corvane_tool::WriteNpy(file.path(), tensor);
  const corvane_tool::Tensor again = corvane_tool::ReadNpy(file.path());
  Require(again.shape == tensor.shape, "another shape");
  for (std::size_t i = 0; i < elements; ++i) {
    const bool are_nan = std::isnan(again.values[i]) && std::isnan(tensor.values[i]);
    Require(are_nan || again.values[i] == tensor.values[i], "another value");
  }
  return 0;
}

// Where an input that a program hands over differs from the recorded one.
#ifndef CORVANE_SIMULATOR_REPLAY_INPUT_DIFFERENCE_H_
#define CORVANE_SIMULATOR_REPLAY_INPUT_DIFFERENCE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/replay/recorded_contexts.h"

namespace rknn_sim {

// What a program hands over: `header.size` bytes, and null where they cannot be read.
struct GivenInput {
  ItemHeader header;
  const uint8_t* bytes;
};

// Whether all inputs of a frame are those of the recorded call.
bool AreEqual(const std::vector<GivenInput>& given, const RecordedCall& recorded);

// How many bytes differ, at most `limit`; the limit where the inputs cannot be compared.
uint64_t CountDifferingBytes(const std::vector<GivenInput>& given, const RecordedCall& recorded,
                             uint64_t limit);

// Of inputs that are not equal, in words: the first difference and the count. context: knows the
// tensors' shapes.
std::string DescribeDifference(const std::vector<GivenInput>& given, const RecordedCall& recorded,
                               const RecordedContext& context);

}  // namespace rknn_sim

#endif  // CORVANE_SIMULATOR_REPLAY_INPUT_DIFFERENCE_H_

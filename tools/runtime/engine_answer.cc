#include "tools/runtime/engine_answer.h"

#include <cstdlib>
#include <cstring>
#include <random>
#include <utility>

#include "tools/results/json.h"
#include "tools/runtime/context.h"
#include "tools/runtime/rknn_names.h"
#include "tools/support/child_process.h"

namespace corvane_tool {

namespace {

// The standard fixes this generator's numbers, but not those of its distributions.
std::vector<float> Noise(std::size_t elements, std::minstd_rand* random) {
  std::vector<float> numbers(elements);
  for (float& number : numbers) {
    number = static_cast<float>((*random)() % 65536) / 32768 - 1;
  }
  return numbers;
}

Json Answer(const std::string& path, const std::vector<uint8_t>& model) {
  Context context(path, model);
  rknn_sdk_version version = {};
  context.Query("RKNN_QUERY_SDK_VERSION", RKNN_QUERY_SDK_VERSION, &version);
  std::vector<std::vector<float>> tensors;
  std::minstd_rand random;
  for (const rknn_tensor_attr& input : context.Inputs()) {
    tensors.push_back(Noise(input.n_elems, &random));
  }
  Json outputs = Json::array();
  const std::vector<std::vector<float>> values = context.Run(tensors.data(), tensors.size());
  const std::vector<rknn_tensor_attr> attributes = context.Outputs();
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto* const bytes = reinterpret_cast<const uint8_t*>(values[i].data());
    outputs.push_back(
        {{"name", std::to_string(i) + " \"" + TensorName(attributes[i]) + "\""},
         {"shape", Shape(attributes[i])},
         {"values", Json::binary({bytes, bytes + values[i].size() * sizeof(float)})}});
  }
  return {{"driver", version.drv_version}, {"outputs", outputs}};
}

void AnswerTo(int file, const char* engine, const std::string& path,
              const std::vector<uint8_t>& model) {
  setenv("CORVANE_SIM_ENGINE", engine, 1);
  unsetenv("CORVANE_SIM_TRACE");  // one file cannot have the calls of several processes
  Json answer;
  try {
    answer = Answer(path, model);
  } catch (const std::exception& problem) {
    answer = {{"problem", problem.what()}};
  }
  const std::vector<uint8_t> bytes = Json::to_msgpack(answer);
  WriteAll(file, bytes.data(), bytes.size());
}

EngineAnswer FromJson(const Json& json) {
  EngineAnswer answer;
  answer.problem = json.value("problem", "");
  if (!answer.problem.empty()) return answer;
  // "none: OpenCV 4.6.0 on the CPU, no NPU"
  answer.engine = json.at("driver").get<std::string>();
  for (const char* around : {"none: ", " on the CPU, no NPU"}) {
    const std::size_t at = answer.engine.find(around);
    if (at != std::string::npos) answer.engine.erase(at, std::strlen(around));
  }
  for (const Json& output : json.at("outputs")) {
    Tensor tensor;
    tensor.name = output.at("name").get<std::string>();
    tensor.shape = output.at("shape").get<std::vector<uint32_t>>();
    const auto& bytes = output.at("values").get_binary();
    tensor.values.resize(bytes.size() / sizeof(float));
    std::memcpy(tensor.values.data(), bytes.data(), bytes.size());
    answer.outputs.emplace(tensor.name, tensor);
  }
  return answer;
}

}  // namespace

EngineAnswer AskEngine(const char* engine, const std::string& path,
                       const std::vector<uint8_t>& model) {
  const ChildAnswer child = RunInChild([&](int file) { AnswerTo(file, engine, path, model); },
                                       std::chrono::milliseconds(0));
  if (child.end.empty()) return FromJson(Json::from_msgpack(child.bytes));
  EngineAnswer answer;
  answer.problem = path + ": the process that ran it ended by " + child.end;
  return answer;
}

}  // namespace corvane_tool

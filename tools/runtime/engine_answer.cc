#include "tools/runtime/engine_answer.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <utility>

#include "tools/results/json.h"
#include "tools/runtime/context.h"
#include "tools/runtime/rknn_names.h"
#include "tools/support/failure.h"

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

void WriteAll(int file, const std::vector<uint8_t>& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written = write(file, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno != EINTR) return;
    if (written > 0) done += static_cast<std::size_t>(written);
  }
}

std::vector<uint8_t> ReadAll(int file) {
  std::vector<uint8_t> bytes;
  uint8_t part[65536];
  for (;;) {
    const ssize_t got = read(file, part, sizeof(part));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return bytes;
    bytes.insert(bytes.end(), part, part + got);
  }
}

[[noreturn]] void AnswerAndEnd(const char* engine, const std::string& path,
                               const std::vector<uint8_t>& model, int file) {
  setenv("CORVANE_SIM_ENGINE", engine, 1);
  unsetenv("CORVANE_SIM_TRACE");  // one file cannot have the calls of several processes
  Json answer;
  try {
    answer = Answer(path, model);
  } catch (const std::exception& problem) {
    answer = {{"problem", problem.what()}};
  }
  WriteAll(file, Json::to_msgpack(answer));
  _exit(0);
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
  int ends[2];
  if (pipe(ends) != 0) throw Failure(std::string("no pipe: ") + std::strerror(errno));
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    AnswerAndEnd(engine, path, model, ends[1]);
  }
  const int why = errno;
  close(ends[1]);
  const std::vector<uint8_t> bytes = child > 0 ? ReadAll(ends[0]) : std::vector<uint8_t>();
  close(ends[0]);
  if (child < 0) throw Failure(std::string("no process: ") + std::strerror(why));
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return FromJson(Json::from_msgpack(bytes));
  EngineAnswer answer;
  answer.problem = path + ": the process that ran it ended by " +
                   (WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                        : "status " + std::to_string(WEXITSTATUS(status)));
  return answer;
}

}  // namespace corvane_tool

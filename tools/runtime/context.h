// A model in the runtime, used without the library: for what the runtime says about a model and for
// tensors that no picture gives.
#ifndef CORVANE_TOOLS_RUNTIME_CONTEXT_H_
#define CORVANE_TOOLS_RUNTIME_CONTEXT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "rknn_api.h"

namespace corvane_tool {

class Context {
 public:
  // path names the model in messages. Throws Failure.
  Context(std::string path, std::vector<uint8_t> model);
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context();

  template <typename Record>
  void Query(const char* name, rknn_query_cmd command, Record* record) const {
    Check(std::string("rknn_query(") + name + ")",
          rknn_query(handle_, command, record, sizeof(*record)));
  }

  std::vector<rknn_tensor_attr> Inputs() const;
  std::vector<rknn_tensor_attr> Outputs() const;

  // Runs the model on NCHW tensors, one for each input, which the runtime converts to the model's
  // own types and layouts, and returns the outputs as floats. Throws Failure.
  std::vector<std::vector<float>> Run(std::vector<float>* tensors, std::size_t count);

 private:
  void Check(const std::string& call, int code) const;
  std::vector<rknn_tensor_attr> Attributes(const char* name, rknn_query_cmd command,
                                           uint32_t count) const;

  std::string path_;
  std::vector<uint8_t> model_;  // the runtime may read it until the context is destroyed
  rknn_context handle_ = 0;
};

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_RUNTIME_CONTEXT_H_

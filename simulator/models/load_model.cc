#include "simulator/models/load_model.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "simulator/control/script.h"
#include "simulator/interface/report.h"
#include "simulator/models/onnx_model.h"
#include "simulator/models/text_model.h"
#include "simulator/onnx/graph.h"

namespace rknn_sim {

ModelPointer LoadModel(const uint8_t* bytes, uint32_t size, String* why) {
  if (const std::shared_ptr<const Model> scripted = TheScript().model()) {
    return MakeDescribedModel(*scripted);
  }
  if (IsTextModel(bytes, size)) {
    Model model;
    return ParseTextModel(bytes, size, &model, why) ? MakeDescribedModel(model) : nullptr;
  }
  constexpr char kVendorMagic[] = {'R', 'K', 'N', 'N'};
  if (size >= sizeof(kVendorMagic) && std::memcmp(bytes, kVendorMagic, sizeof(kVendorMagic)) == 0) {
    Refuse(why,
           "the model is compiled for the NPU, and only the NPU can run it; wanted the ONNX model "
           "it was compiled from, or a text that begins with 'CORVANE-SIM'");
    return nullptr;
  }
  if (IsOnnx(bytes, size)) return MakeOnnxModel(bytes, size, why);
  char head[16] = "";
  for (uint32_t i = 0; i < std::min(size, 4u); ++i) {
    std::snprintf(head + 3 * i, sizeof(head) - 3 * i, "%02x%s", bytes[i], i < 3 ? " " : "");
  }
  Refuse(why,
         "the model has %u bytes and begins with [%s]; wanted an ONNX model or a text that begins "
         "with 'CORVANE-SIM'",
         size, head);
  return nullptr;
}

}  // namespace rknn_sim

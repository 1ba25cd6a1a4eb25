#include "tools/runtime/cures.h"

#include "rknn_api.h"

namespace corvane_tool {

const char* CureOf(int code) {
  switch (code) {
    case RKNN_ERR_TIMEOUT:
      return "the NPU hangs or has too much to do: fewer contexts at once, or restart the board";
    case RKNN_ERR_DEVICE_UNAVAILABLE:
      return "no NPU is visible: load its driver, look at dmesg and the node's permissions";
    case RKNN_ERR_MALLOC_FAIL:
      return "the board's or the NPU's memory is used up: fewer or smaller models";
    case RKNN_ERR_PARAM_INVALID:
      return "the runtime has other records: take the one for RK1808 and RK3399Pro";
    case RKNN_ERR_MODEL_INVALID:
      return "no model of this runtime, or cut off in transfer: compare checksums";
    case RKNN_ERR_DEVICE_UNMATCH:
      return "runtime and driver are of different versions: update both together";
    case RKNN_ERR_INCOMPATILE_PRE_COMPILE_MODEL:
      return "precompiled for another driver: compile the model again";
    case RKNN_ERR_INCOMPATILE_OPTIMIZATION_LEVEL_VERSION:
      return "update the driver, or compile with a lower optimisation level";
    case RKNN_ERR_TARGET_PLATFORM_UNMATCH:
      return "compiled for another chip: compile the model for this one";
    case RKNN_ERR_NON_PRE_COMPILED_MODEL_ON_MINI_DRIVER:
      return "the small driver runs precompiled models only: precompile, or install the full one";
    default:
      return "restart the vendor's service; look at its log and at dmesg";
  }
}

}  // namespace corvane_tool

#include "rknn_api.h"

#define RKNN_SIM_EXPORT __attribute__((visibility("default")))

extern "C" {

RKNN_SIM_EXPORT int rknn_init(rknn_context*, void*, uint32_t, uint32_t) {
  return RKNN_ERR_DEVICE_UNAVAILABLE;
}
RKNN_SIM_EXPORT int rknn_destroy(rknn_context) { return RKNN_ERR_CTX_INVALID; }
RKNN_SIM_EXPORT int rknn_query(rknn_context, rknn_query_cmd, void*, uint32_t) {
  return RKNN_ERR_CTX_INVALID;
}
RKNN_SIM_EXPORT int rknn_inputs_set(rknn_context, uint32_t, rknn_input[]) {
  return RKNN_ERR_CTX_INVALID;
}
RKNN_SIM_EXPORT int rknn_run(rknn_context, rknn_run_extend*) { return RKNN_ERR_CTX_INVALID; }
RKNN_SIM_EXPORT int rknn_outputs_get(rknn_context, uint32_t, rknn_output[], rknn_output_extend*) {
  return RKNN_ERR_CTX_INVALID;
}
RKNN_SIM_EXPORT int rknn_outputs_release(rknn_context, uint32_t, rknn_output[]) {
  return RKNN_ERR_CTX_INVALID;
}
}

// A runtime without a device: the seven functions that the library calls, all of which fail.
//
// The library links against it where neither a vendor SDK nor the simulator is there, as with a
// compiler that is too old for the simulator. It replaces the vendor's library at link time only:
// never install it on a board, where it would hide the real one.
#include "rknn_api.h"

#define EXPORT __attribute__((visibility("default")))

EXPORT int rknn_init(rknn_context* context, void* model, uint32_t size, uint32_t flag) {
  (void)context;
  (void)model;
  (void)size;
  (void)flag;
  return RKNN_ERR_DEVICE_UNAVAILABLE;
}

EXPORT int rknn_destroy(rknn_context context) {
  (void)context;
  return RKNN_ERR_CTX_INVALID;
}

EXPORT int rknn_query(rknn_context context, rknn_query_cmd cmd, void* info, uint32_t size) {
  (void)context;
  (void)cmd;
  (void)info;
  (void)size;
  return RKNN_ERR_CTX_INVALID;
}

EXPORT int rknn_inputs_set(rknn_context context, uint32_t n_inputs, rknn_input inputs[]) {
  (void)context;
  (void)n_inputs;
  (void)inputs;
  return RKNN_ERR_CTX_INVALID;
}

EXPORT int rknn_run(rknn_context context, rknn_run_extend* extend) {
  (void)context;
  (void)extend;
  return RKNN_ERR_CTX_INVALID;
}

EXPORT int rknn_outputs_get(rknn_context context, uint32_t n_outputs, rknn_output outputs[],
                            rknn_output_extend* extend) {
  (void)context;
  (void)n_outputs;
  (void)outputs;
  (void)extend;
  return RKNN_ERR_CTX_INVALID;
}

EXPORT int rknn_outputs_release(rknn_context context, uint32_t n_outputs, rknn_output outputs[]) {
  (void)context;
  (void)n_outputs;
  (void)outputs;
  return RKNN_ERR_CTX_INVALID;
}

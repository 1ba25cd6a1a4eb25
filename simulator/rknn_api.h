// The C interface of the RKNN runtime, first generation (RK1808, RK3399Pro), in our own words.
//
// Programs built against this header run with the vendor's librknn_api.so on a board, and with the
// simulated one on a workstation; a user's own copy of the vendor's header can take its place.
// Later generations of the runtime are not compatible with it.
#ifndef RKNN_API_H_
#define RKNN_API_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// What every function returns: 0, or one of these.
#define RKNN_SUCC 0
#define RKNN_ERR_FAIL (-1)
#define RKNN_ERR_TIMEOUT (-2)
#define RKNN_ERR_DEVICE_UNAVAILABLE (-3)
#define RKNN_ERR_MALLOC_FAIL (-4)
#define RKNN_ERR_PARAM_INVALID (-5)
#define RKNN_ERR_MODEL_INVALID (-6)
#define RKNN_ERR_CTX_INVALID (-7)
#define RKNN_ERR_INPUT_INVALID (-8)
#define RKNN_ERR_OUTPUT_INVALID (-9)
#define RKNN_ERR_DEVICE_UNMATCH (-10)
#define RKNN_ERR_INCOMPATILE_PRE_COMPILE_MODEL (-11)
#define RKNN_ERR_INCOMPATILE_OPTIMIZATION_LEVEL_VERSION (-12)
#define RKNN_ERR_TARGET_PLATFORM_UNMATCH (-13)
#define RKNN_ERR_NON_PRE_COMPILED_MODEL_ON_MINI_DRIVER (-14)

#define RKNN_MAX_DIMS 16
#define RKNN_MAX_NAME_LEN 256

// Flags of rknn_init, to be added: priority high 0, medium 1, low 2; asynchronous 4; collect
// performance figures 8.

#if defined(__arm__)
typedef uint32_t rknn_context;
#else
typedef uint64_t rknn_context;
#endif

typedef enum _rknn_query_cmd {
  RKNN_QUERY_IN_OUT_NUM = 0,
  RKNN_QUERY_INPUT_ATTR = 1,
  RKNN_QUERY_OUTPUT_ATTR = 2,
  RKNN_QUERY_PERF_DETAIL = 3,
  RKNN_QUERY_PERF_RUN = 4,
  RKNN_QUERY_SDK_VERSION = 5
} rknn_query_cmd;

typedef enum _rknn_tensor_type {
  RKNN_TENSOR_FLOAT32 = 0,
  RKNN_TENSOR_FLOAT16 = 1,
  RKNN_TENSOR_INT8 = 2,
  RKNN_TENSOR_UINT8 = 3,
  RKNN_TENSOR_INT16 = 4
} rknn_tensor_type;

typedef enum _rknn_tensor_qnt_type {
  RKNN_TENSOR_QNT_NONE = 0,
  RKNN_TENSOR_QNT_DFP = 1,               // dynamic fixed point: value = element / 2^fl
  RKNN_TENSOR_QNT_AFFINE_ASYMMETRIC = 2  // value = (element - zp) * scale
} rknn_tensor_qnt_type;

typedef enum _rknn_tensor_format { RKNN_TENSOR_NCHW = 0, RKNN_TENSOR_NHWC = 1 } rknn_tensor_format;

typedef struct _rknn_input_output_num {
  uint32_t n_input;
  uint32_t n_output;
} rknn_input_output_num;

typedef struct _rknn_tensor_attr {
  uint32_t index;                // set by the caller: which input or output is asked about
  uint32_t n_dims;               // how many of dims are used
  uint32_t dims[RKNN_MAX_DIMS];  // innermost first: W, H, C, N of an N x C x H x W tensor
  char name[RKNN_MAX_NAME_LEN];
  uint32_t n_elems;  // number of elements
  uint32_t size;     // bytes, in the native type
  rknn_tensor_format fmt;
  rknn_tensor_type type;
  rknn_tensor_qnt_type qnt_type;
  int8_t fl;    // fractional bits, for RKNN_TENSOR_QNT_DFP
  uint32_t zp;  // zero point and scale, for RKNN_TENSOR_QNT_AFFINE_ASYMMETRIC
  float scale;
} rknn_tensor_attr;

typedef struct _rknn_input {
  uint32_t index;
  void* buf;
  uint32_t size;         // bytes
  uint8_t pass_through;  // 0: converted from type and fmt; 1: taken as the native type
  rknn_tensor_type type;
  rknn_tensor_format fmt;
} rknn_input;

typedef struct _rknn_output {
  uint8_t want_float;   // 1: converted to 32-bit floats
  uint8_t is_prealloc;  // 1: written into buf, which the caller owns
  uint32_t index;
  void* buf;
  uint32_t size;  // bytes
} rknn_output;

typedef struct _rknn_run_extend {
  uint64_t frame_id;
} rknn_run_extend;

typedef struct _rknn_output_extend {
  uint64_t frame_id;
} rknn_output_extend;

typedef struct _rknn_perf_run {
  int64_t run_duration;  // microseconds
} rknn_perf_run;

typedef struct _rknn_sdk_version {
  char api_version[256];
  char drv_version[256];
} rknn_sdk_version;

// Creates a context from a compiled model. The model's bytes must stay, unchanged, until
// rknn_destroy has returned.
int rknn_init(rknn_context* context, void* model, uint32_t size, uint32_t flag);
int rknn_destroy(rknn_context context);

// info points to the record that belongs to cmd; size must be exactly that record's.
int rknn_query(rknn_context context, rknn_query_cmd cmd, void* info, uint32_t size);

int rknn_inputs_set(rknn_context context, uint32_t n_inputs, rknn_input inputs[]);
int rknn_run(rknn_context context, rknn_run_extend* extend);  // need not block

// Waits for the result. Every successful call is to be followed by rknn_outputs_release with the
// same records, also where the buffers are the caller's.
int rknn_outputs_get(rknn_context context, uint32_t n_outputs, rknn_output outputs[],
                     rknn_output_extend* extend);
int rknn_outputs_release(rknn_context context, uint32_t n_outputs, rknn_output outputs[]);

#ifdef __cplusplus
}

#include <stddef.h>

#if defined(__LP64__)
static_assert(sizeof(rknn_context) == 8 && sizeof(rknn_input_output_num) == 8 &&
                  sizeof(rknn_tensor_attr) == 360 && sizeof(rknn_input) == 32 &&
                  sizeof(rknn_output) == 24 && sizeof(rknn_sdk_version) == 512,
              "record sizes of the runtime's binary interface");
static_assert(offsetof(rknn_tensor_attr, dims) == 8 && offsetof(rknn_tensor_attr, name) == 72 &&
                  offsetof(rknn_tensor_attr, n_elems) == 328 &&
                  offsetof(rknn_tensor_attr, fmt) == 336 && offsetof(rknn_tensor_attr, fl) == 348 &&
                  offsetof(rknn_tensor_attr, zp) == 352 && offsetof(rknn_tensor_attr, scale) == 356,
              "offsets in rknn_tensor_attr");
static_assert(offsetof(rknn_input, buf) == 8 && offsetof(rknn_input, size) == 16 &&
                  offsetof(rknn_input, pass_through) == 20 && offsetof(rknn_input, type) == 24 &&
                  offsetof(rknn_input, fmt) == 28,
              "offsets in rknn_input");
static_assert(offsetof(rknn_output, index) == 4 && offsetof(rknn_output, buf) == 8 &&
                  offsetof(rknn_output, size) == 16,
              "offsets in rknn_output");
#endif
#endif

#endif  // RKNN_API_H_

/* A plug-in for QEMU's user-mode emulation: prints how many guest instructions a program executed.
 * Blocks are counted as they are entered, which is exact as long as none is left half-way.
 *
 * No package has the emulator's plug-in header, so this file declares the few functions it needs, as
 * the published interface (version 1) has them. */
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_info;
struct qemu_plugin_tb;
enum { QEMU_PLUGIN_INLINE_ADD_U64 = 0 };

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*callback)(qemu_plugin_id_t,
                                                            struct qemu_plugin_tb*));
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, int operation,
                                              void* counter, uint64_t amount);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*callback)(qemu_plugin_id_t, void*),
                                    void* user_data);

int qemu_plugin_version = 1;

static uint64_t instructions;

static void OnTranslated(qemu_plugin_id_t id, struct qemu_plugin_tb* block) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(block, QEMU_PLUGIN_INLINE_ADD_U64, &instructions,
                                           qemu_plugin_tb_n_insns(block));
}

static void OnExit(qemu_plugin_id_t id, void* user_data) {
  (void)id;
  (void)user_data;
  fprintf(stderr, "%" PRIu64 "\n", instructions);
}

int qemu_plugin_install(qemu_plugin_id_t id, const struct qemu_info* info, int argc, char** argv) {
  (void)info;
  (void)argc;
  (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, OnTranslated);
  qemu_plugin_register_atexit_cb(id, OnExit, NULL);
  return 0;
}

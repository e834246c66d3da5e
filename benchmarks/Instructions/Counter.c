/* Plug-in of qemu-arm that counts the user instructions of a program, for each thread exactly.
   At the end it prints two numbers to the standard error: the main thread's and all others'. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* What is used of QEMU's plug-in interface, version 1; Debian has no header for it. */
struct qemu_plugin_tb; /* a block of translated instructions */
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id,
                                           void (*translated)(uint64_t, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* block,
                                          void (*executed)(unsigned int, void*), int flags,
                                          void* data);
void qemu_plugin_register_atexit_cb(uint64_t id, void (*ended)(uint64_t, void*), void* data);
int qemu_plugin_version = 1;

static uint64_t counts[4096]; /* one a thread, so that none needs an atomic addition */

static void OnExecuted(unsigned int thread, void* length)
{
    counts[thread % 4096] += (uintptr_t)length;
}

static void OnTranslated(uint64_t id, struct qemu_plugin_tb* block)
{
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_cb(block, &OnExecuted, 0,
                                         (void*)(uintptr_t)qemu_plugin_tb_n_insns(block));
}

static void OnEnded(uint64_t id, void* data)
{
    (void)id, (void)data;
    uint64_t others = 0;
    for (size_t thread = 1; thread < 4096; ++thread) {
        others += counts[thread];
    }
    fprintf(stderr, "%llu %llu\n", (unsigned long long)counts[0], (unsigned long long)others);
}

int qemu_plugin_install(uint64_t id, const void* info, int argc, char** argv)
{
    (void)info, (void)argc, (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, &OnTranslated);
    qemu_plugin_register_atexit_cb(id, &OnEnded, NULL);
    return 0;
}

/* bench/count.c - a plugin for qemu-user that counts the instructions which a program
 * executes, and writes their number on standard error at its end. The interface is
 * qemu's, version 1; Debian has no header of it, so what is used of it stands here. */
#include <stdint.h>
#include <stdio.h>

#define EXPORTED __attribute__((visibility("default")))

typedef uint64_t PluginId;
typedef struct qemu_plugin_tb Block;

enum { ADD = 0 }; /* the one operation that needs no call */

size_t qemu_plugin_tb_n_insns(const Block *block);
void qemu_plugin_register_vcpu_tb_trans_cb(PluginId id, void (*translated)(PluginId, Block *));
void qemu_plugin_register_vcpu_tb_exec_inline(Block *block, int operation, void *counter,
                                              uint64_t value);
void qemu_plugin_register_atexit_cb(PluginId id, void (*ended)(PluginId, void *), void *data);

EXPORTED int qemu_plugin_version = 1;

static uint64_t executed;

static void countBlock(PluginId id, Block *block)
{
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, ADD, &executed, qemu_plugin_tb_n_insns(block));
}

static void tell(PluginId id, void *data)
{
    (void)id, (void)data;
    fprintf(stderr, "%llu\n", (unsigned long long)executed);
}

EXPORTED int qemu_plugin_install(PluginId id, const void *info, int argc, char **argv)
{
    (void)info, (void)argc, (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, countBlock);
    qemu_plugin_register_atexit_cb(id, tell, NULL);
    return 0;
}

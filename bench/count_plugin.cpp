// SPDX-License-Identifier: Apache-2.0
// A plugin for the emulator: counts the instructions that a program executes, by page of 4 KiB.
//
// usage: qemu-arm -plugin ./count_plugin.so,out=FILE PROGRAM...
//
// At the end FILE has a line for each page in which something was executed: its address in hex and
// the count. It speaks version 1 of the emulator's plugin interface, of which it declares what it
// uses: the header is not packaged.
#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

// The emulator's own names.
// NOLINTBEGIN(readability-identifier-naming)
extern "C" {

using qemu_plugin_id_t = uint64_t;
struct qemu_plugin_tb;
struct qemu_info_t;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*callback)(qemu_plugin_id_t, qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(qemu_plugin_tb* block, qemu_plugin_op op,
                                              void* counter, uint64_t addend);
size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb* block);
uint64_t qemu_plugin_tb_vaddr(const qemu_plugin_tb* block);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*callback)(qemu_plugin_id_t, void*),
                                    void* data);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;
__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id,
                                                               const qemu_info_t* info, int argc,
                                                               char** argv);

}  // extern "C"
// NOLINTEND(readability-identifier-naming)

namespace {

constexpr unsigned kPageBits = 12;
constexpr size_t kPages = size_t{1} << (32 - kPageBits);

std::array<uint64_t, kPages> counts;
std::string out;

/// A block never spans more than two pages and nearly always lies in one: all of it counts for its
/// first one.
void count_block(qemu_plugin_id_t /*id*/, qemu_plugin_tb* block) {
    const uint64_t page = qemu_plugin_tb_vaddr(block) >> kPageBits;
    qemu_plugin_register_vcpu_tb_exec_inline(block, QEMU_PLUGIN_INLINE_ADD_U64,
                                             &counts[page % kPages], qemu_plugin_tb_n_insns(block));
}

void report(qemu_plugin_id_t /*id*/, void* /*data*/) {
    FILE* const file = std::fopen(out.c_str(), "w");
    if (file == nullptr) {
        return;  // whoever asked misses the file
    }
    for (size_t page = 0; page < kPages; ++page) {
        if (counts[page] != 0) {
            std::fprintf(file, "%zx %" PRIu64 "\n", page << kPageBits, counts[page]);
        }
    }
    std::fclose(file);
}

}  // namespace

int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* /*info*/, int argc, char** argv) {
    for (int i = 0; i < argc; ++i) {
        if (std::strncmp(argv[i], "out=", 4) == 0) {
            out = argv[i] + 4;
        }
    }
    if (out.empty()) {
        return -1;
    }
    qemu_plugin_register_vcpu_tb_trans_cb(id, count_block);
    qemu_plugin_register_atexit_cb(id, report, nullptr);
    return 0;
}

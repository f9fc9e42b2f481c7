// A plug-in for qemu's user mode that counts what a server does for each batch. Its arguments:
//   program=PATH  malloc=OFFSET (hex, in the C library)  output=FILE
// At each close, which ends a batch, a line goes to the file: the program's own instructions, the
// library's; loads of uncached memory by 1, 2, 4 and 8 bytes, stores by the same; system calls;
// allocations. What the bare board does itself is not counted.
#include <array>
#include <map>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

// The part of qemu's plug-in interface, version 1, that is used here.
extern "C" {
struct qemu_plugin_tb;
struct qemu_plugin_insn;
struct qemu_plugin_info_t {
    const char *target_name;
};
using meminfo_t = uint32_t;

extern const int qemu_plugin_version = 1;
int qemu_plugin_install (uint64_t id, const qemu_plugin_info_t *info, int argc, char **argv);

void qemu_plugin_register_vcpu_tb_trans_cb (uint64_t id, void (*) (uint64_t id, qemu_plugin_tb *));
void qemu_plugin_register_vcpu_syscall_cb (uint64_t id,
                                           void (*) (uint64_t id, unsigned cpu, int64_t number,
                                                     uint64_t, uint64_t, uint64_t, uint64_t,
                                                     uint64_t, uint64_t, uint64_t, uint64_t));
size_t qemu_plugin_tb_n_insns (const qemu_plugin_tb *);
qemu_plugin_insn *qemu_plugin_tb_get_insn (const qemu_plugin_tb *, size_t i);
void *qemu_plugin_insn_haddr (const qemu_plugin_insn *);
uint64_t qemu_plugin_insn_vaddr (const qemu_plugin_insn *);
void qemu_plugin_register_vcpu_insn_exec_inline (qemu_plugin_insn *, int op, void *counter,
                                                 uint64_t addend);
void qemu_plugin_register_vcpu_mem_cb (qemu_plugin_insn *,
                                       void (*) (unsigned cpu, meminfo_t, uint64_t address, void *),
                                       int registers, int loads_and_stores, void *);
unsigned qemu_plugin_mem_size_shift (meminfo_t);
bool qemu_plugin_mem_is_store (meminfo_t);
}

namespace {
struct counts_t {
    uint64_t own, library;
    std::array<uint64_t, 4> uncached[2];
    uint64_t calls, allocations;
};

struct mapping_t {
    uintptr_t begin, end, offset;
    std::string path;
};
} // namespace

static counts_t counts;
static std::vector<mapping_t> mappings;
static std::map<std::string, std::string> arguments;
static FILE *output;
static int64_t close_number;
static uintptr_t guest_base;

static void read_mappings ()
{
    mappings.clear ();
    FILE *maps = fopen ("/proc/self/maps", "r");
    char line[1000], path[1000];
    while (fgets (line, sizeof (line), maps) != nullptr) {
        mapping_t m;
        if (sscanf (line, "%lx-%lx %*s %lx %*s %*s %999[^\n]", &m.begin, &m.end, &m.offset, path) ==
            4) {
            m.path = path;
            mappings.push_back (m);
        }
    }
    fclose (maps);
}

static const mapping_t *mapping_at (uintptr_t address)
{
    for (const mapping_t &m : mappings) {
        if (address >= m.begin && address < m.end) {
            return &m;
        }
    }
    return nullptr;
}

// The bare board's memory is shared and has no file.
static void on_access (unsigned, meminfo_t info, uint64_t address, void *)
{
    const mapping_t *m = mapping_at (guest_base + address);
    if (m != nullptr && m->path == "/dev/zero (deleted)") {
        counts.uncached[qemu_plugin_mem_is_store (info)].at (qemu_plugin_mem_size_shift (info))++;
    }
}

static void count (qemu_plugin_insn *instruction)
{
    const uintptr_t address = reinterpret_cast<uintptr_t> (qemu_plugin_insn_haddr (instruction));
    const mapping_t *m = mapping_at (address);
    if (m == nullptr) {
        read_mappings ();
        m = mapping_at (address);
    }
    if (m == nullptr || m->path.find ("bare_board") != std::string::npos) {
        return;
    }
    auto add = [instruction] (uint64_t &counter) {
        qemu_plugin_register_vcpu_insn_exec_inline (instruction, 0, &counter, 1);
    };
    guest_base = address - qemu_plugin_insn_vaddr (instruction);
    add (m->path == arguments["program"] ? counts.own : counts.library);
    qemu_plugin_register_vcpu_mem_cb (instruction, on_access, 0, 3, nullptr);
    if (m->path.find ("/libc.so") != std::string::npos &&
        address - m->begin + m->offset == strtoul (arguments["malloc"].c_str (), nullptr, 16)) {
        add (counts.allocations);
    }
}

static void on_translation (uint64_t, qemu_plugin_tb *block)
{
    for (size_t i = 0; i < qemu_plugin_tb_n_insns (block); i++) {
        count (qemu_plugin_tb_get_insn (block, i));
    }
}

static void on_call (uint64_t, unsigned, int64_t number, uint64_t, uint64_t, uint64_t, uint64_t,
                     uint64_t, uint64_t, uint64_t, uint64_t)
{
    counts.calls++;
    if (number != close_number) {
        return;
    }
    fprintf (output, "%lu %lu", counts.own, counts.library);
    for (const auto &widths : counts.uncached) {
        fprintf (output, " %lu %lu %lu %lu", widths[0], widths[1], widths[2], widths[3]);
    }
    fprintf (output, " %lu %lu\n", counts.calls, counts.allocations);
    fflush (output);
    counts = {};
    read_mappings ();
}

int qemu_plugin_install (uint64_t id, const qemu_plugin_info_t *info, int argc, char **argv)
{
    for (int i = 0; i < argc; i++) {
        std::string argument = argv[i];
        size_t equals = argument.find ('=');
        arguments[argument.substr (0, equals)] = argument.substr (equals + 1);
    }
    output = fopen (arguments["output"].c_str (), "w");
    close_number = strcmp (info->target_name, "ppc") == 0 ? 6 : 3;
    qemu_plugin_register_vcpu_tb_trans_cb (id, on_translation);
    qemu_plugin_register_vcpu_syscall_cb (id, on_call);
    return output == nullptr;
}

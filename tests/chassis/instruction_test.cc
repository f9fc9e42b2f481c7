// The instructions against the processor itself: random ones of those that are known, on random
// registers, flags and memory, carried out by both. A difference prints the instruction.
#include "base/hex.h"
#include "chassis/trap/instruction.h"

#ifdef __x86_64__
#include <Zydis/Decoder.h>
#endif
#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <set>
#include <setjmp.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <vector>

namespace {

// xorshift: the same numbers each time, and quick under an emulator too
uint64_t engine ()
{
    static uint64_t state = 88172645463325252;
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
}

template <typename value_t> value_t one_of (std::initializer_list<value_t> values)
{
    return values.begin ()[engine () % values.size ()];
}

// A page of code, in which an instruction may begin every 64 bytes, then one of data, whose first
// bytes are in reach of the instructions.
uint8_t *const code = static_cast<uint8_t *> (
    mmap (nullptr, 8192, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
uint8_t *const data = code + 4096;
constexpr size_t code_size = 4096, data_size = 256, slot_size = 64, instruction_size = 16;
constexpr int num_slots = code_size / slot_size;

// Some place after an instruction, with code that stops the processor.
uint64_t stopping_place ()
{
    return reinterpret_cast<uintptr_t> (code) + engine () % num_slots * slot_size +
           instruction_size + engine () % 12 * 4;
}

jmp_buf out_of_reach;

// What the data becomes under the instruction that is not carried out by the processor.
struct copy_t final : program_memory_t {
    uint8_t bytes[data_size];
    bool is_changed = false;

    uint8_t *at (uintptr_t address, int width)
    {
        uintptr_t offset = address - reinterpret_cast<uintptr_t> (data);
        if (offset > data_size - static_cast<size_t> (width)) {
            longjmp (out_of_reach, 1);
        }
        return bytes + offset;
    }
    static int shift_of (int byte, int width)
    {
        return 8 * (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? width - 1 - byte : byte);
    }
    uint64_t load (uintptr_t address, int width) override
    {
        const uint8_t *from = at (address, width);
        uint64_t value = 0;
        for (int i = 0; i < width; i++) {
            value |= uint64_t (from[i]) << shift_of (i, width);
        }
        return value;
    }
    bool is_exclusive (uintptr_t) override
    {
        return true;
    }
    void store (uintptr_t address, int width, uint64_t value) override
    {
        uint8_t *to = at (address, width);
        is_changed = true;
        EXPECT_TRUE (width == 8 || value >> 8 * width == 0);
        for (int i = 0; i < width; i++) {
            to[i] = static_cast<uint8_t> (value >> shift_of (i, width));
        }
    }
};

struct described_t {
    size_t length;
    uint64_t kind;            // what is counted
    uint64_t undefined_flags; // those that the manual leaves open
};

#ifdef __x86_64__
constexpr int counter = REG_RIP, flags = REG_EFL, num_registers = REG_EFL + 1;
const std::vector<uint8_t> stop = {0xCC}; // int3
constexpr uint64_t stop_length = 1;
constexpr int num_kinds = 290; // of opcodes that come up

greg_t *registers_of (ucontext_t &context)
{
    return context.uc_mcontext.gregs;
}

// Memory is reached from RDI or R15, with RCX or R9 as the index, from the program counter, and as
// stack and string.
std::vector<uint8_t> random_instruction (greg_t *registers, const uint8_t *place)
{
    int opcode = engine () % 256, rex = one_of ({0, 0x40 | int (engine () % 16)});
    int prefix = one_of ({0, 0, 0, 0, 0, 0, 0, 0x26, 0x64, 0x65, 0x67, 0xF0, 0xF2, 0xF3});
    bool is_short = engine () % 3 == 0, is_long = engine () % 4 == 0;
    std::vector<uint8_t> bytes (is_short, 0x66);
    bytes.insert (bytes.end (), prefix != 0, static_cast<uint8_t> (prefix));
    bytes.insert (bytes.end (), rex != 0, static_cast<uint8_t> (rex));
    bytes.insert (bytes.end (), is_long, 0x0F);
    bytes.insert (bytes.end (), is_long && opcode >> 1 == 0x78, 0x38);
    bytes.push_back (static_cast<uint8_t> (opcode));
    static const int forms[][3] = {{0x07, -1, 0},   {0x47, -1, 1},   {0x87, -1, 4},
                                   {0x05, -1, 4},   {0x04, 0x0F, 0}, {0x44, 0x4F, 1},
                                   {0x84, 0x8F, 4}, {0x04, 0x0D, 4}, {0xC0, -1, 0},
                                   {0xC0, -1, 0},   {-1, -1, 0},     {-1, -1, 1}};
    const auto [modrm, sib, displacement_size] = forms[engine () % std::size (forms)];
    if (modrm >= 0) {
        int rm = modrm == 0xC0 ? engine () % 8 : 0;
        bytes.push_back (static_cast<uint8_t> (modrm | rm | (engine () % 8) << 3));
    }
    bytes.insert (bytes.end (), sib >= 0, static_cast<uint8_t> (sib));
    size_t at = bytes.size ();
    std::generate_n (std::back_inserter (bytes), 15 - at, engine);
    int32_t displacement = displacement_size == 0 ? 0 : static_cast<int8_t> (engine ());
    const int64_t address = reinterpret_cast<int64_t> (data) + 64 + engine () % 128;
    if (modrm == 0x05) {
        displacement = static_cast<int32_t> (address - reinterpret_cast<int64_t> (place));
    }
    memcpy (&bytes[at], &displacement, static_cast<size_t> (displacement_size));
    const int64_t base = address - displacement;
    int64_t index = sib == 0x0D ? base : engine () % 64; // it is the address alone

    std::generate_n (registers, 16, engine);
    registers[REG_EFL] = 0x202 | (engine () & 0xCD5);
    registers[one_of ({REG_RAX, REG_RBX, REG_R14})] = static_cast<greg_t> (stopping_place ());
    registers[REG_RCX] = registers[REG_R9] = index;
    registers[REG_RSI] = registers[REG_RSP] = registers[REG_RBP] = address;
    registers[REG_RDI] = registers[REG_R15] = base - (sib < 0 ? 0 : index << (sib >> 6));
    return bytes;
}

described_t describe (const uint8_t *instruction)
{
    ZydisDecoder decoder;
    ZydisDecodedInstruction decoded;
    ZydisDecoderInit (&decoder, ZYDIS_MACHINE_MODE_LONG_64, ZYDIS_STACK_WIDTH_64);
    ZydisDecoderDecodeInstruction (&decoder, nullptr, instruction, 15, &decoded);
    bool shifts = decoded.mnemonic == ZYDIS_MNEMONIC_SHL || decoded.mnemonic == ZYDIS_MNEMONIC_SHR;
    uint64_t undefined = decoded.cpu_flags == nullptr ? 0 : decoded.cpu_flags->undefined;
    undefined |=
        shifts && decoded.operand_width < 32 ? ZYDIS_CPUFLAG_CF : 0; // by more than there is
    return {decoded.length, uint64_t (decoded.mnemonic) << 8 | decoded.opcode, undefined};
}
#else
constexpr int counter = PT_NIP, flags = PT_CCR, num_registers = PT_CCR + 1;
const std::vector<uint8_t> stop = {0x7F, 0xE0, 0x00, 0x08}; // trap
constexpr uint64_t stop_length = 0;
constexpr int num_kinds = 101;

unsigned long *registers_of (ucontext_t &context)
{
    return context.uc_mcontext.uc_regs->gregs;
}

// The base is in register 4, the index in 5; 1, 2 and 13 belong to the system.
std::vector<uint8_t> random_instruction (unsigned long *registers, const uint8_t *)
{
    static const uint32_t extended_19[] = {0, 16, 528, 33, 129, 193, 225, 257, 289, 417, 449, 150};
    const uint32_t primary = one_of<uint32_t> ({31, 31, 31, 19, uint32_t (engine () % 64)});
    const bool is_update = primary >= 32;
    int16_t displacement = static_cast<int16_t> (engine ());
    std::generate_n (registers + 3, 10, engine);
    std::generate_n (registers + 14, 18, engine);
    registers[0] = engine ();
    registers[3] = engine () % 64; // counts of shifts
    uint32_t address = reinterpret_cast<uintptr_t> (data) + 64 + engine () % 128;
    if (primary == 46 || primary == 47) {
        address &= ~3u;
    }
    registers[4] = address - (is_update ? displacement : registers[5]);
    registers[PT_LNK] = registers[PT_CTR] = stopping_place ();
    registers[PT_CCR] = engine ();
    registers[PT_XER] = engine () & 0xE000007F;
    auto any_register = [] (uint32_t others) { // 14 to 31, 3 to 12, or those in use
        return engine () % 2 ? others : engine () % 3 ? 14 + engine () % 18 : 3 + engine () % 10;
    };
    uint32_t target = any_register (31), base = any_register (4), index = any_register (5);
    uint32_t extended = primary == 19 ? extended_19[engine () % std::size (extended_19)]
                                      : uint32_t (engine () % 1024);
    uint32_t word = primary << 26 | target << 21 | base << 16;
    word |= primary == 31 || primary == 19
                ? (engine () % 4 ? index << 11 : 0) | extended << 1 | (engine () % 2)
                : displacement & 0xFFFF;
    if (engine () % 4 == 0) { // fields that may be more than registers, or none
        word &= one_of ({0xFFE0FFFFu, 0xFC1FFFFFu, 0xFC00FFFFu, 0xFC0007FEu, 0xFC9FFFFFu});
        word |= one_of ({0u, 8u << 16, 9u << 16, uint32_t (engine () % 1024) << 16});
    } else if (primary == 16 || primary == 18) {
        word = primary << 26 | (engine () & 0x03E00000) | (engine () & 0x1F07FD);
        word &= primary == 18 ? ~0x03FFF800u : ~0u;
    }
    if (word >> 26 != 18 && (target == 1 || target == 2 || target == 13)) {
        return {};
    }
    std::vector<uint8_t> bytes (4);
    memcpy (bytes.data (), &word, 4);
    return bytes;
}

described_t describe (const uint8_t *instruction)
{
    uint32_t word;
    memcpy (&word, instruction, 4);
    uint32_t primary = word >> 26;
    bool is_extended = primary == 31 || primary == 19;
    return {4, primary << 10 | (is_extended ? word >> 1 & 0x3FF : 0), 0};
}
#endif

using registers_t = std::array<uint64_t, num_registers>;

struct case_t {
    registers_t native, decoded; // `native` goes in, and comes out
    uint8_t data[data_size];
    described_t described;
};
case_t cases[num_slots];

// Registers go into the processor by way of a signal handler's context, and come out by the next
// one's; after the last with those of the program.
registers_t home;
int next_case = 0;

void exchange (int signal, siginfo_t *, void *raw)
{
    auto *registers = registers_of (*static_cast<ucontext_t *> (raw));
    registers_t &out = next_case == 0 ? home : cases[next_case - 1].native;
    std::copy_n (registers, num_registers, out.begin ());
    if (next_case > 0) {
        out[counter] -= signal == SIGTRAP ? stop_length : 0;
        EXPECT_EQ (memcmp (cases[next_case - 1].data, data, data_size), 0) << next_case;
    }
    const bool is_last = next_case == num_slots;
    const registers_t &in = is_last ? home : cases[next_case].native;
    std::copy_n (in.begin (), num_registers, registers);
    next_case = is_last ? 0 : next_case + 1;
}

void install_exchange ()
{
    static uint8_t stack[262144];
    const stack_t other = {stack, 0, sizeof (stack)};
    struct sigaction action = {};
    action.sa_sigaction = exchange;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigaltstack (&other, nullptr);
    for (int signal : {SIGTRAP, SIGSEGV, SIGILL, SIGBUS, SIGFPE}) {
        sigaction (signal, &action, nullptr);
    }
}

void fill_with_stops (uint8_t *from, const uint8_t *end)
{
    for (; from < end; from += stop.size ()) {
        std::copy (stop.begin (), stop.end (), from);
    }
}

// All steps of a repeated one, as the processor does. What is not known changes nothing.
bool carry_out (ucontext_t &context, copy_t &memory)
{
    static registers_t before;
    const auto *registers = registers_of (context);
    std::copy_n (registers, num_registers, before.begin ());
    const uintptr_t instruction = program_counter (context);
    if (setjmp (out_of_reach) != 0) {
        return false;
    }
    for (int i = 0; i < 100; i++) {
        if (!carry_out_instruction (context, memory)) {
            EXPECT_TRUE (i > 0 || std::equal (before.begin (), before.end (), registers));
            return false;
        }
        if (program_counter (context) != instruction) {
            return true;
        }
    }
    return false;
}

bool is_stop (uintptr_t next, const uint8_t *end_of_instruction)
{
    const uintptr_t offset = next - reinterpret_cast<uintptr_t> (code);
    return next == reinterpret_cast<uintptr_t> (end_of_instruction) ||
           (offset < code_size && offset % slot_size >= instruction_size);
}

// Another instruction that is known, and what becomes of the registers and of `memory`.
void fill_case (int number, copy_t &memory)
{
    static ucontext_t context;
    static copy_t before;
    case_t &into = cases[number];
    uint8_t *const place = code + slot_size * number;
    [[maybe_unused]] static const int is_filled = getcontext (&context);
    auto *registers = registers_of (context);
    memory.is_changed = false;
    before = memory;
    bool is_known = false;
    for (int i = 0; i < 10000 && !is_known; i++) {
        if (memory.is_changed) {
            memory = before;
        }
        const auto bytes = random_instruction (registers, place);
        std::copy (bytes.begin (), bytes.end (), place);
        registers[counter] = reinterpret_cast<intptr_t> (place);
        std::copy_n (registers, num_registers, into.native.begin ());
        is_known = !bytes.empty () && carry_out (context, memory);
        if (is_known) {
            into.described = describe (place);
            is_known = is_stop (program_counter (context), place + into.described.length);
        }
    }
    ASSERT_TRUE (is_known);
    std::copy_n (registers, num_registers, into.decoded.begin ());
    std::copy_n (memory.bytes, data_size, into.data);
    fill_with_stops (place + into.described.length, place + instruction_size);
}

TEST (instruction, does_what_the_processor_does)
{
    install_exchange ();
    fill_with_stops (code, code + code_size);
    std::set<uint64_t> kinds;
    // Q5_FULL_SWEEP=1: a million where it takes minutes too, with sanitizers and under an emulator.
    const int most = getenv ("Q5_FULL_SWEEP") != nullptr ? 1000000 : Q5_NUM_INSTRUCTIONS;
    for (int i = 0; i < most && !HasFailure (); i += num_slots) {
        static copy_t memory;
        for (size_t at = 0; at < data_size; at += sizeof (uintptr_t)) {
            const uintptr_t word = engine () % 8 == 0 ? stopping_place () : engine ();
            memcpy (memory.bytes + at, &word, sizeof (word));
        }
        std::copy_n (memory.bytes, data_size, data);
        for (int number = 0; number < num_slots; number++) {
            fill_case (number, memory);
        }
        __builtin___clear_cache (reinterpret_cast<char *> (code), reinterpret_cast<char *> (data));
        raise (SIGTRAP);
        for (case_t &each : cases) {
            each.decoded[flags] |= each.described.undefined_flags;
            each.native[flags] |= each.described.undefined_flags;
            const uint8_t *place = code + slot_size * (&each - cases);
            EXPECT_EQ (each.decoded, each.native) << hex_text (place, each.described.length);
            kinds.insert (each.described.kind);
        }
    }
    EXPECT_GE (kinds.size (), static_cast<size_t> (num_kinds));
}

} // namespace

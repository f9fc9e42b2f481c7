// The decoder against the processor itself: random instructions of those that it takes, on random
// registers, flags and memory, carried out by both. A difference prints the instruction.
#include "base/hex.h"
#include "chassis/trap/access_decode.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <random>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <vector>

namespace {

constexpr int num_instructions = 20000;

std::mt19937_64 engine (1); // the same instructions each time

template <typename value_t> value_t one_of (std::initializer_list<value_t> values)
{
    return values.begin ()[engine () % values.size ()];
}

struct memory_t final : register_file_t {
    uint8_t bytes[8];

    uint32_t read (uint32_t, int width) override
    {
        uint32_t value = 0;
        for (int i = 0; i < width; i++) {
            value = value << 8 | bytes[i];
        }
        return value;
    }
    void write (uint32_t, int width, uint32_t value) override
    {
        for (int i = width; i-- > 0; value >>= 8) {
            bytes[i] = static_cast<uint8_t> (value);
        }
    }
};

// A page for the code, with memory behind it.
uint8_t *const code = static_cast<uint8_t *> (
    mmap (nullptr, 8192, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
uint8_t *const target = code + 4096;

struct instruction_t {
    std::vector<uint8_t> bytes; // none: no instruction; with more behind it, for what it may need
    size_t displacement;        // where one from the program counter stands; 0: none
    uint64_t ignored_flags;     // those that the manual leaves undefined
};

#ifdef __x86_64__
constexpr int counter = REG_RIP, num_registers = REG_EFL + 1;
const std::vector<uint8_t> stop = {0xCC}; // int3
constexpr uint64_t stop_length = 1;

greg_t *registers_of (ucontext_t &context)
{
    return context.uc_mcontext.gregs;
}

void randomise (greg_t *registers)
{
    std::generate_n (registers, 16, engine);
    registers[REG_EFL] = 0x202 | (engine () & 0x8D5);
}

// The target is reached from RDI or R15, with RCX or R9 as the index, or from the counter.
instruction_t random_instruction (greg_t *registers)
{
    int opcode = engine () % 256, rex = one_of ({0, 0x40 | int (engine () % 16)});
    if (strchr ("\x26\x2E\x36\x3E\x64\x65\x66\x67\xF0\xF2\xF3\x0F", opcode) || opcode >> 4 == 4) {
        return {}; // another prefix
    }
    bool is_short = engine () % 3 == 0, is_long = engine () % 4 == 0;
    std::vector<uint8_t> bytes (is_short, 0x66);
    bytes.insert (bytes.end (), rex != 0, static_cast<uint8_t> (rex));
    bytes.insert (bytes.end (), is_long, 0x0F);
    bytes.insert (bytes.end (), is_long && opcode >> 1 == 0x78, 0x38);
    bytes.push_back (static_cast<uint8_t> (opcode));
    const auto [modrm, sib, displacement_size] = one_of<std::array<int, 3>> ({{0x07, -1, 0},
                                                                              {0x47, -1, 1},
                                                                              {0x87, -1, 4},
                                                                              {0x05, -1, 4},
                                                                              {0x04, 0x0F, 0},
                                                                              {0x44, 0x4F, 1},
                                                                              {0x84, 0x8F, 4},
                                                                              {0x04, 0x0D, 4}});
    bytes.push_back (static_cast<uint8_t> (modrm | (engine () % 8) << 3));
    bytes.insert (bytes.end (), sib >= 0, static_cast<uint8_t> (sib));
    size_t at = bytes.size ();
    std::generate_n (std::back_inserter (bytes), 12, engine);
    int32_t displacement = displacement_size == 0 ? 0 : static_cast<int8_t> (engine ());
    memcpy (&bytes[at], &displacement, static_cast<size_t> (displacement_size));
    int64_t address = reinterpret_cast<int64_t> (target) - displacement;
    int64_t index = sib == 0x0D ? address : engine () % 64; // it is the address alone
    registers[REG_RCX] = registers[REG_R9] = index;
    registers[REG_RDI] = registers[REG_R15] = address - (sib < 0 ? 0 : index << (sib >> 6));

    bool multiplies = is_long ? opcode == 0xAF : opcode == 0x69 || opcode == 0x6B;
    bool shifts = !is_long && (opcode >> 1 == 0x60 || opcode >> 1 == 0x69); // not by one
    bool is_word = (opcode & 1) && !is_short;
    return {bytes, modrm == 0x05 ? at : 0,
            0x10u | (multiplies ? 0xC4
                     : shifts   ? (is_word ? 0x800 : 0x801)
                                : 0)};
}
#else
constexpr int counter = PT_NIP, num_registers = PT_NIP + 1;
const std::vector<uint8_t> stop = {0x7F, 0xE0, 0x00, 0x08}; // trap
constexpr uint64_t stop_length = 0;

unsigned long *registers_of (ucontext_t &context)
{
    return context.uc_mcontext.uc_regs->gregs;
}

// But for those that belong to the system: 1, 2 and 13.
void randomise (unsigned long *registers)
{
    std::generate_n (registers + 3, 10, engine);
    std::generate_n (registers + 14, 18, engine);
}

// The base is in register 4, the index in 5.
instruction_t random_instruction (unsigned long *registers)
{
    bool is_indexed = engine () % 4 == 0;
    int16_t displacement = static_cast<int16_t> (engine ());
    registers[4] =
        reinterpret_cast<uintptr_t> (target) - (is_indexed ? registers[5] : displacement);
    uint32_t word = (is_indexed ? 31 : 32 + engine () % 16) << 26 | (14 + engine () % 18) << 21 |
                    4 << 16 |
                    (is_indexed ? 5 << 11 | engine () % 1024 << 1 : displacement & 0xFFFF);
    std::vector<uint8_t> bytes (4);
    memcpy (bytes.data (), &word, 4);
    return {bytes, 0, 0};
}
#endif

// Registers go into the processor by way of a signal handler's context, and come out by the next
// one's, with which the program is what it was before.
using registers_t = std::array<uint64_t, num_registers>;
registers_t native, home;
bool is_running;

void exchange (int, siginfo_t *, void *raw)
{
    auto *registers = registers_of (*static_cast<ucontext_t *> (raw));
    const registers_t next = is_running ? home : native;
    std::copy_n (registers, num_registers, (is_running ? native : home).begin ());
    std::copy_n (next.begin (), num_registers, registers);
    is_running = !is_running;
}

void install_exchange ()
{
    static uint8_t stack[65536];
    const stack_t other = {stack, 0, sizeof (stack)};
    struct sigaction action = {};
    action.sa_sigaction = exchange;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigaltstack (&other, nullptr);
    for (int signal : {SIGTRAP, SIGSEGV, SIGILL, SIGBUS, SIGFPE}) {
        sigaction (signal, &action, nullptr);
    }
}

TEST (access_decode, does_what_the_processor_does)
{
    install_exchange ();
    int accepted = 0;
    for (int i = 0; i < 20 * num_instructions && accepted < num_instructions; i++) {
        ucontext_t context;
        getcontext (&context);
        auto *registers = registers_of (context);
        randomise (registers);
        const instruction_t instruction = random_instruction (registers);
        registers[counter] = reinterpret_cast<intptr_t> (code);
        std::copy (instruction.bytes.begin (), instruction.bytes.end (), code);
        std::copy_n (registers, num_registers, native.begin ());
        memory_t memory;
        std::generate_n (memory.bytes, sizeof (memory.bytes), engine);
        std::copy_n (memory.bytes, sizeof (memory.bytes), target);
        if (instruction.bytes.empty () ||
            !carry_out_access (context, reinterpret_cast<uintptr_t> (target), {memory, 0})) {
            continue;
        }
        accepted++;
        auto *end = reinterpret_cast<uint8_t *> (registers[counter]);
        std::copy (stop.begin (), stop.end (), end);
        if (instruction.displacement != 0) {
            int32_t displacement = static_cast<int32_t> (target - end);
            memcpy (code + instruction.displacement, &displacement, 4);
        }
        __builtin___clear_cache (reinterpret_cast<char *> (code),
                                 reinterpret_cast<char *> (target));
        raise (SIGTRAP);
        native[counter] -= stop_length;
        registers_t decoded;
        std::copy_n (registers, num_registers, decoded.begin ());
        decoded.back () |= instruction.ignored_flags;
        native.back () |= instruction.ignored_flags;
        const std::string text = hex_text (code, static_cast<size_t> (end - code));
        ASSERT_EQ (decoded, native) << text;
        ASSERT_EQ (hex_text (memory.bytes, 8), hex_text (target, 8)) << text;
    }
    EXPECT_EQ (accepted, num_instructions);
}

} // namespace

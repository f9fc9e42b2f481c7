// The instructions of both processors that the board carries out, on any bytes: they read none
// after the instruction, make accesses of widths that there are, do the same twice, and leave all
// as it was for what they do not know.
#include "chassis/trap/instruction.h"

#include "fuzz/fuzz.h"

#include <array>
#include <asm/ptrace.h>
#include <functional>
#include <sys/mman.h>
#include <tuple>

using registers_t = std::vector<long long>;

// The target's, on a context as the target has it; a word is in this machine's order.
#define PT_NIP 32
#define PT_CTR 35
#define PT_LNK 36
#define PT_XER 37
#define PT_CCR 38
namespace powerpc {
struct ucontext_t {
    struct {
        struct {
            long long gregs[PT_CCR + 1];
        } * uc_regs;
    } uc_mcontext;
};
#include "chassis/trap/instruction_powerpc.cc"
} // namespace powerpc

struct accesses_t final : program_memory_t {
    bytes_t log = {};

    uint64_t load (uintptr_t address, int width) override
    {
        store (address, width, 0);
        return 0x8123456789ABCDEF >> (64 - 8 * width);
    }
    void store (uintptr_t address, int width, uint64_t value) override
    {
        REQUIRE (width == 1 || width == 2 || width == 4 || width == 8);
        REQUIRE (width == 8 || value >> 8 * width == 0);
        append_word (log, static_cast<uint32_t> (address));
        append_word (log, static_cast<uint32_t> (value));
    }
    bool is_exclusive (uintptr_t address) override
    {
        return address % 2 == 0;
    }
};

// The code is where memory ends; `registers` are those of the context.
template <typename context_t>
static void check (context_t &context, long long *registers, size_t num_registers, int counter,
                   const bytes_t &code)
{
    static void *const pages =
        mmap (nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    static uint8_t *const end = static_cast<uint8_t *> (pages) + 4096;
    mprotect (end, 4096, PROT_NONE);
    registers[counter] = 0;
    const registers_t before (registers, registers + num_registers);
    auto place = [&] (size_t size) {
        std::copy (before.begin (), before.end (), registers);
        std::copy_n (code.begin (), size, end - size);
        registers[counter] = reinterpret_cast<intptr_t> (end - size);
    };
    auto play = [&] (size_t size) {
        place (size);
        accesses_t accesses;
        bool known = carry_out_instruction (context, accesses);
        return std::tuple (known, registers_t (registers, registers + num_registers), accesses.log);
    };
    const auto played = play (code.size ());
    const auto &[known, after, log] = played;
    place (code.size ());
    REQUIRE (known || after == registers_t (registers, registers + num_registers));
    REQUIRE (log.size () <= 32 * 8);
    const std::string text = describe_instruction (context);
    const size_t shown = (text.size () - text.rfind ("bytes ")) / 3 - 1;
    REQUIRE (play (code.size ()) == played);
    REQUIRE (!known || code.size () == 4 || std::get<0> (play (shown)));
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    bytes_t code (15); // the longest of x86-64
    std::generate (code.begin (), code.end (), [&] { return input.byte (); });
    ucontext_t x86 = {};
    std::remove_pointer_t<decltype (powerpc::ucontext_t::uc_mcontext.uc_regs)> registers;
    powerpc::ucontext_t powerpc = {{&registers}};
    for (long long &value : registers.gregs) {
        value = x86.uc_mcontext.gregs[(&value - registers.gregs) % NGREG] =
            input.word () * 0x80000001LL;
    }
    check (x86, x86.uc_mcontext.gregs, NGREG, REG_RIP, code);
    code.resize (4);
    check (powerpc, registers.gregs, PT_CCR + 1, PT_NIP, code);
    return 0;
}

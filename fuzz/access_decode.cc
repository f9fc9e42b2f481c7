// Both decoders of the program's loads and stores, on any bytes: they read none behind the
// instruction, touch the register file once or twice in its own widths, change a register and the
// flags at the most, do the same twice, and leave all as it was for what they do not know.
#include "chassis/trap/access_decode.h"

#include "fuzz/fuzz.h"

#include <asm/ptrace.h>
#include <functional>
#include <numeric>
#include <sys/mman.h>
#include <tuple>

using registers_t = std::vector<long long>;

// The target's decoder, on a context as the target has it; a word lies in this machine's order.
#define PT_NIP 32
namespace powerpc {
struct ucontext_t {
    struct {
        struct {
            long long gregs[PT_NIP + 1];
        } * uc_regs;
    } uc_mcontext;
};
#include "chassis/trap/access_decode_powerpc.cc"
} // namespace powerpc

struct accesses_t final : register_file_t {
    bytes_t log = {};

    uint32_t read (uint32_t offset, int width) override
    {
        write (offset, width, 0);
        return 0x89ABCDEF >> (32 - 8 * width);
    }
    void write (uint32_t offset, int width, uint32_t value) override
    {
        REQUIRE (offset == 0x11A40 && (width == 1 || width == 2 || width == 4));
        append_word (log, width);
        append_word (log, value);
    }
};

using decoder_t = std::function<bool (const register_place_t &)>;

// The code lies where memory ends; `registers` are those of the decoder's context.
static void check (const decoder_t &carry_out, long long *registers, size_t num_registers,
                   int counter, const bytes_t &code)
{
    static void *const pages =
        mmap (nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    static uint8_t *const end = static_cast<uint8_t *> (pages) + 4096;
    mprotect (end, 4096, PROT_NONE);
    registers[counter] = 0;
    const registers_t before (registers, registers + num_registers);
    auto play = [&] (size_t size) {
        std::copy (before.begin (), before.end (), registers);
        std::copy_n (code.begin (), size, end - size);
        registers[counter] = reinterpret_cast<intptr_t> (end - size);
        accesses_t accesses;
        bool known = carry_out ({accesses, 0x11A40});
        registers[counter] -= reinterpret_cast<intptr_t> (end - size);
        return std::tuple (known, registers_t (registers, registers + num_registers), accesses.log);
    };
    const auto played = play (code.size ());
    const auto &[known, after, log] = played;
    size_t length = after[counter];
    REQUIRE (known || (log.empty () && after == before));
    REQUIRE (!known || (length > 0 && length <= code.size ()));
    REQUIRE (!known || log.size () == 8 || log.size () == 16);
    REQUIRE (std::inner_product (before.begin (), before.end (), after.begin (), 0, std::plus<> (),
                                 std::not_equal_to<> ()) <= 3);
    REQUIRE (!known || play (length) == played);
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
    check ([&] (const register_place_t &place) { return carry_out_access (x86, 0x1000, place); },
           x86.uc_mcontext.gregs, NGREG, REG_RIP, code);
    code.resize (4);
    check (
        [&] (const register_place_t &place) { return carry_out_access (powerpc, 0x1000, place); },
        registers.gregs, PT_NIP + 1, PT_NIP, code);
    return 0;
}

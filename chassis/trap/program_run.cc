#include "chassis/trap/program_run.h"

#include "chassis/trap/access_trap.h"
#include "chassis/trap/instruction.h"

#include <algorithm>
#include <atomic>
#include <endian.h>
#include <errno.h>
#include <link.h>
#include <setjmp.h>
#include <sys/mman.h>
#include <vector>

// Signals wait while the program runs on: for less than a millisecond.
constexpr int most_instructions = 4096;
// After more without a register access the processor itself is faster.
constexpr int most_without_access = 256;

// The part of the stack below the program's own that the handler and the kernel may use.
constexpr uintptr_t handler_stack = 65536;

namespace {

struct code_t {
    uintptr_t begin, end;

    bool contains (uintptr_t address) const
    {
        return address >= begin && address < end;
    }
};

struct run_t final : program_memory_t {
    sigjmp_buf start;
    const uintptr_t stack_top;
    volatile bool may_fault = true; // the program's own access, not the board
    volatile int since_access = 0;

    explicit run_t (const ucontext_t &context) : stack_top (stack_end (context)) {}
    uint64_t load (uintptr_t address, int width) override;
    void store (uintptr_t address, int width, uint64_t value) override;
    bool is_exclusive (uintptr_t address) override;
    [[noreturn]] void stop ();

  private:
    const device_view_t *view_of (uintptr_t address, int width, int protection);
    register_place_t place_in (const device_view_t &view, uintptr_t address);
};

} // namespace

static std::vector<code_t> &program_code ()
{
    static auto *all = new std::vector<code_t>;
    return *all;
}

// Of a thread; without a call that might allocate.
static __attribute__ ((tls_model ("initial-exec"))) thread_local run_t *current;

// The preload library's own code is not part of the program.
static int add_program_code (dl_phdr_info *module, size_t, void *list)
{
    const bool is_main = module->dlpi_name[0] == '\0';
    for (int i = 0; i < module->dlpi_phnum; i++) {
        const auto &segment = module->dlpi_phdr[i];
        const uintptr_t begin = module->dlpi_addr + segment.p_vaddr;
        const code_t code{begin, begin + segment.p_memsz};
        const bool is_code = segment.p_type == PT_LOAD && (segment.p_flags & PF_X);
        if (is_code && (is_main || !code.contains (reinterpret_cast<uintptr_t> (&run_program)))) {
            static_cast<std::vector<code_t> *> (list)->push_back (code);
        }
    }
    return 0;
}

void find_program_code ()
{
    std::vector<code_t> found;
    dl_iterate_phdr (add_program_code, &found);
    program_code ().swap (found);
}

static bool is_program_code (uintptr_t address)
{
    const auto &all = program_code ();
    return std::any_of (all.begin (), all.end (),
                        [&] (const code_t &code) { return code.contains (address); });
}

void run_t::stop ()
{
    siglongjmp (start, 1);
}

void return_to_run ()
{
    if (current != nullptr && current->may_fault) {
        current->stop ();
    }
}

// Null for plain memory; the handler's own stack does not count as such.
const device_view_t *run_t::view_of (uintptr_t address, int width, int protection)
{
    const device_view_t *view = find_trapped_view (address);
    if (view != nullptr) {
        uintptr_t left = reinterpret_cast<uintptr_t> (view->begin) + view->length - address;
        if (left < static_cast<uintptr_t> (width) || !(view->protection & protection)) {
            stop ();
        }
    } else if (address < stack_top && stack_top - address < handler_stack) {
        stop ();
    }
    return view;
}

register_place_t run_t::place_in (const device_view_t &view, uintptr_t address)
{
    since_access = 0;
    uintptr_t offset = address - reinterpret_cast<uintptr_t> (view.begin);
    return {*view.registers, view.offset + static_cast<uint32_t> (offset)};
}

// Of plain memory: one access each, as the program makes it, wherever it leads.
template <typename word_t> struct unaligned_t {
    typedef word_t type __attribute__ ((aligned (1), may_alias));
};

template <typename word_t>
__attribute__ ((no_sanitize ("address", "undefined"))) static uint64_t word_at (uintptr_t address)
{
    return *reinterpret_cast<const volatile typename unaligned_t<word_t>::type *> (address);
}

template <typename word_t>
__attribute__ ((no_sanitize ("address", "undefined"))) static void set_word_at (uintptr_t address,
                                                                                uint64_t value)
{
    *reinterpret_cast<volatile typename unaligned_t<word_t>::type *> (address) =
        static_cast<word_t> (value);
}

static uint64_t load_plain (uintptr_t address, int width)
{
    switch (width) {
    case 1:
        return word_at<uint8_t> (address);
    case 2:
        return word_at<uint16_t> (address);
    case 4:
        return word_at<uint32_t> (address);
    default:
        return word_at<uint64_t> (address);
    }
}

static void store_plain (uintptr_t address, int width, uint64_t value)
{
    switch (width) {
    case 1:
        return set_word_at<uint8_t> (address, value);
    case 2:
        return set_word_at<uint16_t> (address, value);
    case 4:
        return set_word_at<uint32_t> (address, value);
    default:
        return set_word_at<uint64_t> (address, value);
    }
}

// The number whose bytes in this machine's memory are those of `value` in the board's, big-endian.
static uint64_t swapped_to_host (uint64_t value, int width)
{
    return be64toh (value) >> (__BYTE_ORDER == __BIG_ENDIAN ? 0 : 8 * (8 - width));
}

// Eight bytes are two words for the board, which has no wider ones.
static uint64_t load_register (const register_place_t &place, int width)
{
    if (width < 8) {
        return place.read (width);
    }
    uint64_t high = place.read (4);
    return high << 32 | register_place_t{place.registers, place.offset + 4}.read (4);
}

static void store_register (const register_place_t &place, int width, uint64_t value)
{
    if (width < 8) {
        place.write (width, static_cast<uint32_t> (value));
        return;
    }
    place.write (4, static_cast<uint32_t> (value >> 32));
    register_place_t{place.registers, place.offset + 4}.write (4, static_cast<uint32_t> (value));
}

uint64_t run_t::load (uintptr_t address, int width)
{
    const device_view_t *view = view_of (address, width, PROT_READ);
    if (view == nullptr) {
        return load_plain (address, width);
    }
    int saved_errno = errno; // the program's, which it may change while it runs on
    may_fault = false;
    uint64_t value = load_register (place_in (*view, address), width);
    may_fault = true;
    errno = saved_errno;
    return swapped_to_host (value, width);
}

void run_t::store (uintptr_t address, int width, uint64_t value)
{
    const device_view_t *view = view_of (address, width, PROT_WRITE);
    if (view == nullptr) {
        store_plain (address, width, value);
        return;
    }
    int saved_errno = errno;
    may_fault = false;
    store_register (place_in (*view, address), width, swapped_to_host (value, width));
    may_fault = true;
    errno = saved_errno;
}

// The registers of the board; plain memory may be another thread's too.
bool run_t::is_exclusive (uintptr_t address)
{
    return find_trapped_view (address) != nullptr;
}

// Only one thread runs on; others make their access alone.
bool run_program (ucontext_t &context)
{
    static std::atomic_flag is_running = ATOMIC_FLAG_INIT;
    const bool runs_on = !is_running.test_and_set (std::memory_order_acquire);
    run_t run (context);
    run.is_alone = runs_on;
    run_t *const outer = current;
    volatile int done = 0;
    current = &run;
    if (sigsetjmp (run.start, 0) == 0) {
        while (done < most_instructions && run.since_access < most_without_access &&
               (done == 0 || (runs_on && is_program_code (program_counter (context)))) &&
               carry_out_instruction (context, run)) {
            done = done + 1;
            run.since_access = run.since_access + 1;
        }
    }
    current = outer;
    if (runs_on) {
        is_running.clear (std::memory_order_release);
    }
    return done > 0;
}

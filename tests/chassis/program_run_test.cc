// What one signal carries out: a register access and the program's plain instructions after it.
#include "chassis/trap/access_trap.h"
#include "chassis/trap/instruction.h"
#include "chassis/trap/program_run.h"

#include <endian.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <setjmp.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <vector>

static int num_signals;

extern "C" bool __real__Z11run_programR10ucontext_t (ucontext_t &context);
extern "C" bool __wrap__Z11run_programR10ucontext_t (ucontext_t &context)
{
    num_signals++;
    return __real__Z11run_programR10ucontext_t (context);
}

namespace {

struct log_t final : register_file_t {
    std::vector<uint32_t> offsets;

    uint32_t read (uint32_t offset, int) override
    {
        errno = ENXIO;
        offsets.push_back (offset);
        return offset;
    }
    void write (uint32_t offset, int, uint32_t value) override
    {
        errno = ENXIO;
        offsets.push_back (offset | value << 16);
    }
};

constexpr size_t page_size = 4096;

uint8_t *new_pages (int protection)
{
    return static_cast<uint8_t *> (
        mmap (nullptr, page_size, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

sigjmp_buf after_fault;
const void *fault_address;
uintptr_t fault_stack;

void on_own_fault (int, siginfo_t *info, void *context)
{
    fault_address = info->si_addr;
    fault_stack = stack_end (*static_cast<ucontext_t *> (context));
    siglongjmp (after_fault, 1);
}

volatile sig_atomic_t has_rung;

struct program_run : testing::Test {
    log_t log;
    volatile uint32_t *view = nullptr;

    static void SetUpTestSuite ()
    {
        struct sigaction action = {};
        action.sa_sigaction = on_own_fault;
        action.sa_flags = SA_SIGINFO;
        sigaction (SIGSEGV, &action, nullptr);
        sigaction (SIGBUS, &action, nullptr);
    }
    void SetUp () override
    {
        uint8_t *pages = new_pages (PROT_READ);
        mprotect (pages, page_size, PROT_NONE);
        add_view ({pages, page_size, 0, PROT_READ | PROT_WRITE, &log, true});
        view = reinterpret_cast<uint32_t *> (pages);
        num_signals = 0;
    }
    void TearDown () override
    {
        remove_views (log);
    }
};

// The board changes errno at each, and the program may after one.
TEST_F (program_run, makes_many_accesses_with_one_signal)
{
    log.offsets.reserve (100);
    uint32_t words[20];
    const uint32_t seven = htobe32 (7);
    volatile uint32_t *const registers = view; // a sanitizer may look at the fixture at each use
    int &program_errno = errno;
    program_errno = 0;
    words[0] = registers[0];
    const int after_first = program_errno;
    program_errno = 5;
    for (int i = 1; i < 20; i++) { // without a call, which may go deeper than the first access
        words[i] = registers[i];
        registers[i] = seven;
    }
    EXPECT_EQ (be32toh (words[19]), 76u);
    ASSERT_EQ (log.offsets.size (), 39u);
    EXPECT_EQ (log.offsets[37], 76u);
    EXPECT_EQ (log.offsets[38], 76u | 7 << 16);
    EXPECT_EQ (after_first, 0);
    EXPECT_EQ (program_errno, 5);
    EXPECT_LE (num_signals, 2);
}

// Below the frame in which the access stopped is the signal's own.
__attribute__ ((noinline)) uint32_t sum_below (int depth)
{
    volatile uint32_t words[100];
    words[0] = static_cast<uint32_t> (depth);
    words[50] = 0;
    words[99] = depth > 0 ? sum_below (depth - 1) : 0;
    return words[0] + words[50] + words[99];
}

TEST_F (program_run, leaves_the_stack_of_the_handler_alone)
{
    volatile double number = 0.5;
    uint32_t first = view[1];
    uint32_t sum = sum_below (40);
    EXPECT_EQ (be32toh (first), 4u);
    EXPECT_EQ (sum, 820u);
    EXPECT_EQ (number, 0.5);
}

// Where the program faults in `act`, in whose frame an access is carried out first.
template <typename act_t> const volatile void *fault_of (const act_t &act)
{
    if (sigsetjmp (after_fault, 1) == 0) {
        act ();
    }
    return fault_address;
}

TEST_F (program_run, returns_to_the_program_at_its_own_fault)
{
    auto *closed = reinterpret_cast<volatile uint32_t *> (new_pages (PROT_NONE));
    auto *constant = reinterpret_cast<volatile uint32_t *> (new_pages (PROT_READ));
    volatile uint32_t got = 0;
    volatile uintptr_t frame = 0;
    auto read_closed = [&] {
        frame = reinterpret_cast<uintptr_t> (__builtin_frame_address (0));
        got = view[5];
        got = got + closed[3];
    };
    auto write_constant = [&] {
        got = view[6];
        constant[4] = 1;
        got = 0;
    };
    EXPECT_EQ (fault_of (read_closed), closed + 3);
    EXPECT_EQ (be32toh (got), 20u);
    EXPECT_LT (frame - fault_stack, 2048u) << "the program's, not that of its handler";
    EXPECT_EQ (fault_of (write_constant), constant + 4);
    EXPECT_EQ (be32toh (got), 24u);
    EXPECT_EQ (be32toh (view[7]), 28u) << "the next one is carried out again";
#ifdef __x86_64__ // the target's emulator gives these faults other addresses
    FILE *empty = tmpfile ();
    auto *page = new_pages (PROT_READ | PROT_WRITE); // not to be executed
    auto *bytes = static_cast<volatile uint8_t *> (
        mmap (nullptr, page_size, PROT_READ, MAP_SHARED, fileno (empty), 0));
    auto jump = [&] { reinterpret_cast<void (*) ()> (page + be32toh (view[2])) (); };
    auto read_past_end = [&] { got = view[3] + bytes[9]; };
    EXPECT_EQ (fault_of (jump), page + 8);
    EXPECT_EQ (fault_of (read_past_end), bytes + 9);
    fclose (empty);
#endif
}

TEST_F (program_run, a_signal_ends_a_wait_for_it)
{
    signal (SIGALRM, [] (int) { has_rung = 1; });
    const itimerval soon = {{0, 0}, {0, 20000}};
    setitimer (ITIMER_REAL, &soon, nullptr);
    uint32_t reads = 0;
    while (!has_rung && reads < 10000000) { // without a call, which would end the run
        reads += *view + 1;
    }
    EXPECT_TRUE (has_rung);
}

using loader_t = uint32_t (volatile uint32_t *);

// Without the check that reads what is around the beginning of a function.
__attribute__ ((no_sanitize ("undefined"))) uint32_t call (uint8_t *code, volatile uint32_t *from)
{
    return reinterpret_cast<loader_t *> (code) (from);
}

TEST_F (program_run, takes_an_access_that_is_the_last_of_memory)
{
#ifdef __x86_64__
    const uint8_t code[] = {0x8B, 0x07, 0xC3}; // mov (%rdi), %eax; ret
#else
    const uint8_t code[] = {0x80, 0x63, 0, 0, 0x4E, 0x80, 0, 0x20}; // lwz r3, 0(r3); blr
#endif
    auto *pages = static_cast<uint8_t *> (
        mmap (nullptr, 2 * page_size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect (pages, page_size, PROT_READ | PROT_WRITE | PROT_EXEC);
    uint8_t *place = pages + page_size - sizeof (code);
    memcpy (place, code, sizeof (code));
    __builtin___clear_cache (reinterpret_cast<char *> (place),
                             reinterpret_cast<char *> (place + sizeof (code)));
    EXPECT_EQ (be32toh (call (place, view + 4)), 16u);
}

#ifdef __x86_64__
TEST_F (program_run, reads_two_registers_at_once)
{
    EXPECT_EQ (be64toh (*reinterpret_cast<volatile uint64_t *> (view + 4)), 16ull << 32 | 20);
    EXPECT_EQ (log.offsets, (std::vector<uint32_t>{16, 20}));
}
#endif

} // namespace

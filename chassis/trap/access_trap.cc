#include "chassis/trap/access_trap.h"

#include "chassis/trap/access_decode.h"

#include <algorithm>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <vector>

// Deliberately never destroyed: the program may access its device while it exits.
static std::vector<trapped_view_t> &views ()
{
    static auto *all = new std::vector<trapped_view_t>;
    return *all;
}

static struct sigaction previous_action;

static const trapped_view_t *find_view (const uint8_t *address)
{
    for (const trapped_view_t &view : views ()) {
        if (address >= view.begin && address < view.begin + view.length) {
            return &view;
        }
    }
    return nullptr;
}

// Without a handler of its own the program gets what it would have got: the access is done again
// under the default action.
static void forward (int signal, siginfo_t *info, void *context)
{
    if (previous_action.sa_flags & SA_SIGINFO) {
        previous_action.sa_sigaction (signal, info, context);
    } else if (previous_action.sa_handler != SIG_DFL && previous_action.sa_handler != SIG_IGN) {
        previous_action.sa_handler (signal);
    } else {
        sigaction (signal, &previous_action, nullptr);
    }
}

[[noreturn]] static void give_up (const ucontext_t &context, uint32_t offset)
{
    fprintf (stderr,
             "q5_chassis: the access to the internal memory map at offset 0x%05X is made by an "
             "instruction that the emulated board does not know: %s\n",
             static_cast<unsigned> (offset), describe_instruction (context).c_str ());
    abort ();
}

// A jump into the view is no access.
static bool is_permitted (const trapped_view_t &view, const ucontext_t &context)
{
    if (find_view (reinterpret_cast<const uint8_t *> (program_counter (context))) != nullptr) {
        return false;
    }
    return view.protection & (fault_was_store (context) ? PROT_WRITE : PROT_READ);
}

static void on_fault (int signal, siginfo_t *info, void *raw_context)
{
    auto *address = static_cast<uint8_t *> (info->si_addr);
    auto &context = *static_cast<ucontext_t *> (raw_context);
    const trapped_view_t *view = find_view (address);
    if (info->si_code <= 0 || view == nullptr || !is_permitted (*view, context)) {
        forward (signal, info, raw_context);
        return;
    }
    int saved_errno = errno;
    uint32_t offset = view->offset + static_cast<uint32_t> (address - view->begin);
    const register_place_t place{*view->registers, offset};
    if (!carry_out_access (context, reinterpret_cast<uintptr_t> (address), place)) {
        give_up (context, offset);
    }
    errno = saved_errno;
}

static bool install_handler ()
{
    struct sigaction action = {};
    action.sa_sigaction = on_fault;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigfillset (&action.sa_mask); // a signal comes before or after an access
    sigdelset (&action.sa_mask, SIGSEGV);
    return sigaction (SIGSEGV, &action, &previous_action) == 0;
}

void trap_view (const trapped_view_t &view)
{
    static const bool installed = install_handler ();
    if (!installed) {
        perror ("q5_chassis: SIGSEGV");
        abort ();
    }
    views ().push_back (view);
}

void forget_trapped_views (const register_file_t &registers)
{
    auto belongs = [&] (const trapped_view_t &view) { return view.registers == &registers; };
    auto &all = views ();
    all.erase (std::remove_if (all.begin (), all.end (), belongs), all.end ());
}

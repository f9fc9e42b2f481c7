#include "chassis/trap/fault_handler.h"

#include "chassis/trap/access_trap.h"
#include "chassis/trap/instruction.h"
#include "chassis/trap/program_run.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>

static struct sigaction previous_segv, previous_bus;

// Without a handler of its own the program gets what it would have got: the access is made again
// under the default action, and a signal that was sent is raised again.
static void forward (int signal, siginfo_t *info, void *context)
{
    const struct sigaction &previous = signal == SIGBUS ? previous_bus : previous_segv;
    bool was_sent = info->si_code <= 0;
    if (previous.sa_flags & SA_SIGINFO) {
        previous.sa_sigaction (signal, info, context);
    } else if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
        previous.sa_handler (signal);
    } else if (!was_sent || previous.sa_handler == SIG_DFL) {
        sigaction (signal, &previous, nullptr);
        if (was_sent) {
            raise (signal);
        }
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

// A jump into the view is not an access.
static bool is_permitted (const device_view_t &view, const ucontext_t &context)
{
    return find_trapped_view (program_counter (context)) == nullptr &&
           view.protection & (fault_was_store (context) ? PROT_WRITE : PROT_READ);
}

static void on_fault (int signal, siginfo_t *info, void *raw_context)
{
    if (info->si_code > 0) {
        return_to_run ();
    }
    auto &context = *static_cast<ucontext_t *> (raw_context);
    const auto address = reinterpret_cast<uintptr_t> (info->si_addr);
    const device_view_t *view = find_trapped_view (address);
    if (info->si_code <= 0 || view == nullptr || !is_permitted (*view, context)) {
        forward (signal, info, raw_context);
    } else if (!run_program (context)) {
        const auto begin = reinterpret_cast<uintptr_t> (view->begin);
        give_up (context, view->offset + static_cast<uint32_t> (address - begin));
    }
}

static void install (int signal, struct sigaction &previous)
{
    struct sigaction action = {};
    action.sa_sigaction = on_fault;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigfillset (&action.sa_mask); // a signal comes before or after an access
    sigdelset (&action.sa_mask, SIGSEGV);
    sigdelset (&action.sa_mask, SIGBUS);
    if (sigaction (signal, &action, &previous) != 0) {
        perror ("q5_chassis: cannot notice accesses to registers");
        abort ();
    }
}

void install_fault_handler ()
{
    static const bool is_installed = [] {
        install (SIGSEGV, previous_segv);
        install (SIGBUS, previous_bus);
        return true;
    }();
    static_cast<void> (is_installed);
    find_program_code ();
}

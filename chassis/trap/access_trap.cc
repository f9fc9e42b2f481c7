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
static std::vector<device_view_t> &views ()
{
    static auto *all = new std::vector<device_view_t>;
    return *all;
}

static struct sigaction previous_action;

constexpr size_t page_size = 4096;

static const device_view_t *find_view (const uint8_t *address)
{
    for (const device_view_t &view : views ()) {
        if (view.is_trapped && address >= view.begin && address < view.begin + view.length) {
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
static bool is_permitted (const device_view_t &view, const ucontext_t &context)
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
    const device_view_t *view = find_view (address);
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

void add_view (const device_view_t &view)
{
    static const bool installed = install_handler ();
    if (!installed) {
        perror ("q5_chassis: SIGSEGV");
        abort ();
    }
    forget_pages (view.begin, view.length);
    views ().push_back (view);
}

void remove_views (const register_file_t &registers)
{
    auto is_kept = [&] (const device_view_t &view) { return view.registers != &registers; };
    auto &all = views ();
    auto gone = std::stable_partition (all.begin (), all.end (), is_kept);
    std::vector<device_view_t> views_gone (gone, all.end ());
    all.erase (gone, all.end ());
    for (const device_view_t &view : views_gone) {
        munmap (view.begin, view.length);
    }
}

// Pages, as system calls name them.

namespace {

struct pages_t {
    uint8_t *begin, *end;

    pages_t (const void *first, size_t length)
        : begin (const_cast<uint8_t *> (static_cast<const uint8_t *> (first))),
          end (begin + (length + page_size - 1) / page_size * page_size)
    {}
    bool meet (const device_view_t &view) const
    {
        return begin < view.begin + view.length && view.begin < end;
    }
};

} // namespace

bool is_viewed (const void *begin, size_t length)
{
    const pages_t pages (begin, length);
    auto &all = views ();
    return std::any_of (all.begin (), all.end (),
                        [&] (const device_view_t &view) { return pages.meet (view); });
}

bool is_trapped (const void *begin, size_t length)
{
    const pages_t pages (begin, length);
    auto &all = views ();
    return std::any_of (all.begin (), all.end (), [&] (const device_view_t &view) {
        return view.is_trapped && pages.meet (view);
    });
}

// The part of a view between two of its addresses.
static device_view_t part_of (device_view_t view, uint8_t *begin, uint8_t *end)
{
    view.offset += static_cast<uint32_t> (begin - view.begin);
    view.begin = begin;
    view.length = static_cast<size_t> (end - begin);
    return view;
}

// Takes the pages out of the views; what lies before and behind them stays.
void forget_pages (const void *begin, size_t length)
{
    const pages_t pages (begin, length);
    std::vector<device_view_t> left;
    for (const device_view_t &view : views ()) {
        if (!pages.meet (view)) {
            left.push_back (view);
            continue;
        }
        if (view.begin < pages.begin) {
            left.push_back (part_of (view, view.begin, pages.begin));
        }
        if (pages.end < view.begin + view.length) {
            left.push_back (part_of (view, pages.end, view.begin + view.length));
        }
    }
    views ().swap (left);
}

bool protect_pages (const void *begin, size_t length, int protection)
{
    const pages_t pages (begin, length);
    std::vector<device_view_t> parts;
    for (uint8_t *at = pages.begin; at < pages.end;
         at = parts.back ().begin + parts.back ().length) {
        const device_view_t *view = find_view (at);
        bool is_granted = view && !(protection & ~view->granted & (PROT_READ | PROT_WRITE));
        if (!is_granted) {
            errno = view ? EACCES : EINVAL;
            return false;
        }
        parts.push_back (part_of (*view, at, std::min (pages.end, view->begin + view->length)));
        parts.back ().protection = protection;
    }
    std::for_each (parts.begin (), parts.end (), add_view);
    return true;
}

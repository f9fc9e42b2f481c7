#include "chassis/trap/access_trap.h"

#include "chassis/trap/fault_handler.h"

#include <algorithm>
#include <atomic>
#include <errno.h>
#include <sys/mman.h>
#include <vector>

// Deliberately never destroyed: the program may access its device while it exits.
static std::vector<device_view_t> &views ()
{
    static auto *all = new std::vector<device_view_t>;
    return *all;
}

constexpr size_t page_size = 4096;

namespace {

// While one lives the views cannot be looked at: the program may run on through this very code.
struct change_t {
    static inline std::atomic<int> number{0};

    change_t ()
    {
        number.store (number.load () + 1, std::memory_order_release);
    }
    ~change_t ()
    {
        number.store (number.load () - 1, std::memory_order_release);
    }
};

} // namespace

const device_view_t *find_trapped_view (uintptr_t address)
{
    if (change_t::number.load (std::memory_order_acquire) != 0) {
        return nullptr;
    }
    for (const device_view_t &view : views ()) {
        auto begin = reinterpret_cast<uintptr_t> (view.begin);
        if (view.is_trapped && address >= begin && address - begin < view.length) {
            return &view;
        }
    }
    return nullptr;
}

void add_view (const device_view_t &view)
{
    install_fault_handler ();
    forget_pages (view.begin, view.length);
    change_t change;
    views ().push_back (view);
}

void remove_views (const register_file_t &registers)
{
    change_t change;
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

// Takes the pages out of the views; what is before and after them stays.
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
    change_t change;
    views ().swap (left);
}

bool protect_pages (const void *begin, size_t length, int protection)
{
    const pages_t pages (begin, length);
    std::vector<device_view_t> parts;
    for (uint8_t *at = pages.begin; at < pages.end;
         at = parts.back ().begin + parts.back ().length) {
        const device_view_t *view = find_trapped_view (reinterpret_cast<uintptr_t> (at));
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

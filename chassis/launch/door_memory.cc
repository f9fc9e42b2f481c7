// Views of the board's memory: mmap of /dev/mem, and what may become of such a view.
#include "chassis/bus/one_line.h"
#include "chassis/launch/device_file.h"
#include "chassis/launch/door_entry.h"
#include "chassis/trap/access_trap.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/mman.h>
#include <unistd.h>

constexpr size_t page_size = 4096;

static void *fail_to_map (int error)
{
    errno = error;
    return MAP_FAILED;
}

static void *refuse_to_map (const char *why)
{
    complain (std::string ("mmap: refused; ") + why);
    return fail_to_map (EINVAL);
}

// A shared writable mapping needs a descriptor open for both, as with any file.
static bool may_map (int opened, int protection, int flags)
{
    int mode = opened & O_ACCMODE;
    bool writes_through = (protection & PROT_WRITE) && (flags & MAP_TYPE) != MAP_PRIVATE;
    return mode != O_WRONLY && (!writes_through || mode == O_RDWR);
}

static void *map_device (void *where, size_t length, int protection, int flags,
                         const device_file_t &file, uint64_t phys)
{
    if (file.device != device_t::mem) {
        return fail_to_map (ENODEV);
    }
    if (!may_map (file.flags, protection, flags)) {
        return fail_to_map (EACCES);
    }
    size_t whole = (length + page_size - 1) / page_size * page_size;
    if (whole == 0 || phys % page_size != 0) {
        return fail_to_map (EINVAL);
    }
    if ((flags & MAP_TYPE) == MAP_PRIVATE && (protection & PROT_WRITE)) {
        return refuse_to_map ("in a private mapping no write would reach the board");
    }
    void *view = attached_chassis ()->map (where, whole, protection, flags, phys);
    if (view == MAP_FAILED && errno == EBADF) {
        complain ("the program closed a descriptor of the emulated board, which is not its own; "
                  "let it close only those that it opened");
        _exit (2);
    }
    return view;
}

// A view moves only with its trap, which stays.
static bool refuse_to_change (const char *call, const void *where, size_t length)
{
    if (!is_viewed (where, std::max<size_t> (length, 1))) { // no length: a second mapping
        return false;
    }
    complain (std::string (call) + " of a view of /dev/mem: refused; unmap it and map anew");
    errno = EINVAL;
    return true;
}

template <typename offset_t> using mmap_t = void *(void *, size_t, int, int, int, offset_t);

// `phys`: the offset as the kernel understands it.
template <typename offset_t>
static void *map_any (mmap_t<offset_t> *next_mmap, void *where, size_t length, int protection,
                      int flags, int fd, offset_t offset, uint64_t phys)
{
    if (!(flags & MAP_ANONYMOUS)) {
        std::optional<device_file_t> file = device_file_of (fd);
        if (file && chassis_for_open () != nullptr) {
            return map_device (where, length, protection, flags, *file, phys);
        }
        if (is_real_memory (fd) && chassis_for_open () != nullptr) {
            return refuse_to_map ("the descriptor leads to the memory of this machine");
        }
    }
    void *view = next_mmap (where, length, protection, flags, fd, offset);
    if (view != MAP_FAILED && (flags & MAP_FIXED)) {
        forget_pages (view, length);
    }
    return view;
}

extern "C" {
void *door_mmap (void *where, size_t length, int protection, int flags, int fd, long offset)
    Q5_ENTRY ("mmap");
void *door_mmap64 (void *where, size_t length, int protection, int flags, int fd, int64_t offset)
    Q5_ENTRY ("mmap64");
int door_munmap (void *where, size_t length) Q5_ENTRY ("munmap");
int door_mprotect (void *where, size_t length, int protection) Q5_ENTRY ("mprotect");
int door_pkey_mprotect (void *where, size_t length, int protection, int key)
    Q5_ENTRY ("pkey_mprotect");
void *door_mremap (void *where, size_t length, size_t new_length, int flags, ...)
    Q5_ENTRY ("mremap");
}

void *door_mmap (void *where, size_t length, int protection, int flags, int fd, long offset)
{
    static auto *next_one = next<mmap_t<long>> ("mmap");
    auto phys = static_cast<unsigned long> (offset); // 2 GiB and above: negative in 32 bits
    return map_any (next_one, where, length, protection, flags, fd, offset, phys);
}

void *door_mmap64 (void *where, size_t length, int protection, int flags, int fd, int64_t offset)
{
    static auto *next_one = next<mmap_t<int64_t>> ("mmap64");
    auto phys = static_cast<uint64_t> (offset);
    return map_any (next_one, where, length, protection, flags, fd, offset, phys);
}

int door_munmap (void *where, size_t length)
{
    static auto *next_one = next<int (void *, size_t)> ("munmap");
    int result = next_one (where, length);
    if (result == 0) {
        forget_pages (where, length);
    }
    return result;
}

// The pages of a trapped view stay closed: the trap keeps what the program may do there.
int door_mprotect (void *where, size_t length, int protection)
{
    static auto *next_one = next<int (void *, size_t, int)> ("mprotect");
    if (!is_trapped (where, length)) {
        return next_one (where, length, protection);
    }
    if (protect_pages (where, length, protection)) {
        return 0;
    }
    int error = errno;
    complain ("mprotect of a view of /dev/mem: refused; only pages of views, and no more than "
              "they were mapped with");
    errno = error;
    return -1;
}

int door_pkey_mprotect (void *where, size_t length, int protection, int key)
{
    static auto *next_one = next<int (void *, size_t, int, int)> ("pkey_mprotect");
    bool refused = refuse_to_change ("pkey_mprotect", where, length);
    return refused ? -1 : next_one (where, length, protection, key);
}

void *door_mremap (void *where, size_t length, size_t new_length, int flags, ...)
{
    static auto *next_one = next<void *(void *, size_t, size_t, int, ...)> ("mremap");
    Q5_OPTIONAL_ARGUMENT (void *, new_place, flags);
    if (refuse_to_change ("mremap", where, length)) {
        return MAP_FAILED;
    }
    void *moved = next_one (where, length, new_length, flags, new_place);
    if (moved != MAP_FAILED && (flags & MREMAP_FIXED)) {
        forget_pages (moved, new_length);
    }
    return moved;
}

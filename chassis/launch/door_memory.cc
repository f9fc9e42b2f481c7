// Views of the board's memory: mmap of /dev/mem, and what may become of such a view.
#include "chassis/bus/one_line.h"
#include "chassis/launch/device_file.h"
#include "chassis/launch/door_handlers.h"
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

// A shared writable mapping needs a descriptor open for both, as with any file.
static bool may_map (int opened, int protection, int flags)
{
    int mode = opened & O_ACCMODE;
    bool writes_through = (protection & PROT_WRITE) && (flags & MAP_TYPE) != MAP_PRIVATE;
    return mode != O_WRONLY && (!writes_through || mode == O_RDWR);
}

static void *map_board (void *where, size_t length, int protection, int flags,
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
        complain ("mmap: refused; in a private mapping no write would reach the board");
        return fail_to_map (EINVAL);
    }
    bool uncached = file.flags & O_DSYNC; // the kernel looks at this bit of O_SYNC
    void *view = attached_chassis ()->map (where, whole, protection, flags, phys, uncached);
    if (view == MAP_FAILED && errno == EBADF) {
        complain ("the program closed a descriptor of the emulated board, which is not its own; "
                  "let it close only those that it opened");
        _exit (2);
    }
    return view;
}

void *map_device (void *where, size_t length, int protection, int flags, int fd, uint64_t phys)
{
    std::optional<device_file_t> file = device_file_of (fd);
    if (!file || chassis_for_open () == nullptr) {
        return nullptr;
    }
    return map_board (where, length, protection, flags, *file, phys);
}

void forget_view (void *where, size_t length)
{
    forget_pages (where, length);
}

int unmap_any (void *where, size_t length, int (*real) (void *, size_t))
{
    int result = real (where, length);
    if (result == 0) {
        forget_pages (where, length);
    }
    return result;
}

// The pages of a trapped view stay closed: the trap keeps what the program may do there.
int protect_any (void *where, size_t length, int protection, int (*real) (void *, size_t, int))
{
    if (!is_trapped (where, length)) {
        return real (where, length, protection);
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

// A view does not move, because its trap stays. No length asks for a second mapping.
void *move_any (void *where, size_t length, size_t new_length, int flags, void *place,
                void *(*real) (void *, size_t, size_t, int, void *))
{
    if (is_viewed (where, std::max<size_t> (length, 1))) {
        complain ("mremap of a view of /dev/mem: refused; unmap it and map it again");
        return fail_to_map (EINVAL);
    }
    void *moved = real (where, length, new_length, flags, place);
    if (moved != MAP_FAILED && (flags & MREMAP_FIXED)) {
        forget_pages (moved, new_length);
    }
    return moved;
}

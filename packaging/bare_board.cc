// Preloaded by packaging/size: a board of plain memory on which the daemon starts and waits, so
// that what it costs can be measured without the weight of an emulation.
#include <dlfcn.h>
#include <fcntl.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

int open (const char *path, int flags, ...)
{
    bool device = strcmp (path, "/dev/scanp") == 0 || strcmp (path, "/dev/mem") == 0;
    return syscall (SYS_openat, AT_FDCWD, device ? "/dev/zero" : path, flags, 0);
}

int ioctl (int, unsigned long request, ...) noexcept
{
    switch (request) {
    case _IO ('s', 1):
        return 0x01F40000;
    case _IO ('s', 2):
        return 0x1000;
    default:
        return 0;
    }
}

void *mmap (void *address, size_t length, int protection, int flags, int, off_t) noexcept
{
    auto map = reinterpret_cast<void *(*)(void *, size_t, int, int, int, off_t)> (
        dlsym (RTLD_NEXT, "mmap"));
    return map (address, length, protection, flags | MAP_ANONYMOUS, -1, 0);
}

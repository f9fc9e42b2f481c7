#include "tests/wire.h"

#include <errno.h>

wire_t wire;

extern "C" {
ssize_t __real_read (int fd, void *bytes, size_t size);
ssize_t __real_write (int fd, const void *bytes, size_t size);

ssize_t __wrap_read (int fd, void *bytes, size_t size)
{
    if (fd != wire_fd) {
        return __real_read (fd, bytes, size);
    }
    size = std::min ({size, wire.chunk, wire.sent.size () - wire.num_read});
    std::copy_n (wire.sent.begin () + wire.num_read, size, static_cast<uint8_t *> (bytes));
    wire.num_read += size;
    return size;
}

ssize_t __wrap_write (int fd, const void *bytes, size_t size)
{
    if (fd != wire_fd) {
        return __real_write (fd, bytes, size);
    }
    size = std::min ({size, wire.chunk, wire.room - wire.received.size ()});
    std::copy_n (static_cast<const uint8_t *> (bytes), size, std::back_inserter (wire.received));
    errno = EPIPE;
    return size > 0 ? size : -1;
}
}

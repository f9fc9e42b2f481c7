#include "chassis/trap/own_descriptor.h"

#include <fcntl.h>
#include <string>
#include <unistd.h>

constexpr int first_number = 900; // below 1024, the usual limit

int moved_out_of_the_way (int fd)
{
    if (fd < 0) {
        return fd; // errno still says why there is none
    }
    int moved = fcntl (fd, F_DUPFD_CLOEXEC, first_number);
    if (moved < 0) {
        return fd;
    }
    close (fd);
    return moved;
}

bool is_memory_file (int fd, const char *name)
{
    char target[64];
    ssize_t length =
        readlink (("/proc/self/fd/" + std::to_string (fd)).c_str (), target, sizeof (target));
    std::string expected = std::string ("/memfd:") + name + " (deleted)";
    return length > 0 && expected == std::string (target, static_cast<size_t> (length));
}

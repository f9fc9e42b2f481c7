// What else a program may do with a descriptor of a device.
#include "chassis/bus/one_line.h"
#include "chassis/launch/device_file.h"
#include "chassis/launch/door_entry.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/types.h>
#include <sys/uio.h>

// The system refuses all reading and writing of such a descriptor, but not as the driver does: that
// has no such operation. /dev/mem of a board has: programs are told that they find no board here.
static ssize_t failed (const char *call, int fd, int error)
{
    if (errno != EBADF) {
        return -1;
    }
    std::optional<device_file_t> file = device_file_of (fd);
    errno = file ? error : EBADF;
    if (file && file->device == device_t::mem) {
        complain (std::string (call) + " of /dev/mem: refused; the emulated board can be mapped");
        errno = error;
    }
    return -1;
}

// Hands over to the C library and looks only at failures. Weak: a program that the door is linked
// into may have such a function of its own.
#define Q5_WITHOUT_DEVICES(result, name, error, parameters, arguments)                             \
    extern "C" __attribute__ ((weak)) result door_##name parameters Q5_ENTRY (#name);              \
    result door_##name parameters                                                                  \
    {                                                                                              \
        static auto *next_one = next<result parameters> (#name);                                   \
        result done = next_one arguments;                                                          \
        return done >= 0 ? done : static_cast<result> (failed (#name, fd, error));                 \
    }

Q5_WITHOUT_DEVICES (ssize_t, read, EINVAL, (int fd, void *to, size_t size), (fd, to, size))
Q5_WITHOUT_DEVICES (ssize_t, write, EINVAL, (int fd, const void *from, size_t size),
                    (fd, from, size))
Q5_WITHOUT_DEVICES (ssize_t, readv, EINVAL, (int fd, const iovec *to, int count), (fd, to, count))
Q5_WITHOUT_DEVICES (ssize_t, writev, EINVAL, (int fd, const iovec *from, int count),
                    (fd, from, count))
Q5_WITHOUT_DEVICES (ssize_t, pread, EINVAL, (int fd, void *to, size_t size, long at),
                    (fd, to, size, at))
Q5_WITHOUT_DEVICES (ssize_t, pread64, EINVAL, (int fd, void *to, size_t size, int64_t at),
                    (fd, to, size, at))
Q5_WITHOUT_DEVICES (ssize_t, pwrite, EINVAL, (int fd, const void *from, size_t size, long at),
                    (fd, from, size, at))
Q5_WITHOUT_DEVICES (ssize_t, pwrite64, EINVAL, (int fd, const void *from, size_t size, int64_t at),
                    (fd, from, size, at))
Q5_WITHOUT_DEVICES (ssize_t, preadv, EINVAL, (int fd, const iovec *to, int count, long at),
                    (fd, to, count, at))
Q5_WITHOUT_DEVICES (ssize_t, preadv64, EINVAL, (int fd, const iovec *to, int count, int64_t at),
                    (fd, to, count, at))
Q5_WITHOUT_DEVICES (ssize_t, pwritev, EINVAL, (int fd, const iovec *from, int count, long at),
                    (fd, from, count, at))
Q5_WITHOUT_DEVICES (ssize_t, pwritev64, EINVAL, (int fd, const iovec *from, int count, int64_t at),
                    (fd, from, count, at))
Q5_WITHOUT_DEVICES (ssize_t, __read_chk, EINVAL, (int fd, void *to, size_t size, size_t room),
                    (fd, to, size, room))
Q5_WITHOUT_DEVICES (long, lseek, ESPIPE, (int fd, long by, int from), (fd, by, from))
Q5_WITHOUT_DEVICES (int64_t, lseek64, ESPIPE, (int fd, int64_t by, int from), (fd, by, from))
Q5_WITHOUT_DEVICES (int, ftruncate, EINVAL, (int fd, long size), (fd, size))
Q5_WITHOUT_DEVICES (int, ftruncate64, EINVAL, (int fd, int64_t size), (fd, size))

extern "C" {
int door_ioctl (int fd, unsigned long number, ...) Q5_ENTRY ("ioctl");
int door_fcntl (int fd, int command, ...) Q5_ENTRY ("fcntl");
int door_fcntl64 (int fd, int command, ...) Q5_ENTRY ("fcntl64");
#if __SIZEOF_POINTER__ == 4
int door_ioctl_time64 (int fd, unsigned long number, ...) Q5_ENTRY ("__ioctl_time64");
int door_fcntl_time64 (int fd, int command, ...) Q5_ENTRY ("__fcntl_time64");
#endif
}

int door_ioctl (int fd, unsigned long number, ...)
{
    static auto *next_ioctl = next<int (int, unsigned long, ...)> ("ioctl");
    Q5_OPTIONAL_ARGUMENT (uintptr_t, argument, number);
    std::optional<device_file_t> file = device_file_of (fd);
    chassis_t *chassis = file ? chassis_for_open () : nullptr; // the descriptor may be inherited
    if (chassis == nullptr) {
        return next_ioctl (fd, number, argument);
    }
    std::optional<int32_t> answer;
    if (file->device == device_t::scanp) {
        answer = chassis->driver_request (static_cast<uint32_t> (number),
                                          static_cast<uint32_t> (argument));
    }
    if (!answer) {
        errno = ENOTTY;
    }
    return answer.value_or (-1);
}

// The flags are those that the program opened with, not those of the file behind.
static int fcntl_result (int fd, int command, int result)
{
    if (result < 0) {
        return static_cast<int> (failed ("fcntl", fd, EINVAL));
    }
    if (command != F_GETFL || !(result & O_PATH)) {
        return result;
    }
    std::optional<device_file_t> file = device_file_of (fd);
    return file ? file->flags : result;
}

using fcntl_t = int (int, int, ...);

int door_fcntl (int fd, int command, ...)
{
    static auto *next_one = next<fcntl_t> ("fcntl");
    Q5_OPTIONAL_ARGUMENT (uintptr_t, argument, command);
    return fcntl_result (fd, command, next_one (fd, command, argument));
}

int door_fcntl64 (int fd, int command, ...)
{
    static auto *next_one = next<fcntl_t> ("fcntl64");
    Q5_OPTIONAL_ARGUMENT (uintptr_t, argument, command);
    return fcntl_result (fd, command, next_one (fd, command, argument));
}

#if __SIZEOF_POINTER__ == 4
int door_ioctl_time64 (int fd, unsigned long number, ...)
{
    Q5_OPTIONAL_ARGUMENT (uintptr_t, argument, number);
    return door_ioctl (fd, number, argument);
}

int door_fcntl_time64 (int fd, int command, ...)
{
    Q5_OPTIONAL_ARGUMENT (uintptr_t, argument, command);
    return door_fcntl64 (fd, command, argument);
}
#endif

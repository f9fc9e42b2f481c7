// The table of all calls of the C library that the door answers: the name, and what becomes of the
// call. Beside the plain names it has those that a compiler puts in their place for large files,
// 64-bit times and checked buffers (_FORTIFY_SOURCE).
//
// Raw system calls and other functions pass; real_memory.h keeps them away from this machine's
// memory.
#include "chassis/launch/door_handlers.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>

// The name is given to the assembler alone, because the C library's headers have declarations, and
// with large files other names, of their own for it. `real` is the function that the program would
// have got without this one. An optional argument is read and passed on whether or not it is there.
#define Q5_CALL_AS(binding, result, name, parameters, action)                                      \
    extern "C" __attribute__ ((binding, visibility ("default")))                                   \
    result door_##name parameters asm(#name);                                                      \
    result door_##name parameters                                                                  \
    {                                                                                              \
        using real_t = result parameters;                                                          \
        [[maybe_unused]] static auto *real =                                                       \
            reinterpret_cast<real_t *> (dlsym (RTLD_NEXT, #name));                                 \
        return action;                                                                             \
    }
#define Q5_CALL(...) Q5_CALL_AS (used, __VA_ARGS__)

// Opening: a device is the board's.

constexpr int LARGE = O_LARGEFILE;
using text_t = const char *;

Q5_CALL (int, open, (text_t path, int flags, int mode), open_any (AT_FDCWD, path, flags, mode))
Q5_CALL (int, open64, (text_t path, int flags, int mode),
         open_any (AT_FDCWD, path, flags | LARGE, mode))
Q5_CALL (int, __open_2, (text_t path, int flags), open_any (AT_FDCWD, path, flags, 0))
Q5_CALL (int, __open64_2, (text_t path, int flags), open_any (AT_FDCWD, path, flags | LARGE, 0))
Q5_CALL (int, openat, (int at, text_t path, int flags, int mode), open_any (at, path, flags, mode))
Q5_CALL (int, openat64, (int at, text_t path, int flags, int mode),
         open_any (at, path, flags | LARGE, mode))
Q5_CALL (int, __openat_2, (int at, text_t path, int flags), open_any (at, path, flags, 0))
Q5_CALL (int, __openat64_2, (int at, text_t path, int flags), open_any (at, path, flags | LARGE, 0))

// Requests to the driver: the board answers them.

Q5_CALL (int, ioctl, (int fd, unsigned long number, uintptr_t argument),
         device_request (fd, number, argument, real))
Q5_CALL (int, __ioctl_time64, (int fd, unsigned long number, uintptr_t argument),
         device_request (fd, number, argument, real))

// The flags of a descriptor are those that the program opened it with.

#define Q5_FCNTL(name)                                                                             \
    Q5_CALL (int, name, (int fd, int command, uintptr_t argument),                                 \
             descriptor_flags (fd, command, real (fd, command, argument)))

Q5_FCNTL (fcntl)
Q5_FCNTL (fcntl64)
Q5_FCNTL (__fcntl_time64)

// Reading, writing, seeking: a device has none. Weak: a test that the door is linked into may have
// such a function itself.

#define Q5_WITHOUT_DEVICES(result, name, error, parameters, arguments)                             \
    Q5_CALL_AS (weak, result, name, parameters,                                                    \
                static_cast<result> (without_devices (#name, fd, error, real arguments)))

Q5_WITHOUT_DEVICES (long, read, EINVAL, (int fd, void *to, size_t size), (fd, to, size))
Q5_WITHOUT_DEVICES (long, __read_chk, EINVAL, (int fd, void *to, size_t size, size_t space),
                    (fd, to, size, space))
Q5_WITHOUT_DEVICES (long, pread, EINVAL, (int fd, void *to, size_t size, long at),
                    (fd, to, size, at))
Q5_WITHOUT_DEVICES (long, pread64, EINVAL, (int fd, void *to, size_t size, int64_t at),
                    (fd, to, size, at))
Q5_WITHOUT_DEVICES (long, __pread_chk, EINVAL,
                    (int fd, void *to, size_t size, long at, size_t space),
                    (fd, to, size, at, space))
Q5_WITHOUT_DEVICES (long, __pread64_chk, EINVAL,
                    (int fd, void *to, size_t size, int64_t at, size_t space),
                    (fd, to, size, at, space))
Q5_WITHOUT_DEVICES (long, write, EINVAL, (int fd, const void *from, size_t size), (fd, from, size))
Q5_WITHOUT_DEVICES (long, pwrite, EINVAL, (int fd, const void *from, size_t size, long at),
                    (fd, from, size, at))
Q5_WITHOUT_DEVICES (long, pwrite64, EINVAL, (int fd, const void *from, size_t size, int64_t at),
                    (fd, from, size, at))
Q5_WITHOUT_DEVICES (long, lseek, ESPIPE, (int fd, long by, int from), (fd, by, from))
Q5_WITHOUT_DEVICES (int64_t, lseek64, ESPIPE, (int fd, int64_t by, int from), (fd, by, from))

// Mapping: of /dev/mem it gives views of the board. Offsets of 2 GiB and more are negative in 32
// bits.

Q5_CALL (void *, mmap, (void *where, size_t length, int protection, int flags, int fd, long offset),
         map_any (where, length, protection, flags, fd, static_cast<unsigned long> (offset),
                  [=] { return real (where, length, protection, flags, fd, offset); }))
Q5_CALL (void *, mmap64,
         (void *where, size_t length, int protection, int flags, int fd, int64_t offset),
         map_any (where, length, protection, flags, fd, static_cast<uint64_t> (offset),
                  [=] { return real (where, length, protection, flags, fd, offset); }))
Q5_CALL (int, munmap, (void *where, size_t length), unmap_any (where, length, real))
Q5_CALL (int, mprotect, (void *where, size_t length, int protection),
         protect_any (where, length, protection, real))
Q5_CALL (void *, mremap, (void *where, size_t length, size_t new_length, int flags, void *place),
         move_any (where, length, new_length, flags, place, real))

// Sleeping: the bus moves on.

#define Q5_WAIT(result, name, limit, kind, parameters, arguments)                                  \
    Q5_CALL (result, name, parameters, wait_on_bus (limit, kind, [=] { return real arguments; }))

#define Q5_SLEEP(name, span)                                                                       \
    Q5_WAIT (int, name, limit_of (asked), SLEEP, (const span *asked, span *left), (asked, left))

#define Q5_CLOCK_SLEEP(name, span)                                                                 \
    Q5_WAIT (int, name, flags &TIMER_ABSTIME ? limit_until (clock, asked) : limit_of (asked),      \
             flags &TIMER_ABSTIME ? UNTIL : SLEEP,                                                 \
             (clockid_t clock, int flags, const span *asked, span *left),                          \
             (clock, flags, asked, left))

Q5_WAIT (int, usleep, microseconds *(SECOND / 1000000), SLEEP, (unsigned microseconds),
         (microseconds))
Q5_WAIT (unsigned, sleep, seconds *SECOND, SLEEP, (unsigned seconds), (seconds))
Q5_SLEEP (nanosleep, span_t)
Q5_SLEEP (thrd_sleep, span_t)
Q5_CLOCK_SLEEP (clock_nanosleep, span_t)

// Waiting for descriptors, or for none: the bus moves on by the time that it took.

#define Q5_POLL(name, limit, parameters, arguments)                                                \
    Q5_WAIT (int, name, limit, count > 0 ? DESCRIPTORS : SLEEP, parameters, arguments)

#define Q5_PPOLL(name, span)                                                                       \
    Q5_POLL (name, limit_of (timeout),                                                             \
             (pollfd * fds, nfds_t count, const span *timeout, const sigset_t *mask),              \
             (fds, count, timeout, mask))

#define Q5_PPOLL_CHK(name, span)                                                                   \
    Q5_POLL (                                                                                      \
        name, limit_of (timeout),                                                                  \
        (pollfd * fds, nfds_t count, const span *timeout, const sigset_t *mask, size_t space),     \
        (fds, count, timeout, mask, space))

#define Q5_SELECT(name, span, parts)                                                               \
    Q5_POLL (name, limit_of (timeout, parts),                                                      \
             (int count, fd_set *reads, fd_set *writes, fd_set *others, span *timeout),            \
             (count, reads, writes, others, timeout))

#define Q5_PSELECT(name, span)                                                                     \
    Q5_POLL (name, limit_of (timeout),                                                             \
             (int count, fd_set *reads, fd_set *writes, fd_set *others, const span *timeout,       \
              const sigset_t *mask),                                                               \
             (count, reads, writes, others, timeout, mask))

#define Q5_EPOLL(name, parameters, arguments)                                                      \
    Q5_WAIT (int, name, limit_of (timeout), DESCRIPTORS, parameters, arguments)

#define Q5_EPOLL2(name, span)                                                                      \
    Q5_EPOLL (name,                                                                                \
              (int fd, epoll_event *events, int most, const span *timeout, const sigset_t *mask),  \
              (fd, events, most, timeout, mask))

Q5_POLL (poll, limit_of (timeout), (pollfd * fds, nfds_t count, int timeout), (fds, count, timeout))
Q5_POLL (__poll_chk, limit_of (timeout), (pollfd * fds, nfds_t count, int timeout, size_t space),
         (fds, count, timeout, space))
Q5_PPOLL (ppoll, span_t)
Q5_PPOLL_CHK (__ppoll_chk, span_t)
Q5_SELECT (select, span_t, 1000000)
Q5_PSELECT (pselect, span_t)
Q5_EPOLL (epoll_wait, (int fd, epoll_event *events, int most, int timeout),
          (fd, events, most, timeout))
Q5_EPOLL (epoll_pwait, (int fd, epoll_event *events, int most, int timeout, const sigset_t *mask),
          (fd, events, most, timeout, mask))
Q5_EPOLL2 (epoll_pwait2, span_t)

#if __SIZEOF_POINTER__ == 4
Q5_SLEEP (__nanosleep64, span64_t)
Q5_SLEEP (__thrd_sleep64, span64_t)
Q5_CLOCK_SLEEP (__clock_nanosleep_time64, span64_t)
Q5_PPOLL (__ppoll64, span64_t)
Q5_PPOLL_CHK (__ppoll64_chk, span64_t)
Q5_SELECT (__select64, timeval64_t, 1000000)
Q5_PSELECT (__pselect64, span64_t)
Q5_EPOLL2 (__epoll_pwait2_time64, span64_t)
#endif

// Listening: moved to the address that the launcher was given.

Q5_CALL (int, bind, (int fd, const sockaddr *address, socklen_t size),
         bind_any (fd, address, size, real))
Q5_CALL (int, listen, (int fd, int backlog), listen_any (fd, backlog, real))

// What the calls of the table in door_calls.cc do, one source for each kind: door_open.cc,
// door_memory.cc, door_wait.cc, door_network.cc.
#pragma once

#include "chassis/launch/door.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>

// The attached chassis, made now if this is the first open of a device; null: everything passes.
chassis_t *chassis_for_open ();
chassis_t *attached_chassis ();

// Holds the board while one thread uses it. A signal handler of that thread may use it too.
std::recursive_mutex &board_lock ();

int open_any (int directory, const char *path, int flags, int mode);

// Returns what the real call returned. If it failed because `fd` is a device, with this errno.
int64_t without_devices (const char *call, int fd, int error, int64_t result);

// `result` of fcntl; F_GETFL of a device shows the flags with which it was opened.
int descriptor_flags (int fd, int command, int result);

using ioctl_t = int (int fd, unsigned long number, uintptr_t argument);
int device_request (int fd, unsigned long number, uintptr_t argument, ioctl_t *real);

// A view of a device, or MAP_FAILED; null for any other descriptor.
void *map_device (void *where, size_t length, int protection, int flags, int fd, uint64_t phys);
// The program put other pages there, or none.
void forget_view (void *where, size_t length);

template <typename pass_t>
void *map_any (void *where, size_t length, int protection, int flags, int fd, uint64_t phys,
               pass_t pass)
{
    bool has_file = !(flags & MAP_ANONYMOUS);
    void *view = has_file ? map_device (where, length, protection, flags, fd, phys) : nullptr;
    if (view != nullptr) {
        return view;
    }
    view = pass ();
    if (view != MAP_FAILED && (flags & MAP_FIXED)) {
        forget_view (view, length);
    }
    return view;
}
int unmap_any (void *where, size_t length, int (*real) (void *, size_t));
int protect_any (void *where, size_t length, int protection, int (*real) (void *, size_t, int));
void *move_any (void *where, size_t length, size_t new_length, int flags, void *place,
                void *(*real) (void *, size_t, size_t, int, void *));

// How long a call waits at most, in nanoseconds; nothing: without end. A time that the call refuses
// counts as 0.
using limit_t = std::optional<uint64_t>;
constexpr uint64_t SECOND = 1000000000;

// struct timespec and struct timeval as the plain names take them, and those of the 64-bit names of
// 32-bit machines, whatever the headers of this build call so.
struct span_t {
    long seconds, part;
};
struct span64_t {
    int64_t seconds;
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    int32_t padding, part;
#else
    int32_t part, padding;
#endif
};
struct timeval64_t {
    int64_t seconds, part;
};

// `parts` of a second: its nanoseconds, or the microseconds of a timeval.
template <typename any_span_t> limit_t limit_of (const any_span_t *span, uint64_t parts = SECOND)
{
    if (span == nullptr) {
        return std::nullopt;
    }
    bool valid =
        span->seconds >= 0 && span->part >= 0 && static_cast<uint64_t> (span->part) < parts;
    return valid ? static_cast<uint64_t> (span->seconds) * SECOND +
                       static_cast<uint64_t> (span->part) * (SECOND / parts)
                 : 0;
}
inline limit_t limit_of (int milliseconds)
{
    return milliseconds < 0 ? limit_t () : static_cast<uint64_t> (milliseconds) * (SECOND / 1000);
}
// Until this clock shows this time.
template <typename any_span_t> limit_t limit_until (clockid_t clock, const any_span_t *end)
{
    timespec now = {};
    limit_t limit = limit_of (end);
    if (!limit || clock_gettime (clock, &now) != 0) {
        return 0;
    }
    uint64_t passed =
        static_cast<uint64_t> (now.tv_sec) * SECOND + static_cast<uint64_t> (now.tv_nsec);
    return std::max (*limit, passed) - passed;
}

enum wait_t {
    SLEEP,       // --fast skips it
    UNTIL,       // a time of a clock, which --fast does not move
    DESCRIPTORS, // which may end it earlier
};

// One wait of one thread.
class bus_wait_t {
  public:
    bus_wait_t (limit_t limit, wait_t kind);
    bool is_skipped () const;
    // Moves the bus: to the end of the limit, or as far as the wait really took if something else
    // ended it. What other threads slept meanwhile is part of that.
    void end (bool limit_passed);

  private:
    uint64_t limit_; // nanoseconds; 0: nothing moves
    wait_t kind_;
    uint64_t began_ = 0;     // nanoseconds of the real time
    uint64_t bus_began_ = 0; // microseconds of the bus's
};

// `pass` makes the real call, which returns 0 when its time has passed.
template <typename pass_t> auto wait_on_bus (limit_t limit, wait_t kind, pass_t pass)
{
    bus_wait_t wait (limit, kind);
    auto result = wait.is_skipped () ? 0 : pass ();
    wait.end (result == 0);
    return result;
}

using bind_t = int (int fd, const sockaddr *address, socklen_t size);
int bind_any (int fd, const sockaddr *address, socklen_t size, bind_t *real);
int listen_any (int fd, int backlog, int (*real) (int, int));

// The chassis that is attached, and its time.
#include "chassis/bus/one_line.h"
#include "chassis/launch/door_handlers.h"

#include <errno.h>
#include <pthread.h>
#include <utility>

static chassis_t *attached;
static chassis_t *(*make_chassis) ();
static bool is_fast;
static pthread_t opener;
static uint64_t bus_time; // microseconds since the chassis was attached

void door_attach (chassis_t *chassis)
{
    attached = chassis;
    bus_time = 0;
    opener = pthread_self ();
}

void door_on_first_open (chassis_t *(*make) ())
{
    make_chassis = make;
}

void door_set_fast (bool fast)
{
    is_fast = fast;
}

std::recursive_mutex &board_lock ()
{
    static auto *lock = new std::recursive_mutex; // for threads that outlive main
    return *lock;
}

chassis_t *attached_chassis ()
{
    return attached;
}

chassis_t *chassis_for_open ()
{
    std::lock_guard<std::recursive_mutex> hold (board_lock ());
    if (attached == nullptr && make_chassis != nullptr) {
        chassis_t *(*make) () = make_chassis;
        make_chassis = nullptr; // first: making one opens files
        door_attach (make ());
    }
    return attached;
}

static uint64_t monotonic_nanoseconds ()
{
    timespec now = {};
    clock_gettime (CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t> (now.tv_sec) * SECOND + static_cast<uint64_t> (now.tv_nsec);
}

// Once: programs that wait this way do it all the time.
static void note_standing_bus ()
{
    static bool is_noted;
    if (!is_noted) {
        is_noted = true;
        complain ("note: the program waits on descriptors with no timeout; the bus's time stands "
                  "still meanwhile");
    }
}

bus_wait_t::bus_wait_t (limit_t limit, wait_t kind)
    : limit_ (attached != nullptr ? limit.value_or (0) : 0), kind_ (kind)
{
    if (limit_ != 0) {
        std::lock_guard<std::recursive_mutex> hold (board_lock ());
        bus_began_ = bus_time;
        began_ = monotonic_nanoseconds ();
    } else if (attached != nullptr && kind == DESCRIPTORS) {
        note_standing_bus ();
    }
}

bool bus_wait_t::is_skipped () const
{
    return limit_ != 0 && kind_ == SLEEP && is_fast && pthread_equal (opener, pthread_self ());
}

void bus_wait_t::end (bool limit_passed)
{
    if (limit_ == 0 || attached == nullptr) {
        return;
    }
    int error = errno;
    uint64_t waited = limit_passed ? limit_ : std::min (limit_, monotonic_nanoseconds () - began_);
    std::lock_guard<std::recursive_mutex> hold (board_lock ());
    uint64_t ended = bus_began_ + (waited + 999) / 1000;
    if (ended > bus_time) {
        attached->advance (ended - std::exchange (bus_time, ended));
    }
    errno = error;
}

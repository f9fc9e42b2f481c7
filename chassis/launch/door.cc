#include "chassis/launch/door_entry.h"

#include <pthread.h>
#include <time.h>

static chassis_t *attached;
static chassis_t *(*make_chassis) ();
static bool is_fast;
static pthread_t opener;

void door_attach (chassis_t *chassis)
{
    attached = chassis;
    take_time ();
}

void door_on_first_open (chassis_t *(*make) ())
{
    make_chassis = make;
}

void door_set_fast (bool fast)
{
    is_fast = fast;
}

chassis_t *attached_chassis ()
{
    return attached;
}

chassis_t *chassis_for_open ()
{
    if (attached == nullptr && make_chassis != nullptr) {
        chassis_t *(*make) () = make_chassis;
        make_chassis = nullptr; // first: making one opens files
        door_attach (make ());
    }
    return attached;
}

void take_time ()
{
    opener = pthread_self ();
}

static constexpr uint64_t nanoseconds_a_second = 1000000000;

// Returns what nanosleep returns. Interrupted, the chassis moves only as far as was slept.
static int sleep_on_chassis (uint64_t nanoseconds, struct timespec *left)
{
    static auto *next_nanosleep = next<int (const timespec *, timespec *)> ("nanosleep");
    timespec asked, rest = {0, 0};
    asked.tv_sec = static_cast<time_t> (nanoseconds / nanoseconds_a_second);
    asked.tv_nsec = static_cast<long> (nanoseconds % nanoseconds_a_second);
    int result = is_fast ? 0 : next_nanosleep (&asked, &rest);
    uint64_t missed = 0;
    if (result != 0) {
        missed = static_cast<uint64_t> (rest.tv_sec) * nanoseconds_a_second +
                 static_cast<uint64_t> (rest.tv_nsec);
        if (left != nullptr) {
            *left = rest;
        }
    }
    attached->advance ((nanoseconds - missed + 999) / 1000);
    return result;
}

static bool sleeps_on_chassis ()
{
    return attached != nullptr && pthread_equal (opener, pthread_self ());
}

extern "C" {
int door_usleep (unsigned microseconds) Q5_ENTRY ("usleep");
int door_nanosleep (const struct timespec *asked, struct timespec *left) Q5_ENTRY ("nanosleep");
}

int door_usleep (unsigned microseconds)
{
    static auto *next_usleep = next<int (unsigned)> ("usleep");
    if (sleeps_on_chassis ()) {
        return sleep_on_chassis (static_cast<uint64_t> (microseconds) * 1000, nullptr);
    }
    return next_usleep (microseconds);
}

int door_nanosleep (const struct timespec *asked, struct timespec *left)
{
    static auto *next_nanosleep = next<int (const timespec *, timespec *)> ("nanosleep");
    bool valid = asked != nullptr && asked->tv_sec >= 0 && asked->tv_nsec >= 0 &&
                 static_cast<uint64_t> (asked->tv_nsec) < nanoseconds_a_second;
    if (valid && sleeps_on_chassis ()) {
        uint64_t seconds = static_cast<uint64_t> (asked->tv_sec);
        uint64_t nanoseconds = static_cast<uint64_t> (asked->tv_nsec);
        return sleep_on_chassis (seconds * nanoseconds_a_second + nanoseconds, left);
    }
    return next_nanosleep (asked, left);
}

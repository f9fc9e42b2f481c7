#include "chassis/launch/door.h"

#include "chassis/trap/own_descriptor.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

static chassis_t *attached;
static chassis_t *(*make_chassis) ();
static bool is_fast;
static pthread_t opener;

// A descriptor of a device leads to a memory file that bears the device's name.
static constexpr const char *scanp_device = "/dev/scanp";
static constexpr const char *mem_device = "/dev/mem";

// The definition of a function that the program would have got without this one.
template <typename function_t> static function_t *next (const char *name)
{
    return reinterpret_cast<function_t *> (dlsym (RTLD_NEXT, name));
}

void door_attach (chassis_t *chassis)
{
    attached = chassis;
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

static void attach_on_first_open ()
{
    if (attached == nullptr && make_chassis != nullptr) {
        chassis_t *(*make) () = make_chassis;
        make_chassis = nullptr; // first: making one opens files
        door_attach (make ());
    }
}

static bool leads_to (const char *device, int fd)
{
    return attached != nullptr && fd >= 0 && is_memory_file (fd, device);
}

static bool is_device (const char *path)
{
    return path != nullptr && (strcmp (path, scanp_device) == 0 || strcmp (path, mem_device) == 0);
}

using open_t = int (const char *, int, ...);

// Opened anew, so that it has the flags that the program asked for.
static int open_device (const char *path, int flags, open_t *next_open)
{
    if (strcmp (path, scanp_device) == 0 && !attached->has_device ()) {
        errno = ENOENT;
        return -1;
    }
    opener = pthread_self ();
    int file = moved_out_of_the_way (memfd_create (path, MFD_CLOEXEC));
    std::string link = "/proc/self/fd/" + std::to_string (file);
    int fd = next_open (link.c_str (), flags & (O_ACCMODE | O_CLOEXEC | O_NONBLOCK | O_SYNC));
    int error = errno;
    close (file);
    errno = error;
    return fd;
}

static int open_any (const char *path, int flags, unsigned mode, open_t *next_open)
{
    if (is_device (path)) {
        attach_on_first_open ();
        if (attached != nullptr) {
            return open_device (path, flags, next_open);
        }
    }
    return next_open (path, flags, mode);
}

static int request (unsigned long number, uintptr_t argument)
{
    std::optional<int32_t> answer =
        attached->driver_request (static_cast<uint32_t> (number), static_cast<uint32_t> (argument));
    if (!answer) {
        errno = ENOTTY;
    }
    return answer.value_or (-1);
}

// A shared writable mapping needs a descriptor open for both, as with any file.
static void *map_memory (void *where, size_t length, int protection, int flags, int fd,
                         uint64_t phys)
{
    int mode = fcntl (fd, F_GETFL) & O_ACCMODE;
    bool writes_through = (protection & PROT_WRITE) && (flags & MAP_SHARED);
    if (mode == O_WRONLY || (writes_through && mode != O_RDWR)) {
        errno = EACCES;
        return MAP_FAILED;
    }
    void *view = attached->map (where, length, protection, flags, phys);
    if (view == MAP_FAILED && errno == EBADF) {
        fputs ("q5_chassis: the program closed a descriptor of the emulated board, which is not "
               "its own; let it close only those that it opened\n",
               stderr);
        _exit (2);
    }
    return view;
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

// The functions as the program finds them. The names are given to the assembler alone, because the
// C library's headers have declarations, and with large files other names, of their own for them.

#define Q5_ENTRY(name) asm(name) __attribute__ ((visibility ("default"), used))

extern "C" {
int door_open (const char *path, int flags, ...) Q5_ENTRY ("open");
int door_open64 (const char *path, int flags, ...) Q5_ENTRY ("open64");
int door_open_2 (const char *path, int flags) Q5_ENTRY ("__open_2");
int door_open64_2 (const char *path, int flags) Q5_ENTRY ("__open64_2");
int door_ioctl (int fd, unsigned long number, ...) Q5_ENTRY ("ioctl");
void *door_mmap (void *where, size_t length, int protection, int flags, int fd, long offset)
    Q5_ENTRY ("mmap");
void *door_mmap64 (void *where, size_t length, int protection, int flags, int fd, int64_t offset)
    Q5_ENTRY ("mmap64");
int door_usleep (unsigned microseconds) Q5_ENTRY ("usleep");
int door_nanosleep (const struct timespec *asked, struct timespec *left) Q5_ENTRY ("nanosleep");
#if __SIZEOF_POINTER__ == 4
int door_ioctl_time64 (int fd, unsigned long number, ...) Q5_ENTRY ("__ioctl_time64");
#endif
}

// The mode is there only with some flags; reading it anyway does no harm.
int door_open (const char *path, int flags, ...)
{
    static auto *next_open = next<open_t> ("open");
    va_list rest;
    va_start (rest, flags);
    unsigned mode = va_arg (rest, unsigned);
    va_end (rest);
    return open_any (path, flags, mode, next_open);
}

int door_open64 (const char *path, int flags, ...)
{
    static auto *next_open = next<open_t> ("open64");
    va_list rest;
    va_start (rest, flags);
    unsigned mode = va_arg (rest, unsigned);
    va_end (rest);
    return open_any (path, flags, mode, next_open);
}

int door_open_2 (const char *path, int flags)
{
    return door_open (path, flags, 0);
}

int door_open64_2 (const char *path, int flags)
{
    return door_open64 (path, flags, 0);
}

int door_ioctl (int fd, unsigned long number, ...)
{
    static auto *next_ioctl = next<int (int, unsigned long, ...)> ("ioctl");
    va_list rest;
    va_start (rest, number);
    uintptr_t argument = va_arg (rest, uintptr_t);
    va_end (rest);
    return leads_to (scanp_device, fd) ? request (number, argument)
                                       : next_ioctl (fd, number, argument);
}

void *door_mmap (void *where, size_t length, int protection, int flags, int fd, long offset)
{
    static auto *next_mmap = next<void *(void *, size_t, int, int, int, long)> ("mmap");
    if (leads_to (mem_device, fd)) {
        auto phys = static_cast<unsigned long> (offset); // 2 GiB and above: negative in 32 bits
        return map_memory (where, length, protection, flags, fd, phys);
    }
    return next_mmap (where, length, protection, flags, fd, offset);
}

void *door_mmap64 (void *where, size_t length, int protection, int flags, int fd, int64_t offset)
{
    static auto *next_mmap = next<void *(void *, size_t, int, int, int, int64_t)> ("mmap64");
    if (leads_to (mem_device, fd)) {
        return map_memory (where, length, protection, flags, fd, static_cast<uint64_t> (offset));
    }
    return next_mmap (where, length, protection, flags, fd, offset);
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

#if __SIZEOF_POINTER__ == 4
int door_ioctl_time64 (int fd, unsigned long number, ...)
{
    va_list rest;
    va_start (rest, number);
    uintptr_t argument = va_arg (rest, uintptr_t);
    va_end (rest);
    return door_ioctl (fd, number, argument);
}
#endif

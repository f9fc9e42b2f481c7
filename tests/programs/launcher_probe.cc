// A program for the launcher to become: exits with the given status and prints what reached it, or
// prints what it reaches. Built as the preload library is, sanitizers and all.
#include <chrono>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <fstream>
#include <math.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <thread>
#include <unistd.h>

static int print_environment (int status)
{
    for (char **entry = environ; *entry; entry++) {
        if (strncmp (*entry, "Q5_CHASSIS", 10) == 0 || strncmp (*entry, "LD_PRELOAD", 10) == 0) {
            puts (*entry);
        }
    }
    return status;
}

static void show (const std::string &what, long result)
{
    const char *error = strerrorname_np (errno);
    printf ("%s: %s\n", what.c_str (), result == -1 ? error : std::to_string (result).c_str ());
    fflush (stdout);
}

static volatile uint8_t *map (int fd, size_t length, off_t phys, int flags = MAP_SHARED)
{
    void *view = mmap (nullptr, length, PROT_READ | PROT_WRITE, flags, fd, phys);
    return view == MAP_FAILED ? nullptr : static_cast<volatile uint8_t *> (view);
}

// Whether it is the board: that has memory at 0xF0000000, and none at 0.
static void show_board (const std::string &what, int fd)
{
    bool is_board = map (fd, 100, 0xF0000000) != nullptr && map (fd, 100, 0) == nullptr;
    show (what, fd >= 0 && is_board ? 1 : -1);
    close (fd);
}

template <typename... arguments_t> static long call (const char *name, arguments_t... arguments)
{
    return reinterpret_cast<long (*) (arguments_t...)> (dlsym (RTLD_DEFAULT, name)) (arguments...);
}

static void open_in_all_ways ()
{
    const char *mem = "/dev/mem";
    for (const char *name : {"open", "open64", "__open_2", "__open64_2"}) {
        show_board (name, static_cast<int> (call (name, mem, O_RDWR, 0)));
    }
    for (const char *name : {"openat", "openat64", "__openat_2", "__openat64_2"}) {
        show_board (name, static_cast<int> (call (name, AT_FDCWD, mem, O_RDWR, 0)));
    }
}

static void open_by_all_names ()
{
    int opened = open ("/dev/mem", O_RDWR), folder = open ("/dev", O_RDONLY);
    const std::string descriptor = "/proc/self/fd/" + std::to_string (opened);
    bool linked = symlink ("/dev/mem", "a") == 0 && symlink ("a", "b") == 0;
    show ("links", linked);
    for (const char *name : {"//dev/mem", "/dev/../dev/./mem", "b", descriptor.c_str ()}) {
        show_board (name == descriptor ? "descriptor" : name, open (name, O_RDWR));
    }
    show_board ("dup", dup (opened));
    show_board ("from /dev", openat (folder, "mem", O_RDWR));
    show_board ("not through a link", open ("a", O_RDWR | O_NOFOLLOW));
    show_board ("read only", open ("/dev/mem", O_RDONLY));
    show_board ("a file", open ("/proc/self/exe", O_RDONLY));
    show ("as a folder", open ("/dev/mem", O_RDONLY | O_DIRECTORY));
    show ("as a new file", open ("/dev/mem", O_RDWR | O_CREAT | O_EXCL, 0600));
}

static void read_and_write ()
{
    for (const char *device : {"/dev/mem", "/dev/scanp"}) {
        int fd = open (device, O_RDWR | O_SYNC);
        char zeros[64] = {};
        for (const char *name : {"read", "__read_chk", "pread", "pread64", "__pread_chk", "write",
                                 "pwrite", "pwrite64", "lseek", "lseek64", "ioctl"}) {
            show (name, static_cast<int> (call (name, fd, zeros, 1, 64, 64, 64)));
        }
        show (device, map (fd, 4096, 0xF0000000) != nullptr);
    }
}

static void change_views ()
{
    int fd = open ("/dev/mem", O_RDWR);
    volatile uint8_t *view = map (fd, 0x3FFFF, 0xF0000000);
    auto *page = const_cast<uint8_t *> (view) + 0x2000; // the page after the driver's bytes
    view[0x3FFFF] = view[0x3FFFF], errno = EILSEQ, view[0x103F] = 0x34;
    show ("errno after an access", -(errno == EILSEQ));
    show ("past the length, in the page", view[0x3FFFF]);
    show ("past the end", map (fd, 0x40001, 0xF0000000) ? 0 : -1);
    show ("length 0", map (fd, 0, 0xF0000000) ? 0 : -1);
    show ("in a page", map (fd, 1, 0xF0000004) ? 0 : -1);
    show ("private", map (fd, 1, 0xF0000000, MAP_PRIVATE) ? 0 : -1);
    show ("a second mapping", mremap (page, 0, 4096, MREMAP_MAYMOVE) == MAP_FAILED ? -1 : 0);
    show ("mremap", mremap (page, 4096, 8192, MREMAP_MAYMOVE) == MAP_FAILED ? -1 : 0);
    show ("mprotect", mprotect (page - 4096, 4096, PROT_READ));
    show ("protected", view[0x103F]);
    show ("munmap", munmap (page, 4096));
    show ("mprotect of what is gone", mprotect (page, 4096, PROT_READ));
    show ("after what is gone", view[0x3FFFF]);
    show ("another page there", mmap (page, 4096, PROT_READ | PROT_WRITE,
                                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == page);
    show ("its own bytes", *page = 5);
    show ("two kinds of pages", mprotect (page, 8192, PROT_READ));
    view[0x103F] = 1;
}

// Whether a raw system call opens the memory of this machine, by its name or by a node of root's.
static void open_real_memory ()
{
    (void)!mknod ("real", S_IFCHR | 0600, makedev (1, 1));
    for (const char *name : {"real", "/dev/mem"}) {
        show ("real memory", syscall (SYS_openat, AT_FDCWD, name, O_RDONLY) < 0 ? 0 : 1);
    }
    for (std::ifstream status ("/proc/self/status"); !status.eof ();) {
        std::string set;
        uint64_t capabilities = 0;
        status >> set >> std::hex >> capabilities;
        if (set == "CapPrm:" || set == "CapEff:") {
            show (set.substr (0, 6), capabilities >> 17 & 1); // CAP_SYS_RAWIO
        }
        status.clear ();
        status.ignore (10000, '\n');
    }
}

// struct timespec as the plain names take it, and the 64-bit names of 32-bit machines.
struct span_t {
    long seconds, part;
};
struct span64_t {
    int64_t seconds;
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    int32_t padding;
#endif
    int32_t part;
};

// Sees by the times in the file `trace` how far a wait moved the bus, in hundredths of a second.
class bus_watch_t {
  public:
    volatile uint8_t *view = map (open ("/dev/mem", O_RDWR), 0x40000, 0xF0000000);
    long before = 0;

    void expect (const std::string &what, long expected)
    {
        (void)view[0x1000]; // dual-port RAM
        std::string time, rest;
        for (std::ifstream trace ("trace"); trace >> time && std::getline (trace, rest);) {
        }
        long now = lround (atof (time.c_str ()) * 100);
        if (now - before != expected) {
            printf ("%s moved the bus by %ld0 ms\n", what.c_str (), now - before);
        }
        before = now;
    }
    // Calls what there is under this name: there are no 64-bit names on a 64-bit machine.
    template <typename... arguments_t> void calls (const char *name, arguments_t... arguments)
    {
        if (dlsym (RTLD_DEFAULT, name)) {
            bool exists = call (name, arguments...) != -1 || errno != ENOSYS;
            expect (name, exists ? 1 : 0);
        }
    }
};

static void sleep_in_all_ways ()
{
    bus_watch_t bus;
    const span_t span = {0, 10000000};
    span64_t span64 = {};
    span64.part = 10000000;
    span_t timeval = {0, 10000};
    const struct {
        int64_t seconds, part;
    } timeval64 = {0, 10000};
    void *null = nullptr;
    int none = epoll_create1 (0), ends[2];
    epoll_event event;
    bus.calls ("usleep", 10000);
    bus.calls ("nanosleep", &span, null);
    bus.calls ("__nanosleep64", &span64, null);
    bus.calls ("thrd_sleep", &span, null);
    bus.calls ("__thrd_sleep64", &span64, null);
    bus.calls ("clock_nanosleep", CLOCK_MONOTONIC, 0, &span, null);
    bus.calls ("__clock_nanosleep_time64", CLOCK_MONOTONIC, 0, &span64, null);
    bus.calls ("poll", null, 0L, 10);
    bus.calls ("__poll_chk", null, 0L, 10, 0L);
    bus.calls ("ppoll", null, 0L, &span, null);
    bus.calls ("__ppoll64", null, 0L, &span64, null);
    bus.calls ("__ppoll_chk", null, 0L, &span, null, 0L);
    bus.calls ("__ppoll64_chk", null, 0L, &span64, null, 0L);
    bus.calls ("select", 0, null, null, null, &timeval);
    bus.calls ("__select64", 0, null, null, null, &timeval64);
    bus.calls ("pselect", 0, null, null, null, &span, null);
    bus.calls ("__pselect64", 0, null, null, null, &span64, null);
    bus.calls ("epoll_wait", none, &event, 1, 10);
    bus.calls ("epoll_pwait", none, &event, 1, 10, null);
    bus.calls ("epoll_pwait2", none, &event, 1, &span, null);
    bus.calls ("__epoll_pwait2_time64", none, &event, 1, &span64, null);
    sleep (1);
    bus.expect ("sleep", 100);
    std::this_thread::sleep_for (std::chrono::milliseconds (10));
    std::this_thread::sleep_until (std::chrono::steady_clock::now () +
                                   std::chrono::milliseconds (10));
    bus.expect ("std::this_thread", 2);
    timespec end;
    clock_gettime (CLOCK_MONOTONIC, &end);
    end.tv_sec++;
    clock_nanosleep (CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
    bus.expect ("a time of a clock", 100);
    // What another thread sleeps at the same time is the same time.
    std::thread other ([] { usleep (300000); });
    clock_gettime (CLOCK_MONOTONIC, &end);
    end.tv_nsec += end.tv_nsec < 900000000 ? 100000000 : 0;
    clock_nanosleep (CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
    other.join ();
    bus.expect ("two threads", 30);
    (void)!pipe (ends), (void)!write (ends[1], "", 1);
    pollfd ready = {ends[0], POLLIN, 0};
    poll (&ready, 1, 1000);
    bus.expect ("what was ready", 0);
    poll (&ready, 1, -1);
    poll (&ready, 1, 0);
    bus.expect ("a poll without a time", 0);
}

int main (int argc, char **argv)
{
    const std::string what = argc == 2 ? argv[1] : "";
    if (what == "inherited") {
        show_board (what, 3);
        return 0;
    }
    if (what == "real") {
        open_real_memory ();
        return 0;
    }
    if (what == "clocks") {
        sleep_in_all_ways ();
        return 0;
    }
    if (what != "door") {
        return print_environment (atoi (argv[1]));
    }
    auto own_fault = [] (int) {
        puts ("a fault of its own");
        exit (0);
    };
    signal (SIGSEGV, own_fault); // before there is a view to trap
    open_in_all_ways ();
    open_by_all_names ();
    read_and_write ();
    change_views ();
}

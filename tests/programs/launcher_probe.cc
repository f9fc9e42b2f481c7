// A program for the launcher to become: prints what it reaches, by its argument.
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
    std::ifstream status ("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "CapPrm:" || word == "CapEff:") {
            uint64_t capabilities = 0;
            status >> std::hex >> capabilities;
            show (word.substr (0, 6), capabilities >> 17 & 1); // CAP_SYS_RAWIO
        }
    }
}

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
    // Waits 10 ms by the call of this name, which the kernel may not have.
    template <typename... arguments_t> void calls (const char *name, arguments_t... arguments)
    {
        bool exists = call (name, arguments...) != -1 || errno != ENOSYS;
        expect (name, exists ? 1 : 0);
    }
};

static void sleep_in_all_ways ()
{
    bus_watch_t bus;
    const timespec span = {0, 10000000};
    timeval time = {0, 10000};
    void *null = nullptr;
    int none = epoll_create1 (0), ends[2];
    epoll_event event;
    bus.calls ("usleep", 10000);
    bus.calls ("nanosleep", &span, null);
    bus.calls ("thrd_sleep", &span, null);
    bus.calls ("clock_nanosleep", CLOCK_MONOTONIC, 0, &span, null);
    bus.calls ("poll", null, 0L, 10);
    bus.calls ("__poll_chk", null, 0L, 10, 0L);
    bus.calls ("ppoll", null, 0L, &span, null);
    bus.calls ("__ppoll_chk", null, 0L, &span, null, 0L);
    bus.calls ("select", 0, null, null, null, &time);
    bus.calls ("pselect", 0, null, null, null, &span, null);
    bus.calls ("epoll_wait", none, &event, 1, 10);
    bus.calls ("epoll_pwait", none, &event, 1, 10, null);
    bus.calls ("epoll_pwait2", none, &event, 1, &span, null);
    sleep (1);
    bus.expect ("sleep", 100);
    const timespec least = {0, 1};
    for (int i = 0; i < 10000; i++) {
        nanosleep (&least, nullptr);
    }
    bus.expect ("a microsecond that has begun", 1);
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
    const auto begin = std::chrono::steady_clock::now ();
    std::thread ([] { usleep (20000); }).join ();
    if (std::chrono::steady_clock::now () - begin < std::chrono::milliseconds (20)) {
        puts ("a sleep of another thread was skipped");
    }
    bus.expect ("another thread", 2);
    (void)!pipe (ends), (void)!write (ends[1], "", 1);
    pollfd ready = {ends[0], POLLIN, 0};
    poll (&ready, 1, 1000);
    bus.expect ("what was ready", 0);
    poll (&ready, 1, -1);
    poll (&ready, 1, 0);
    bus.expect ("a poll without a time", 0);
}

static void use_devices ()
{
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

int main (int, char **argv)
{
    const std::string what = argv[1];
    if (what == "inherited") {
        show_board (what, 3);
    } else if (what == "real") {
        open_real_memory ();
    } else if (what == "clocks") {
        sleep_in_all_ways ();
    } else {
        use_devices ();
    }
}

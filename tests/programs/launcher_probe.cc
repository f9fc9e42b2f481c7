// A program for the launcher to become: ends with the given status and tells what reached it, or
// tells what it reaches. Built as the preload library is, sanitizers and all.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

static int tell_environment (int status)
{
    for (char **entry = environ; *entry; entry++) {
        if (strncmp (*entry, "Q5_CHASSIS", 10) == 0 || strncmp (*entry, "LD_PRELOAD", 10) == 0) {
            puts (*entry);
        }
    }
    return status;
}

static void tell (const std::string &what, long result)
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
static void tell_board (const std::string &what, int fd)
{
    bool is_board = map (fd, 100, 0xF0000000) != nullptr && map (fd, 100, 0) == nullptr;
    tell (what, fd >= 0 && is_board ? 1 : -1);
    close (fd);
}

template <typename... arguments_t> static long call (const char *name, arguments_t... arguments)
{
    return reinterpret_cast<long (*) (arguments_t...)> (dlsym (RTLD_DEFAULT, name)) (arguments...);
}

static void tell_ways_to_open ()
{
    const char *mem = "/dev/mem";
    for (const char *name : {"open", "open64", "__open", "__open64", "__open_2", "__open64_2"}) {
        tell_board (name, static_cast<int> (call (name, mem, O_RDWR, 0)));
    }
    for (const char *name : {"openat", "openat64", "__openat_2", "__openat64_2"}) {
        tell_board (name, static_cast<int> (call (name, AT_FDCWD, mem, O_RDWR, 0)));
    }
    for (const char *name :
         {"creat", "creat64", "fopen", "_IO_fopen", "fopen64", "freopen", "freopen64"}) {
        bool creates = name[0] == 'c';
        tell (name, creates ? fcntl (static_cast<int> (call (name, mem, 0)), F_GETFL)
                            : (call (name, mem, "r", stdin) != 0) - 1);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init (&actions);
    tell ("spawn", posix_spawn_file_actions_addopen (&actions, 3, mem, O_RDWR, 0) == 0);
}

static void tell_names ()
{
    int opened = open ("/dev/mem", O_RDWR), folder = open ("/dev", O_RDONLY);
    const std::string descriptor = "/proc/self/fd/" + std::to_string (opened);
    bool linked = symlink ("/dev/mem", "a") == 0 && symlink ("a", "b") == 0;
    // Only root makes nodes; a link to the device leads there too.
    linked &= mknod ("node", S_IFCHR | 0600, makedev (1, 1)) == 0 || symlink ("b", "node") == 0;
    tell ("links", linked);
    for (const char *name :
         {"//dev/mem", "/dev/../dev/./mem", "b", "./node", descriptor.c_str ()}) {
        tell_board (name == descriptor ? "descriptor" : name, open (name, O_RDWR));
    }
    char byte;
    tell ("read of the descriptor", read (open (descriptor.c_str (), O_RDWR), &byte, 1));
    tell_board ("dup", dup (opened));
    tell_board ("from /dev", openat (folder, "mem", O_RDWR));
    tell_board ("not through a link", open ("a", O_RDWR | O_NOFOLLOW));
    tell_board ("read only", open ("/dev/mem", O_RDONLY));
    tell_board ("a file", open ("/proc/self/exe", O_RDONLY));
    tell ("as a folder", open ("/dev/mem", O_RDONLY | O_DIRECTORY));
    tell ("as a new file", open ("/dev/mem", O_RDWR | O_CREAT | O_EXCL, 0600));
}

static void tell_reading_and_writing ()
{
    for (const char *device : {"/dev/mem", "/dev/scanp"}) {
        int fd = open (device, O_RDWR | O_SYNC);
        tell (device, fcntl (fd, F_GETFL) & (O_ACCMODE | O_SYNC));
        char zeros[64] = {};
        for (const char *name :
             {"read", "readv", "pread", "pread64", "preadv", "write", "writev", "pwrite",
              "pwrite64", "pwritev", "lseek", "lseek64", "ftruncate", "ftruncate64", "ioctl"}) {
            tell (name, static_cast<int> (call (name, fd, zeros, 1, 0, 0, 0)));
        }
        tell ("map", map (fd, 4096, 0xF0000000) != nullptr);
    }
}

static void tell_views ()
{
    int fd = open ("/dev/mem", O_RDWR);
    volatile uint8_t *view = map (fd, 0x3FFFF, 0xF0000000);
    auto *page = const_cast<uint8_t *> (view) + 0x1000; // of dual-port RAM
    view[0x3FFFF] = 0x12, errno = EILSEQ, view[0x2FFF] = 0x34;
    tell ("errno behind an access", -(errno == EILSEQ));
    tell ("behind the length, in the page", view[0x3FFFF]);
    tell ("past the end", map (fd, 0x40001, 0xF0000000) ? 0 : -1);
    tell ("length 0", map (fd, 0, 0xF0000000) ? 0 : -1);
    tell ("in a page", map (fd, 1, 0xF0000004) ? 0 : -1);
    tell ("private", map (fd, 1, 0xF0000000, MAP_PRIVATE) ? 0 : -1);
    tell ("a second mapping", mremap (page, 0, 4096, MREMAP_MAYMOVE) == MAP_FAILED ? -1 : 0);
    tell ("mremap", mremap (page, 4096, 8192, MREMAP_MAYMOVE) == MAP_FAILED ? -1 : 0);
    tell ("mprotect", mprotect (page + 4096, 4096, PROT_READ));
    tell ("protected", view[0x2FFF]);
    tell ("munmap", munmap (page, 4096));
    tell ("mprotect of what is gone", mprotect (page, 4096, PROT_READ));
    tell ("behind what is gone", view[0x3FFFF]);
    tell ("another page there", mmap (page, 4096, PROT_READ | PROT_WRITE,
                                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == page);
    tell ("its own bytes", *page = 5);
    tell ("two kinds of pages", mprotect (page, 8192, PROT_READ));
    view[0x2FFF] = 1;
}

// The descriptor is a path alone: nothing is opened, and nothing can be mapped of it.
static void tell_real_memory ()
{
    long fd = mknod ("real", S_IFCHR | 0600, makedev (1, 1));
    for (const char *name : {"real", "/dev/mem"}) {
        fd = fd > 0 ? fd : syscall (SYS_openat, AT_FDCWD, name, O_PATH);
    }
    errno = EINVAL; // where there is neither
    tell ("real memory", fd > 0 && map (static_cast<int> (fd), 4096, 0) ? 0 : -1);
}

int main (int argc, char **argv)
{
    const std::string what = argc == 2 ? argv[1] : "";
    if (what == "inherited") {
        tell_board (what, 3);
        return 0;
    }
    if (what == "real") {
        tell_real_memory ();
        return 0;
    }
    if (what != "door") {
        return tell_environment (atoi (argv[1]));
    }
    auto own_fault = [] (int) {
        puts ("a fault of its own");
        exit (0);
    };
    signal (SIGSEGV, own_fault); // before there is a view to trap
    tell_ways_to_open ();
    tell_names ();
    tell_reading_and_writing ();
    tell_views ();
}

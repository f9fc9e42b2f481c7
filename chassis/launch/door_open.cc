// The ways to open a file: a device, by whatever name, is the attached chassis's.
#include "chassis/bus/one_line.h"
#include "chassis/launch/device_file.h"
#include "chassis/launch/door_entry.h"
#include "chassis/trap/own_descriptor.h"

#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

// Flags that only say how to open. The flag of 64-bit offsets is the kernel's number.
constexpr int opening_flags =
    O_CREAT | O_EXCL | O_NOCTTY | O_TRUNC | O_CLOEXEC | O_DIRECTORY | O_NOFOLLOW;
constexpr int large_file = O_LARGEFILE;
constexpr uint64_t address_space = 0x100000000;

using openat_t = int (int, const char *, int, ...);

static bool is_refused (const char *call, const char *path)
{
    if (!device_at (AT_FDCWD, path) || chassis_for_open () == nullptr) {
        return false;
    }
    complain (std::string (call) + " of " + path + ": refused; open reaches the emulated board");
    errno = EACCES;
    return true;
}

// The descriptor of a memory file is a path alone: without the file's own reading and writing. Its
// size is for programs that look at it before they map.
static int open_device (device_t device, int flags)
{
    static auto *next_openat = next<openat_t> ("openat");
    static auto *next_truncate = next<int (int, int64_t)> ("ftruncate64");
    if (device == device_t::scanp && !attached_chassis ()->has_device ()) {
        errno = ENOENT;
        return -1;
    }
    if ((flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL) || (flags & O_DIRECTORY)) {
        errno = flags & O_DIRECTORY ? ENOTDIR : EEXIST;
        return -1;
    }
    take_time ();
    std::string name = device_file_name ({device, flags & ~opening_flags});
    int memory = moved_out_of_the_way (memfd_create (name.c_str (), MFD_CLOEXEC));
    if (memory < 0 || next_truncate (memory, address_space) != 0) {
        return -1;
    }
    std::string link = "/proc/self/fd/" + std::to_string (memory);
    int fd = next_openat (AT_FDCWD, link.c_str (), O_PATH | (flags & O_CLOEXEC));
    int error = errno;
    close (memory);
    errno = error;
    return fd;
}

static int refuse_real_memory (const char *path)
{
    complain (std::string (path) + ": refused; it leads to the memory of this machine");
    errno = EACCES;
    return -1;
}

// Whatever it was called.
static int without_real_memory (int fd, const char *path)
{
    if (fd < 0 || !is_real_memory (fd) || chassis_for_open () == nullptr) {
        return fd;
    }
    close (fd);
    return refuse_real_memory (path);
}

static int open_any (int directory, const char *path, int flags, unsigned mode)
{
    static auto *next_openat = next<openat_t> ("openat");
    std::optional<device_t> device = device_at (directory, path, !(flags & O_NOFOLLOW));
    if (!device || chassis_for_open () == nullptr) {
        return without_real_memory (next_openat (directory, path, flags, mode), path);
    }
    return *device == device_t::foreign ? refuse_real_memory (path) : open_device (*device, flags);
}

extern "C" {
int door_open (const char *path, int flags, ...) Q5_ENTRY ("open");
int door_open64 (const char *path, int flags, ...) Q5_ENTRY ("open64");
int door_open_internal (const char *path, int flags, ...) Q5_ENTRY ("__open");
int door_open64_internal (const char *path, int flags, ...) Q5_ENTRY ("__open64");
int door_open_2 (const char *path, int flags) Q5_ENTRY ("__open_2");
int door_open64_2 (const char *path, int flags) Q5_ENTRY ("__open64_2");
int door_openat (int directory, const char *path, int flags, ...) Q5_ENTRY ("openat");
int door_openat64 (int directory, const char *path, int flags, ...) Q5_ENTRY ("openat64");
int door_openat_2 (int directory, const char *path, int flags) Q5_ENTRY ("__openat_2");
int door_openat64_2 (int directory, const char *path, int flags) Q5_ENTRY ("__openat64_2");
int door_creat (const char *path, unsigned mode) Q5_ENTRY ("creat");
int door_creat64 (const char *path, unsigned mode) Q5_ENTRY ("creat64");
int door_handle (int mount, void *handle, int flags) Q5_ENTRY ("open_by_handle_at");
FILE *door_fopen (const char *path, const char *mode) Q5_ENTRY ("fopen");
FILE *door_fopen_internal (const char *path, const char *mode) Q5_ENTRY ("_IO_fopen");
FILE *door_fopen64 (const char *path, const char *mode) Q5_ENTRY ("fopen64");
FILE *door_freopen (const char *path, const char *mode, FILE *file) Q5_ENTRY ("freopen");
FILE *door_freopen64 (const char *path, const char *mode, FILE *file) Q5_ENTRY ("freopen64");
int door_spawn_open (posix_spawn_file_actions_t *actions, int fd, const char *path, int flags,
                     mode_t mode) Q5_ENTRY ("posix_spawn_file_actions_addopen");
}

int door_open (const char *path, int flags, ...)
{
    Q5_OPTIONAL_ARGUMENT (unsigned, mode, flags);
    return open_any (AT_FDCWD, path, flags, mode);
}

int door_open64 (const char *path, int flags, ...)
{
    Q5_OPTIONAL_ARGUMENT (unsigned, mode, flags);
    return open_any (AT_FDCWD, path, flags | large_file, mode);
}

int door_open_internal (const char *path, int flags, ...)
{
    Q5_OPTIONAL_ARGUMENT (unsigned, mode, flags);
    return open_any (AT_FDCWD, path, flags, mode);
}

int door_open64_internal (const char *path, int flags, ...)
{
    Q5_OPTIONAL_ARGUMENT (unsigned, mode, flags);
    return open_any (AT_FDCWD, path, flags | large_file, mode);
}

int door_open_2 (const char *path, int flags)
{
    return open_any (AT_FDCWD, path, flags, 0);
}

int door_open64_2 (const char *path, int flags)
{
    return open_any (AT_FDCWD, path, flags | large_file, 0);
}

int door_openat (int directory, const char *path, int flags, ...)
{
    Q5_OPTIONAL_ARGUMENT (unsigned, mode, flags);
    return open_any (directory, path, flags, mode);
}

int door_openat64 (int directory, const char *path, int flags, ...)
{
    Q5_OPTIONAL_ARGUMENT (unsigned, mode, flags);
    return open_any (directory, path, flags | large_file, mode);
}

int door_openat_2 (int directory, const char *path, int flags)
{
    return open_any (directory, path, flags, 0);
}

int door_openat64_2 (int directory, const char *path, int flags)
{
    return open_any (directory, path, flags | large_file, 0);
}

int door_creat (const char *path, unsigned mode)
{
    return open_any (AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

int door_creat64 (const char *path, unsigned mode)
{
    return open_any (AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC | large_file, mode);
}

int door_handle (int mount, void *handle, int flags)
{
    static auto *next_one = next<int (int, void *, int)> ("open_by_handle_at");
    return without_real_memory (next_one (mount, handle, flags), "the handle");
}

// A stream of the C library's own would reach what the descriptor does not.

FILE *door_fopen (const char *path, const char *mode)
{
    static auto *next_one = next<FILE *(const char *, const char *)> ("fopen");
    return is_refused ("fopen", path) ? nullptr : next_one (path, mode);
}

FILE *door_fopen_internal (const char *path, const char *mode)
{
    return door_fopen (path, mode);
}

FILE *door_fopen64 (const char *path, const char *mode)
{
    static auto *next_one = next<FILE *(const char *, const char *)> ("fopen64");
    return is_refused ("fopen", path) ? nullptr : next_one (path, mode);
}

FILE *door_freopen (const char *path, const char *mode, FILE *file)
{
    static auto *next_one = next<FILE *(const char *, const char *, FILE *)> ("freopen");
    return is_refused ("freopen", path) ? nullptr : next_one (path, mode, file);
}

FILE *door_freopen64 (const char *path, const char *mode, FILE *file)
{
    static auto *next_one = next<FILE *(const char *, const char *, FILE *)> ("freopen64");
    return is_refused ("freopen", path) ? nullptr : next_one (path, mode, file);
}

int door_spawn_open (posix_spawn_file_actions_t *actions, int fd, const char *path, int flags,
                     mode_t mode)
{
    static auto *next_one =
        next<int (posix_spawn_file_actions_t *, int, const char *, int, mode_t)> (
            "posix_spawn_file_actions_addopen");
    return is_refused ("posix_spawn", path) ? EACCES : next_one (actions, fd, path, flags, mode);
}

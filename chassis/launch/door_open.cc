// Descriptors of devices: how the program gets one, and what it may ask of it.
#include "chassis/bus/one_line.h"
#include "chassis/launch/device_file.h"
#include "chassis/launch/door_handlers.h"
#include "chassis/trap/own_descriptor.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>

// Flags that only say how to open.
constexpr int opening_flags =
    O_CREAT | O_EXCL | O_NOCTTY | O_TRUNC | O_CLOEXEC | O_DIRECTORY | O_NOFOLLOW;
constexpr int64_t address_space = 0x100000000;

template <typename function_t> static function_t *next (const char *name)
{
    return reinterpret_cast<function_t *> (dlsym (RTLD_NEXT, name));
}

static int next_openat (int directory, const char *path, int flags, int mode)
{
    static auto *real = next<int (int, const char *, int, ...)> ("openat");
    return real (directory, path, flags, mode);
}

// The descriptor of a memory file is a path alone: without the file's own reading and writing. Its
// size is for programs that look at it before they map.
static int open_device (device_t device, int flags)
{
    static auto *next_truncate = next<int (int, int64_t)> ("ftruncate64");
    if (device == device_t::scanp && !attached_chassis ()->has_device ()) {
        errno = ENOENT;
        return -1;
    }
    if ((flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL) || (flags & O_DIRECTORY)) {
        errno = flags & O_DIRECTORY ? ENOTDIR : EEXIST;
        return -1;
    }
    std::string name = device_file_name ({device, flags & ~opening_flags});
    int memory = moved_out_of_the_way (memfd_create (name.c_str (), MFD_CLOEXEC));
    if (memory < 0) {
        return -1;
    }
    next_truncate (memory, address_space);
    std::string link = "/proc/self/fd/" + std::to_string (memory);
    int fd = next_openat (AT_FDCWD, link.c_str (), O_PATH | (flags & O_CLOEXEC), 0);
    int error = errno;
    close (memory);
    errno = error;
    return fd;
}

int open_any (int directory, const char *path, int flags, int mode)
{
    std::optional<device_t> device = device_at (directory, path, !(flags & O_NOFOLLOW));
    return device && chassis_for_open () != nullptr ? open_device (*device, flags)
                                                    : next_openat (directory, path, flags, mode);
}

// The system refuses all reading and writing of such a descriptor, but with another errno than the
// driver, which has no such operation. /dev/mem of a board has it, so its use gets a message here.
int64_t without_devices (const char *call, int fd, int error, int64_t result)
{
    if (result >= 0 || errno != EBADF) {
        return result;
    }
    std::optional<device_file_t> file = device_file_of (fd);
    if (file && file->device == device_t::mem) {
        complain (std::string (call) + " of /dev/mem: refused; the emulated board can be mapped");
    }
    errno = file ? error : EBADF;
    return result;
}

int descriptor_flags (int fd, int command, int result)
{
    bool is_path = result >= 0 && command == F_GETFL && (result & O_PATH);
    std::optional<device_file_t> file = is_path ? device_file_of (fd) : std::nullopt;
    return file ? file->flags : result;
}

int device_request (int fd, unsigned long number, uintptr_t argument, ioctl_t *real)
{
    std::optional<device_file_t> file = device_file_of (fd);
    chassis_t *chassis = file ? chassis_for_open () : nullptr; // the descriptor may be inherited
    if (chassis == nullptr) {
        return real (fd, number, argument);
    }
    std::optional<int32_t> answer;
    if (file->device == device_t::scanp) {
        std::lock_guard<std::recursive_mutex> hold (board_lock ());
        answer = chassis->driver_request (static_cast<uint32_t> (number),
                                          static_cast<uint32_t> (argument));
    }
    if (!answer) {
        errno = ENOTTY;
    }
    return answer.value_or (-1);
}

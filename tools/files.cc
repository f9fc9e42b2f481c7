#include "tools/files.h"

#include "tools/report.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr size_t first_room = 1 << 16;

// Standard input need not be a file that can be opened by name.
static bool is_input (const std::string &path)
{
    return path == "-";
}

std::string shown_name (const std::string &path)
{
    return is_input (path) ? "standard input" : path;
}

// An open descriptor, closed with the object.
class descriptor_t {
  public:
    const int fd;

    explicit descriptor_t (const std::string &path)
        : fd (is_input (path) ? dup (STDIN_FILENO) : open (path.c_str (), O_RDONLY | O_CLOEXEC))
    {}
    ~descriptor_t ()
    {
        if (fd >= 0) {
            close (fd);
        }
    }
    descriptor_t (const descriptor_t &) = delete;
};

[[noreturn]] static void cannot_read (const std::string &path, int reason)
{
    std::string name = is_input (path) ? shown_name (path) : "'" + path + "'";
    usage_failure (name + " cannot be read: " + strerror (reason),
                   "Give the name of a file that you may read.");
}

[[noreturn]] static void too_large (const std::string &path, size_t most)
{
    usage_failure (shown_name (path) + " has more than " + std::to_string (most) + " bytes",
                   "Is it the right file? Larger ones are not taken.");
}

static std::unique_ptr<char[]> grown (const std::unique_ptr<char[]> &bytes, size_t size,
                                      size_t room)
{
    std::unique_ptr<char[]> larger (new char[room]);
    std::copy_n (bytes.get (), size, larger.get ());
    return larger;
}

// The room that a file needs at once; one byte more shows that it has ended.
static size_t room_for (const struct stat &about)
{
    return S_ISREG (about.st_mode) ? static_cast<size_t> (about.st_size) + 1 : first_room;
}

file_bytes_t read_file (const std::string &path, size_t most)
{
    descriptor_t file (path);
    struct stat about;
    if (file.fd < 0 || fstat (file.fd, &about) != 0) {
        cannot_read (path, errno);
    }
    size_t room = std::min (std::max (room_for (about), first_room), most + 1);
    std::unique_ptr<char[]> bytes (new char[room]);
    size_t size = 0;
    while (size <= most) {
        if (size == room) {
            room = std::min (2 * room, most + 1);
            bytes = grown (bytes, size, room);
        }
        ssize_t r = read (file.fd, bytes.get () + size, room - size);
        if (r < 0) {
            cannot_read (path, errno);
        }
        if (r == 0) {
            break;
        }
        size += r;
    }
    if (size > most) {
        too_large (path, most);
    }
    if (size == 0) {
        usage_failure (shown_name (path) + " is empty", "Give a file with something in it.");
    }
    return {std::move (bytes), static_cast<int32_t> (size)};
}

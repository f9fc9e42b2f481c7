#include "tools/parse/files.h"

#include "tools/show/report.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr size_t first_room = 1 << 18; // of the window, bytes

// Standard input need not be a file that can be opened by name.
static bool is_input (const std::string &path)
{
    return path == "-";
}

std::string shown_name (const std::string &path)
{
    return is_input (path) ? "standard input" : path;
}

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

file_window_t::descriptor_t::descriptor_t (const std::string &path)
    : fd (is_input (path) ? dup (STDIN_FILENO) : open (path.c_str (), O_RDONLY | O_CLOEXEC))
{}

file_window_t::descriptor_t::~descriptor_t ()
{
    if (fd >= 0) {
        close (fd);
    }
}

file_window_t::file_window_t (const std::string &path, size_t most)
    : path (path), most (most), file (path)
{
    struct stat about;
    if (file.fd < 0 || fstat (file.fd, &about) != 0) {
        cannot_read (path, errno);
    }
    // A small size may be none: the kernel's own files hold more than they say.
    off_t at = S_ISREG (about.st_mode) ? lseek (file.fd, 0, SEEK_CUR) : -1;
    has_size = at >= 0 && about.st_size - at > off_t (first_room);
    left = has_size ? about.st_size - at : 0;
    if (left > most) {
        too_large (path, most);
    }
}

// Over what was passed, or in a larger buffer.
void file_window_t::make_room ()
{
    if (front > 0) {
        memmove (bytes.get (), bytes.get () + front, back - front);
    } else {
        room = std::max (2 * room, first_room);
        std::unique_ptr<char[]> larger (new char[room]);
        std::copy_n (bytes.get (), back, larger.get ());
        bytes = std::move (larger);
    }
    back -= front;
    front = 0;
}

void file_window_t::read_on ()
{
    ssize_t r =
        read (file.fd, bytes.get () + back, has_size ? std::min (room - back, left) : room - back);
    if (r < 0) {
        cannot_read (path, errno);
    }
    back += r;
    size += r;
    left -= has_size ? r : 0;
    if (size > most) {
        too_large (path, most);
    }
    has_ended = has_size ? left == 0 : r == 0;
    if (r == 0) {
        end ();
    }
}

void file_window_t::end ()
{
    if (size == 0) {
        usage_failure (shown_name (path) + " is empty", "Give a file with something in it.");
    }
    if (left > 0) {
        usage_failure (shown_name (path) + " became shorter while it was read",
                       "Try again when nobody writes it.");
    }
}

std::string_view file_window_t::view (size_t wanted)
{
    while (back - front < wanted && !has_ended) {
        if (back == room) {
            make_room ();
        }
        read_on ();
    }
    return {bytes.get () + front, back - front};
}

void file_window_t::pass (size_t size)
{
    front += size;
}

size_t file_window_t::bytes_left ()
{
    return has_size ? back - front + left : view (most + 1).size ();
}

void file_window_t::pass_all ()
{
    while (!has_size && !has_ended) {
        pass (view (1).size ());
    }
}

std::string read_file (const std::string &path, size_t most)
{
    file_window_t file (path, most);
    return std::string (file.view (most + 1));
}

#include "tools/parse/files.h"

#include "tools/show/report.h"

#include <errno.h>
#include <fcntl.h>
#include <memory>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

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
                   "Check that it is the right file.");
}

std::string read_file (const std::string &path, size_t most)
{
    int fd = is_input (path) ? dup (STDIN_FILENO) : open (path.c_str (), O_RDONLY | O_CLOEXEC);
    std::string text;
    ssize_t r = fd < 0 ? -1 : 1;
    for (char piece[4096]; r > 0 && text.size () <= most;) {
        r = read (fd, piece, sizeof (piece));
        text.append (piece, r > 0 ? r : 0);
    }
    int error = errno;
    if (fd >= 0) {
        close (fd);
    }
    if (r < 0) {
        cannot_read (path, error);
    }
    if (text.size () > most) {
        too_large (path, most);
    }
    if (text.empty ()) {
        usage_failure (shown_name (path) + " is empty", "Give a file that is not empty.");
    }
    return text;
}

void read_lines (std::istream &text, const std::string &name,
                 const std::function<void (const std::string &)> &take)
{
    int number = 0;
    for (std::string line; std::getline (text, line);) {
        number++;
        line.erase (std::min (line.find ('#'), line.size ()));
        try {
            if (line.find_first_not_of (" \t\r\v\f") != line.npos) {
                take (line);
            }
        } catch (failure_t &failure) {
            failure.what = name + ":" + std::to_string (number) + ": " + failure.what;
            throw;
        }
    }
}

[[noreturn]] static void cannot_write (const std::string &path, int reason, int status)
{
    throw failure_t{status, "'" + path + "' cannot be written: " + strerror (reason),
                    "Give the name of a file, in a directory in which you may write."};
}

// The file that a link leads to: the link stays one.
static std::string target_of (const std::string &path)
{
    std::unique_ptr<char, decltype (&free)> target (realpath (path.c_str (), nullptr), free);
    return target ? target.get () : path;
}

void check_writable (const std::string &path)
{
    std::string target = target_of (path);
    size_t slash = target.rfind ('/');
    std::string folder = slash == target.npos ? "." : target.substr (0, slash + 1);
    struct stat about = {};
    bool exists = stat (target.c_str (), &about) == 0;
    if (exists && S_ISDIR (about.st_mode)) {
        cannot_write (path, EISDIR, status_usage);
    }
    const std::string &written = exists && !S_ISREG (about.st_mode) ? target : folder;
    if (path != "-" && access (written.c_str (), W_OK) != 0) {
        cannot_write (path, errno, status_usage);
    }
}

// All of it, and on the disk where there is one. Returns an errno; 0 when it is done.
static int write_all (int fd, const std::string &text)
{
    for (size_t at = 0; at < text.size ();) {
        ssize_t w = write (fd, text.data () + at, text.size () - at);
        if (w < 0 && errno != EINTR) {
            return errno;
        }
        at += w > 0 ? w : 0;
    }
    return fsync (fd) == 0 || errno == EINVAL || errno == EROFS ? 0 : errno;
}

void write_file (const std::string &path, const std::string &text)
{
    std::string target = target_of (path);
    struct stat about = {};
    bool exists = stat (target.c_str (), &about) == 0;
    bool is_direct = exists && !S_ISREG (about.st_mode);
    std::string beside = is_direct ? target : target + ".XXXXXX";
    mode_t mask = umask (0);
    umask (mask);
    int fd = is_direct ? open (target.c_str (), O_WRONLY | O_CLOEXEC)
                       : mkostemp (beside.data (), O_CLOEXEC);
    if (fd < 0) {
        cannot_write (path, errno, status_failed);
    }
    int error = write_all (fd, text);
    if (!is_direct && error == 0) {
        bool is_done = fchmod (fd, exists ? about.st_mode & 07777 : 0666 & ~mask) == 0 &&
                       rename (beside.c_str (), target.c_str ()) == 0;
        error = is_done ? 0 : errno;
    }
    if (!is_direct && error != 0) {
        unlink (beside.c_str ());
    }
    if (close (fd) != 0 || error != 0) {
        cannot_write (path, error != 0 ? error : errno, status_failed);
    }
}

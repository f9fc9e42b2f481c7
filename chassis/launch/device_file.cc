#include "chassis/launch/device_file.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

constexpr const char *scanp_path = "/dev/scanp";
constexpr const char *mem_path = "/dev/mem";
constexpr int most_links = 40; // as the kernel has it

static std::string link_target (const std::string &path)
{
    char target[PATH_MAX];
    ssize_t length = readlink (path.c_str (), target, sizeof (target));
    return std::string (target, length < 0 ? 0 : static_cast<size_t> (length));
}

static std::string descriptor_path (int fd)
{
    return "/proc/self/fd/" + std::to_string (fd);
}

std::string device_file_name (const device_file_t &file)
{
    std::string path = file.device == device_t::mem ? mem_path : scanp_path;
    return path + " " + std::to_string (file.flags);
}

static std::optional<device_file_t> parse_target (const std::string &target)
{
    for (device_t device : {device_t::scanp, device_t::mem}) {
        const char *path = device == device_t::mem ? mem_path : scanp_path;
        int flags, end = 0;
        std::string format = std::string ("/memfd:") + path + " %d (deleted)%n";
        if (sscanf (target.c_str (), format.c_str (), &flags, &end) == 1 && end > 0) {
            return device_file_t{device, flags};
        }
    }
    return std::nullopt;
}

// The full name after all links, whether or not there is such a file; empty if its directory is
// missing. A memory file's is what its descriptor's link says.
static std::string full_name (int directory, std::string path, bool follow)
{
    if (path[0] != '/') {
        path = (directory == AT_FDCWD ? "." : descriptor_path (directory)) + "/" + path;
    }
    for (int links = 0; links < most_links; links++) {
        size_t slash = path.rfind ('/');
        char parent[PATH_MAX];
        if (realpath (path.substr (0, slash + 1).c_str (), parent) == nullptr) {
            return "";
        }
        std::string parent_name = strcmp (parent, "/") == 0 ? "/" : std::string (parent) + "/";
        std::string name = parent_name + path.substr (slash + 1);
        std::string target = link_target (name);
        if (target.empty () || !follow) {
            return name;
        }
        path = target[0] == '/' ? target : parent_name + target;
        if (parse_target (path)) {
            return path;
        }
    }
    return "";
}

static std::optional<device_t> device_of_name (const std::string &name)
{
    if (name == scanp_path || name == mem_path) {
        return name == mem_path ? device_t::mem : device_t::scanp;
    }
    auto file = parse_target (name);
    return file ? std::optional (file->device) : std::nullopt;
}

std::optional<device_t> device_at (int directory, const char *path, bool follow)
{
    int error = errno;
    std::optional<device_t> device;
    if (path != nullptr && path[0] != '\0') {
        device = device_of_name (full_name (directory, path, follow));
    }
    errno = error;
    return device;
}

// Reading the link is slow: the last device of a thread is recognised by its file's number.
std::optional<device_file_t> device_file_of (int fd)
{
    static thread_local struct stat last;
    static thread_local std::optional<device_file_t> file;
    int error = errno;
    struct stat now;
    if (fd < 0 || fstat (fd, &now) != 0) {
        errno = error;
        return std::nullopt;
    }
    if (!file || now.st_ino != last.st_ino || now.st_dev != last.st_dev) {
        file = parse_target (link_target (descriptor_path (fd)));
        last = now;
    }
    errno = error;
    return file;
}

#include "chassis/launch/real_memory.h"

#include "chassis/bus/one_line.h"

#include <errno.h>
#include <filesystem>
#include <linux/capability.h>
#include <stdexcept>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

// Memory, kernel memory and ports are the character devices 1:1, 1:2 and 1:4.
static bool leads_to_memory (const std::filesystem::path &path)
{
    struct stat status;
    if (stat (path.c_str (), &status) != 0 || !S_ISCHR (status.st_mode) ||
        major (status.st_rdev) != 1) {
        return false;
    }
    unsigned number = minor (status.st_rdev);
    return number == 1 || number == 2 || number == 4;
}

constexpr uint32_t CAPABILITY = 1u << CAP_SYS_RAWIO;

// What a program that is executed does not get, this process may keep, and the other way round for
// root: so from the bounding set and from those of this process. Without the right to drop it
// from the bounding set, nothing that is executed gets any new capability.
static bool drop_capability ()
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2] = {};
    if (syscall (SYS_capget, &header, sets) != 0) {
        return false;
    }
    bool is_bounded = prctl (PR_CAPBSET_DROP, CAP_SYS_RAWIO, 0, 0, 0) == 0;
    if (!is_bounded && !(sets[0].permitted & CAPABILITY) && geteuid () != 0) {
        return true; // an ordinary user
    }
    for (uint32_t *set : {&sets[0].effective, &sets[0].permitted, &sets[0].inheritable}) {
        *set &= ~CAPABILITY;
    }
    return syscall (SYS_capset, &header, sets) == 0 &&
           (is_bounded || prctl (PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
}

void give_up_real_memory ()
{
    for (const auto &entry : std::filesystem::directory_iterator ("/proc/self/fd")) {
        if (leads_to_memory (entry.path ())) {
            throw std::runtime_error ("descriptor " + entry.path ().filename ().string () +
                                      " leads to the memory of this machine; close it");
        }
    }
    if (!drop_capability ()) {
        complain (std::string ("note: CAP_SYS_RAWIO cannot be given up: ") + strerror (errno) +
                  "; raw system calls of the program may reach this machine's /dev/mem, unless an "
                  "ordinary user runs it");
    }
}

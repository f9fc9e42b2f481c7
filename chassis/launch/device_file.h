// The devices as the program sees them: by their names, and by descriptors that lead to them.
#pragma once

#include <optional>
#include <string>

enum class device_t {
    scanp,
    mem
};

// The device that this path names, through whatever directories and links, whether or not there is
// such a file; nothing for any other name. `directory` as for openat; `follow`: whether a link at
// the end is followed.
std::optional<device_t> device_at (int directory, const char *path, bool follow = true);

// What a descriptor of an emulated device stands for. Its file is nothing that the system could
// read, write or map: what the door does not answer fails.
struct device_file_t {
    device_t device;
    int flags; // as opened
};

// The name of the memory file behind such a descriptor: all who inherit or copy it know it by that.
std::string device_file_name (const device_file_t &file);
std::optional<device_file_t> device_file_of (int fd);

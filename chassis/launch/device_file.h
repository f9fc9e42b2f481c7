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

// A descriptor of an emulated device. The system cannot read, write or map its file: calls that the
// door does not answer fail.
struct device_file_t {
    device_t device;
    int flags; // as opened
};

// The name of such a descriptor's memory file, by which copies and inherited ones are recognised.
std::string device_file_name (const device_file_t &file);
std::optional<device_file_t> device_file_of (int fd);

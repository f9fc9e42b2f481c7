// The devices as the program sees them: by their names, and by descriptors that lead to them.
#pragma once

#include <optional>
#include <string>

enum class device_t {
    scanp,
    mem,
    foreign, // another door to this machine's memory: no program gets it
};

// The device that opening this path would reach, by whatever name; nothing for any other file.
// `directory` as for openat; `follow`: whether a link at the end is followed.
std::optional<device_t> device_at (int directory, const char *path, bool follow = true);

// Whether a descriptor leads to the memory of this machine itself.
bool is_real_memory (int fd);

// What a descriptor of an emulated device stands for. Its file is nothing that the system could
// read, write or map: what the door does not answer fails.
struct device_file_t {
    device_t device; // scanp or mem
    int flags;       // as opened
};

// The name of the memory file behind such a descriptor: all who inherit or copy it know it by that.
std::string device_file_name (const device_file_t &file);
std::optional<device_file_t> device_file_of (int fd);

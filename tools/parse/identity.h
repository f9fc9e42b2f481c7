// The build identity of firmware images and of what cards answer.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string>
#include <string_view>

constexpr size_t most_image = size_t (256) << 20; // bytes

struct identity_t {
    std::string type;
    std::string date; // has all six parts, and a month
};

// The first whole identity of the file. Throws failure_t for a file that cannot be used or has
// none.
identity_t read_identity (const std::string &path);

// The first whole identity in the bytes. Returns what is wrong with them; "" when there is one.
std::string find_identity (std::string_view bytes, identity_t *found);

// -1 when the first was built earlier, 1 when later, 0 at the same time.
int32_t compare_builds (const identity_t &a, const identity_t &b);

// The build identity of firmware images, and of what cards answer: four texts, each ended by a NUL.
//
//   Type: ABC
//   Compiled on:
//   Jan 12 2004
//   10:22:33
#pragma once

#include <stdint.h>
#include <string>
#include <string_view>

struct q5_scan_identity_t {
    std::string type;    // "ABC"
    std::string date;    // "Jan 12 2004 10:22:33": a month, and five numbers
    std::string problem; // why there is none; "" when it was found
    int error = 0;       // errno, of a file that could not be read

    bool found () const
    {
        return problem.empty ();
    }
};

// The first complete identity in the bytes.
q5_scan_identity_t q5_scan_find_identity (std::string_view bytes);

// The first complete identity in a file or pipe of any size, by name or from a descriptor, which
// stays open. Never keeps more than half a megabyte of it.
q5_scan_identity_t q5_scan_read_identity (const std::string &path);
q5_scan_identity_t q5_scan_read_identity (int fd);

// -1 when the first was built earlier, 1 when later, 0 at the same time; both were found.
int32_t q5_scan_compare_builds (const q5_scan_identity_t &a, const q5_scan_identity_t &b);

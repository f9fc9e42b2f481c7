// A property that must hold, in fuzz targets and in sweeps, and one that every message has.
#pragma once

#include <algorithm>
#include <iostream>
#include <stdint.h>
#include <stdlib.h>
#include <string>
#include <utility>

// Aborts with the property's text, and what else may help, unless the property is true.
#define REQUIRE(property) REQUIRE_SHOWING (property, "")
#define REQUIRE_SHOWING(property, shown)                                                           \
    if (!(property)) {                                                                             \
        std::cerr << __FILE__ << ":" << __LINE__ << ": not so: " #property "\n"                    \
                  << (shown) << "\n";                                                              \
        abort ();                                                                                  \
    }

// What a message and a line of output are, whatever the input: one line, no control characters, nor
// those of Unicode's second block.
inline bool is_one_line (const std::string &line, char allowed = ' ')
{
    uint8_t before = 0;
    return std::none_of (line.begin (), line.end (), [&] (uint8_t c) {
        bool is_second = std::exchange (before, c) == 0xC2 && (c & 0xE0) == 0x80;
        return is_second || ((c < 0x20 || c == 0x7F) && c != allowed);
    });
}

// Output of such lines, each with its end.
inline bool is_lines (const std::string &text)
{
    return is_one_line (text, '\n') && (text.empty () || text.back () == '\n');
}

// Cases kept as a file of lines "INPUT => OUTPUT", in which \n, \0 and \xNN are bytes.
#pragma once

#include "base/hex.h"
#include "tests/expected.h"
#include "tests/support.h"

#include <functional>
#include <sstream>

inline std::string unescaped (const std::string &text)
{
    std::string bytes;
    for (size_t i = 0; i < text.size (); i++) {
        char next = text[i] == '\\' ? text[++i] : '\1';
        if (next == 'x') {
            bytes += static_cast<char> (std::stoi (text.substr (i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            bytes += next == 'n' ? '\n' : next == '0' ? '\0' : text[i];
        }
    }
    return bytes;
}

inline std::string escaped (const std::string &bytes)
{
    std::string text;
    for (unsigned char c : bytes) {
        char hex[5];
        snprintf (hex, sizeof (hex), c >= ' ' && c < 0x7F && c != '\\' ? "%c" : "\\x%02x", c);
        text += c == '\n' ? "\\n" : c == '\0' ? "\\0" : hex;
    }
    return text;
}

// Each input gives the output after it. A line that begins with # is a comment.
inline void expect_cases (const std::string &file,
                          const std::function<std::string (const std::string &)> &output_of)
{
    std::ifstream lines (Q5_EXPECTED "/" + file);
    std::string text;
    for (std::string line; std::getline (lines, line);) {
        size_t end = line[0] == '#' ? line.npos : line.find (" =>");
        text += line.substr (0, end);
        if (end != line.npos) {
            text += " => " + escaped (output_of (unescaped (line.substr (0, end))));
        }
        text += "\n";
    }
    expect_file (file, text);
}

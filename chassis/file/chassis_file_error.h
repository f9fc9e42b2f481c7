// What is wrong with a chassis file.
#pragma once

#include "chassis/bus/one_line.h"

#include <stdexcept>
#include <string>

// what() is one line: "FILE:LINE: KEY: what was found and what was expected", with "TOML" for the
// key when the text is not TOML at all, and "FILE: why" when there is no text to read.
class chassis_file_error_t : public std::runtime_error {
  public:
    explicit chassis_file_error_t (const std::string &what) : std::runtime_error (one_line (what))
    {}
};

// The file that a trace goes to, line by line; a gap is marked.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <string>

class trace_file_t {
  public:
    // Does not own the file. `brgclk`: Hz.
    trace_file_t (FILE *file, uint32_t brgclk) : file_ (file), brgclk_ (brgclk) {}

    // Writes "SECONDS  line" and an end of line, flushed. When that fails, the first time with a
    // line on standard error, the next line that can be written follows one that says how many
    // are missing.
    void put (uint64_t tick, const std::string &line);

  private:
    FILE *file_;
    uint32_t brgclk_;
    uint64_t missing_ = 0; // lines
    bool complained_ = false;
};

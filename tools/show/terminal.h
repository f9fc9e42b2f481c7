// Standard output as a place where the same lines are shown again and again.
#pragma once

#include <stddef.h>
#include <string>
#include <vector>

// Whether the descriptor is a terminal that knows control sequences: not one of TERM=dumb.
bool has_controls (int fd);

// Columns of the screen that output is for: those of the environment's COLUMNS, else of the
// terminal that standard output is; 0 without one: any number.
size_t output_width ();

class terminal_t {
  public:
    terminal_t ();

    // On a terminal with control sequences, in place of what was shown before, cut to its size;
    // elsewhere after it, with an empty line between.
    void show (const std::vector<std::string> &lines);

  private:
    const bool in_place;
    bool shown = false;
};

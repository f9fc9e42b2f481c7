// Standard output as a place where the same lines are shown again and again.
#pragma once

#include <string>
#include <vector>

class terminal_t {
  public:
    terminal_t ();

    // On a terminal, in place of what was shown before, cut to its width and height; elsewhere
    // behind it, with an empty line between.
    void show (const std::vector<std::string> &lines);

  private:
    const bool in_place;
    bool shown = false;
};

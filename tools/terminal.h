// Standard output as a place where the same lines are shown again and again.
#pragma once

#include <string>
#include <vector>

// From its creation to its end, Ctrl-C and the signals that end a session only leave a note. One
// at a time.
class terminal_t {
  public:
    terminal_t ();
    ~terminal_t ();
    terminal_t (const terminal_t &) = delete;

    // On a terminal, in place of what was shown before, cut to its width and height; elsewhere
    // behind it, with an empty line between.
    void show (const std::vector<std::string> &lines);

    // Returns early, within a tenth of a second, when interrupted.
    void pause (double seconds) const;
    bool interrupted () const;
    // Can be read once interrupted; -1 without it.
    int interrupted_fd () const;

  private:
    const bool in_place;
    bool shown = false;
};

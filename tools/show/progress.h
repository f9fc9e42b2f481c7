// How far a long exchange is: one line on standard error, if that is a terminal.
#pragma once

#include <stddef.h>

class progress_t {
  public:
    progress_t ();
    // Removes the line.
    ~progress_t ();
    progress_t (const progress_t &) = delete;

    void show (size_t done, size_t all);
    // Until the next show; other output may follow.
    void hide ();

  private:
    const bool is_on;
    bool is_shown = false;
};

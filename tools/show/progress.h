// The progress of a long exchange: one line on standard error, if that is a terminal, until the
// end.
#pragma once

#include <stddef.h>

class progress_t {
  public:
    explicit progress_t (size_t all);
    ~progress_t ();
    progress_t (const progress_t &) = delete;

    void advance (size_t more = 1);
    bool has_begun () const
    {
        return done > 0;
    }

  private:
    const bool is_on;
    const size_t all;
    size_t done = 0;
};

// Ctrl-C, and the other signals that end a session, as a flag that can be polled and waited for.
#pragma once

#include <chrono>

// While one exists these signals only leave the note. One at a time.
class interrupt_t {
  public:
    interrupt_t ();
    ~interrupt_t ();
    interrupt_t (const interrupt_t &) = delete;

    bool seen () const;
    // Can be read once a signal was seen; -1 when the system has no descriptor for it.
    int fd () const;
    // Waits, no longer than until a signal.
    void pause (std::chrono::milliseconds time) const;
};

// The steps of an exchange on a socket, each bounded in time. Not part of the public interface.
#pragma once

#include <chrono>
#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>

// A moment on the monotonic clock.
class q5_scan_deadline_t {
  public:
    // `limit` from now; never, when that is 0 or less.
    explicit q5_scan_deadline_t (std::chrono::milliseconds limit = {});

    bool has_passed () const;
    // What is left, rounded up: 0 for ever, else at least 1 ms.
    std::chrono::milliseconds left () const;
    // The same as poll takes it: -1 for ever, 0 when it has passed.
    int poll_timeout () const;
    bool operator<(const q5_scan_deadline_t &other) const
    {
        return moment < other.moment;
    }

  private:
    std::chrono::steady_clock::time_point moment;
};

enum class q5_scan_step_t {
    done,
    ended, // the stream, before everything was received
    failed,
    timed_out,
    cancelled
};

// A descriptor that it does not own, and what bounds the waiting on it. Signals do not end a step.
struct q5_scan_wire_t {
    int32_t fd = -1;
    int32_t cancel_fd = -1;      // see q5_scan_settings_t
    q5_scan_deadline_t total;    // of the whole call
    q5_scan_deadline_t deadline; // of this step
    int error = 0;               // errno of a step that failed
    bool has_begun = false;      // a byte was received

    // Connects a non-blocking socket.
    q5_scan_step_t connect (const sockaddr_in &address);
    // All bytes or none count; any kind of socket.
    q5_scan_step_t send (const void *bytes, size_t size);
    q5_scan_step_t receive (void *bytes, size_t size);
    bool is_cancelled () const;
    // Until one of the poll events, at most until a deadline; sometimes less.
    q5_scan_step_t wait (short events);

  private:
    q5_scan_step_t fail ();
    q5_scan_step_t wait_after_error (short events);
};

// The steps of an exchange on a socket, each bounded in time. Not part of the public face.
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
    // What is left, rounded up, as poll takes it: -1 for ever.
    int poll_timeout () const;

  private:
    bool is_set;
    std::chrono::steady_clock::time_point moment;
};

enum class q5_scan_step_t {
    done,
    ended, // the stream, before all was received
    failed,
    timed_out,
    cancelled
};

// A descriptor that it does not own, and what bounds the waiting on it. Signals do not end a step.
struct q5_scan_wire_t {
    int32_t fd = -1;
    int32_t cancel_fd = -1; // see q5_scan_settings_t
    q5_scan_deadline_t deadline;
    int error = 0;          // errno of a step that failed
    bool has_begun = false; // a byte was received

    // Connects a socket that does not block.
    q5_scan_step_t connect (const sockaddr_in &address);
    // All bytes or none count; any kind of socket.
    q5_scan_step_t send (const void *bytes, size_t size);
    q5_scan_step_t receive (void *bytes, size_t size);
    // Until one of the poll events, at most until the deadline; sometimes less.
    q5_scan_step_t wait (short events);

  private:
    q5_scan_step_t fail ();
    q5_scan_step_t wait_after_error (short events);
};

// Finds the host within the deadline. Returns failed for one that is not known and leaves
// kp_resolve's h_errno in `host_error`; 0 there: the look-up could not begin, wire.error tells why.
q5_scan_step_t q5_scan_resolve (q5_scan_wire_t &wire, const char *host, bool may_block,
                                in_addr *address, int *host_error);

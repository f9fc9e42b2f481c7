// A daemon that may do anything, in the place of the network: what it sends lies in `wire`, for all
// connections, one behind the other. No call waits: time passes only where a program would have
// waited.
#pragma once

#include "fuzz/wire.h"

constexpr int cancel_fd = wire_fd + 1;

struct peer_t {
    int refusal = 0;        // errno of a connection: EINPROGRESS for ever
    int ending = 0;         // errno behind what it sends: 0 its end, EAGAIN silence
    uint8_t hiccup = 0;     // so many calls go well, the next one fails for now; 0: all go well
    uint8_t cancels_at = 0; // the poll at which the program is told to stop; 0: none
    // A program without time-outs would wait for ever: it is told that poll failed.
    bool has_time_outs = true;
    int num_open = 0, num_calls = 0, num_polls = 0;
};
extern peer_t peer;

// How it behaves; then comes what it sends.
void read_peer (input_t &input);
// The same once more.
void restart_peer ();

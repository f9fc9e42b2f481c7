// A daemon that may do anything, in the place of the network: what it sends is in `wire`, for all
// connections, one after the other. No call waits: time passes only where a program would have
// waited, and without end it may not.
#pragma once

#include "fuzz/fuzz.h"
#include "tests/wire.h"

// How it behaves; then comes what it sends.
void read_peer (input_t &input);

// The steady clock, in nanoseconds.
int64_t peer_time ();

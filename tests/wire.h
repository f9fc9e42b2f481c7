// A connection in memory: the descriptor `wire_fd` reads what a peer has sent, and writes what it
// will receive. Programs that link this have their read and write wrapped; other descriptors are
// the system's.
#pragma once

#include "tests/support.h"

constexpr int wire_fd = 1 << 20;

struct wire_t {
    bytes_t sent;            // by the peer, who then ends the stream
    size_t chunk = SIZE_MAX; // bytes that one call moves at the most, at least 1
    size_t room = SIZE_MAX;  // bytes that the peer takes before it leaves
    size_t num_read = 0;
    bytes_t received; // by the peer
};
extern wire_t wire;

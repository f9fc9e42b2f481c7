// Every count of requests with every number of bytes really sent, and a peer that goes at each byte
// of the replies: sessions in memory, on a stubbed transfer, against the model that the fuzz
// targets have.
#include "tests/served_session.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <numeric>

constexpr size_t longest = 8 + 16 * 101 + 4094;

// `count` requests with 4094 transmit bytes in all, and some more: transfers that fail, that answer
// less or more than is wanted, and claims and releases between them.
static bytes_t batch_of (int32_t count)
{
    int32_t size = count < 0 || count > 101 ? 0 : count, rest = 4094;
    bytes_t batch = words ({-7, count});
    for (int32_t i = 0; i < size; i++) {
        int32_t command = i % 7 == 0 ? 1 : i % 7 == 3 ? 2 : 13 + 41 * i;
        int32_t txlen = i == size - 1 ? rest : i % 3 == 1 ? 0 : 4094 / size;
        batch = batch + words ({i % 32, command, i * 11 % 60, txlen});
        rest -= txlen;
    }
    while (batch.size () < longest) {
        batch.push_back (static_cast<uint8_t> (batch.size () * 31 >> 3));
    }
    return batch;
}

static void serve (const bytes_t &batch, size_t sent, size_t room = SIZE_MAX)
{
    wire = {};
    wire.sent.assign (batch.begin (), batch.begin () + sent);
    wire.room = room;
    transfers.clear ();
    server.owner_id = model.owner = 0;
    serve_peer ();
}

TEST (session_sweep, runs_a_batch_only_when_the_whole_of_it_has_come)
{
    std::vector<int32_t> counts (102);
    std::iota (counts.begin (), counts.end (), 0);
    // Some of them times 16 would wrap to a small number.
    counts.insert (counts.end (),
                   {-1, INT_MIN, -0x7FFFFFF0, -0x6FFFFFFF, 102, 0x10000001, INT_MAX});
    const size_t step = getenv ("Q5_FULL_SWEEP") ? 1 : Q5_SWEEP_STEP;
    for (int32_t count : counts) {
        const bytes_t batch = batch_of (count);
        for (size_t sent = 0; sent <= longest; sent += step) {
            serve (batch, sent);
        }
    }
}

TEST (session_sweep, stops_where_the_client_is_gone_and_what_ran_stays_done)
{
    const bytes_t batch = batch_of (60);
    serve (batch, longest);
    for (size_t room = 0, all = wire.received.size (); room < all; room++) {
        serve (batch, longest, room);
    }
}

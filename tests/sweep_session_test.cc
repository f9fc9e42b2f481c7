// Every count of requests with every number of bytes really sent: sessions in memory, on a stubbed
// transfer, against a small model of the protocol.
#include "scan/q5_scan_server.h"
#include "scanp/scan_port.h"
#include "tests/support.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

constexpr size_t longest = 8 + 16 * 101 + 4094, all = SIZE_MAX;

// A batch and what becomes of it. Bytes that do not belong to it follow.
struct model_t {
    bytes_t batch, replies;
    std::vector<std::pair<size_t, size_t>> calls; // of the transfer: where header and data stand
    size_t end;                                   // of the batch
    int32_t owner = 0;                            // behind it
    std::vector<std::pair<size_t, const char *>> refusals; // of one that ends before
};
static model_t model;
static size_t sent, taken, num_calls, num_wrong;
static bytes_t written;

static int32_t result_of (int32_t command)
{
    return command % 50 - 10;
}

// `count` requests with 4094 transmit bytes in all: transfers that fail, that answer less or more
// than is wanted, and claims and releases between them.
static void make_model (int32_t count)
{
    int32_t size = count < 0 || count > 101 ? 0 : count, rest = 4094;
    uint8_t stale = 0xEE;
    model = {words ({-7, count}), {}, {}, size_t (8 + 16 * size), 0, {}};
    model.refusals = {
        {4, "q5_scan_server.cc:61 (r == sizeof (id))"},
        {8, "q5_scan_server.cc:68 (r == sizeof (num_requests))"},
        {count < 1 ? all : 0, "kp_literate.cc:12 (fd >= 0 && buffer && length > 0)"},
        {count > 100 ? all : 0, "q5_scan_server.cc:72 (num_requests <= MAX_REQUESTS)"},
        {model.end, "q5_scan_server.cc:75 (r)"}};
    for (int32_t i = 0; i < size; i++) {
        int32_t command = i % 7 == 0 ? 1 : i % 7 == 3 ? 2 : 13 + 41 * i;
        int32_t txlen = i == size - 1 ? rest : i % 3 == 1 ? 0 : 4094 / size;
        int32_t rxlen = i * 11 % 60, result = 1;
        if (command > 2) {
            model.calls.push_back ({model.batch.size (), model.end});
            result = result_of (command);
            stale = result >= 0 && rxlen > 0 ? uint8_t (i % 32) : stale;
        }
        model.batch = model.batch + words ({i % 32, command, rxlen, txlen});
        model.owner = command == 1 ? -7 : command == 2 ? 0 : model.owner;
        model.replies = model.replies + words ({result}) +
                        bytes_t (std::max (std::min (result, rxlen), 0), stale);
        model.end += txlen;
        rest -= txlen;
    }
    model.refusals.push_back ({model.end, "q5_scan_server.cc:85 (r)"});
    for (size_t i = model.batch.size (); i < longest; i++) {
        model.batch.push_back (uint8_t (i * 31 >> 3));
    }
}

int32_t scan_port_transfer (uint32_t slot, int32_t command, int32_t txlen, const uint8_t *txbuf,
                            int32_t rxlen, uint8_t *rxbuf)
{
    auto [header, tx] = model.calls.at (num_calls++);
    const auto *m = reinterpret_cast<const scan_request_t *> (&model.batch[header]);
    num_wrong += int32_t (slot) != m->slot || command != m->command || txlen != m->txlen;
    num_wrong += rxlen != m->rxlen || memcmp (txbuf, &model.batch[tx], txlen) != 0;
    memset (rxbuf, slot, result_of (command) < 0 ? 0 : rxlen);
    return result_of (command);
}

extern "C" ssize_t read (int, void *bytes, size_t size)
{
    size = std::min (size, sent - taken);
    memcpy (bytes, &model.batch[taken], size);
    taken += size;
    return size;
}

extern "C" ssize_t write (int, const void *bytes, size_t size)
{
    const uint8_t *begin = static_cast<const uint8_t *> (bytes);
    written.insert (written.end (), begin, begin + size);
    return size;
}

// Returns how much is not as the model has it.
static size_t num_wrong_in_session (q5_scan_server_t &server)
{
    taken = num_calls = num_wrong = 0;
    written.clear ();
    server.rxbuf[0] = 0xEE;
    server.owner_id = 0;
    std::string message = message_of ([&] { server.handle (1000); });
    for (auto [end, refusal] : model.refusals) {
        if (sent < end) {
            return (message != std::string ("assertion failed. ") + refusal) + written.size () +
                   num_calls + server.owner_id + (server.rxbuf[0] != 0xEE) +
                   (taken != std::min<size_t> (sent, end == all ? 8 : end));
        }
    }
    return num_wrong + !message.empty () + (written != model.replies) + (taken != model.end) +
           (num_calls != model.calls.size ()) + (server.owner_id != model.owner);
}

TEST (session_sweep, runs_a_batch_only_when_the_whole_of_it_has_come)
{
    q5_scan_server_t server;
    // Some of them times 16 would wrap to a small number.
    std::vector<int32_t> counts = {-1, INT_MIN, -0x7FFFFFF0, -0x6FFFFFFF, 102, 0x10000001, INT_MAX};
    for (int32_t count = 0; count <= 101; count++) {
        counts.push_back (count);
    }
    const size_t step = getenv ("Q5_FULL_SWEEP") ? 1 : Q5_SWEEP_STEP;
    for (int32_t count : counts) {
        make_model (count);
        for (sent = 0; sent <= longest; sent += step) {
            ASSERT_EQ (num_wrong_in_session (server), 0u) << count << " requests, " << sent;
        }
    }
    printf ("%zu sessions\n", counts.size () * (longest / step + 1));
}

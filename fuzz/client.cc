// The client library on a hostile daemon: it takes the replies that came whole, no other, and has
// room for them.
#include "fuzz/peer.h"
#include "scan/q5_scan_batch.h"
#include "scan/q5_scan_client.h"

using requests_t = std::vector<q5_scan_request_t>;

// Takes the requests with their replies from the input, and makes the stream of them, some of which
// may be missing or too much. Returns how many are whole.
static size_t read_replies (input_t &input, requests_t &requests)
{
    std::vector<size_t> ends;
    for (q5_scan_request_t &r : requests) {
        r = {input.byte () % 32, input.word (), bytes_t (input.byte () % 40), input.word () & 4095};
        r.result = input.word ();
        r.rx.resize (std::clamp (r.result, 0, r.rxlen), input.byte ());
        append_word (wire.sent, r.result);
        wire.sent.insert (wire.sent.end (), r.rx.begin (), r.rx.end ());
        ends.push_back (wire.sent.size ());
    }
    uint32_t kept = input.word ();
    wire.sent.resize (kept % 2 ? kept / 2 % (wire.sent.size () + 9) : wire.sent.size ());
    return std::upper_bound (ends.begin (), ends.end (), wire.sent.size ()) - ends.begin ();
}

static size_t exchange_values (const requests_t &expected, int32_t id)
{
    requests_t requests = expected;
    q5_scan_settings_t settings;
    settings.id = id;
    settings.wait = std::chrono::seconds (1);
    settings.reply_timeout = std::chrono::minutes (1);
    size_t count = 0;
    q5_scan_outcome_t outcome =
        q5_scan_exchange (settings, requests, [&] (const q5_scan_request_t &reply) {
            const q5_scan_request_t &e = expected.at (count);
            REQUIRE (&reply == &requests[count++]);
            REQUIRE (reply.answered && reply.result == e.result && reply.rx == e.rx);
        });
    bool is_whole = count == requests.size ();
    REQUIRE (outcome.num_replies == int32_t (count) && outcome.answered () == is_whole);
    REQUIRE (outcome.text.empty () == is_whole && is_one_line (outcome.text));
    REQUIRE (is_whole || (!requests[count].answered && requests.back ().rx.empty ()));
    return count;
}

static bool execute_records (const requests_t &expected)
{
    std::vector<bytes_t> rooms;
    std::vector<q5_scan_command_t> c;
    for (const q5_scan_request_t &e : expected) {
        rooms.emplace_back (e.rxlen);
        c.push_back ({e.command, e.slot, 0, e.rxlen, nullptr, rooms.back ().data (), 0});
    }
    bool done = q5_scan_client_t ("127.0.0.1", 1).execute (c.size (), c.data ());
    for (size_t i = 0; i < c.size () && done; i++) {
        const bytes_t &rx = expected[i].rx;
        REQUIRE (c[i].result == expected[i].result);
        REQUIRE (std::equal (rx.begin (), rx.end (), rooms[i].begin ()));
    }
    return done;
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    read_peer (input);
    int32_t id = input.word ();
    requests_t expected (1 + input.byte () % 100);
    size_t count = read_replies (input, expected);
    // It may have taken too little of the batch to answer.
    REQUIRE (exchange_values (expected, id) == count || wire.received.size () == wire.room);
    wire.num_read = 0;
    bool is_whole = count == expected.size ();
    REQUIRE (execute_records (expected) == is_whole || wire.received.size () == wire.room);
    return 0;
}

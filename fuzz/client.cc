// The client library on a hostile daemon: it takes the replies that came whole, no other, and has
// room for them.
#include "client/batch.h"
#include "fuzz/peer.h"
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

static bool is_same (const requests_t &a, const requests_t &b, size_t count)
{
    return std::equal (a.begin (), a.begin () + count, b.begin (),
                       [] (auto &x, auto &y) { return x.result == y.result && x.rx == y.rx; });
}

static bool execute (requests_t requests, const requests_t &expected)
{
    std::vector<q5_scan_command_t> c;
    for (q5_scan_request_t &r : requests) {
        r.rx.resize (r.rxlen);
        c.push_back ({r.command, r.slot, 0, r.rxlen, nullptr, r.rx.data (), 0});
    }
    bool done = q5_scan_client_t ("127.0.0.1", 1).execute (c.size (), c.data ());
    for (size_t i = 0; i < c.size (); i++) {
        requests[i].result = c[i].result;
        requests[i].rx.resize (std::clamp (c[i].result, 0, c[i].rxlen));
    }
    REQUIRE (!done || is_same (requests, expected, c.size ()));
    return done;
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    read_peer (input);
    q5_scan_settings_t settings;
    settings.id = input.word ();
    settings.wait = std::chrono::seconds (1);
    settings.reply_timeout = std::chrono::minutes (1);
    requests_t expected (1 + input.byte () % 100);
    size_t whole = read_replies (input, expected);
    requests_t requests = expected;
    int64_t last_reply = peer_time ();
    q5_scan_outcome_t outcome = q5_scan_exchange (
        settings, requests, [&] (q5_scan_request_t &) { last_reply = peer_time (); });
    bool is_late = outcome.state == q5_scan_state_t::timed_out_sending ||
                   outcome.state == q5_scan_state_t::timed_out_waiting;
    REQUIRE (!is_late || peer_time () - last_reply >= INT64_C (60'000'000'000));
    size_t count = outcome.num_replies;
    REQUIRE (is_same (requests, expected, count));
    // It may have taken too little of the batch to answer.
    REQUIRE (count == whole || is_late || (count == 0 && wire.received.size () == wire.room));
    REQUIRE (outcome.answered () == (count == requests.size ()));
    REQUIRE (outcome.text.empty () == outcome.answered () && is_one_line (outcome.text));
    REQUIRE (outcome.answered () || requests.back ().rx.empty ());
    wire.num_read = 0;
    bool done = execute (requests, expected);
    REQUIRE (done == (whole == requests.size ()) || wire.received.size () == wire.room);
    return 0;
}

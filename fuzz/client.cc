// The client library on a hostile daemon: what it sends, and what it makes of the replies, against
// a simple reading of the same bytes.
#include "fuzz/peer.h"
#include "scan/q5_scan_claim.h"
#include "scan/q5_scan_client.h"

using requests_t = std::vector<q5_scan_request_t>;

static requests_t read_requests (input_t &input)
{
    requests_t requests (1 + input.byte () % 100);
    for (q5_scan_request_t &r : requests) {
        r = {input.byte () % 32, input.word (), bytes_t (input.byte () % 40), input.word () & 4095};
        r.rxlen += r.rxlen == 4095;
    }
    return requests;
}

static bytes_t batch_of (const requests_t &requests, int32_t id)
{
    bytes_t batch;
    size_t num_tx = 0;
    append_word (batch, id);
    append_word (batch, requests.size ());
    for (const q5_scan_request_t &r : requests) {
        for (int32_t word : {r.slot, r.command, r.rxlen, int32_t (r.tx.size ())}) {
            append_word (batch, word);
        }
        num_tx += r.tx.size ();
    }
    batch.resize (batch.size () + num_tx);
    return batch;
}

// The requests with the replies that are whole in what the daemon sends.
static requests_t answered (requests_t requests)
{
    const bytes_t &stream = wire.sent;
    size_t at = 0;
    for (q5_scan_request_t &r : requests) {
        size_t begin = at + 4;
        uint32_t word = 0;
        for (; at < std::min (begin, stream.size ()); at++) {
            word = word << 8 | stream[at];
        }
        at = begin + std::max (0, std::min (int32_t (word), r.rxlen));
        if (at > stream.size ()) {
            break;
        }
        r.answered = true;
        r.result = word;
        r.rx.assign (stream.begin () + begin, stream.begin () + at);
    }
    return requests;
}

// The first `count` requests have their replies.
static void require_replies (const requests_t &requests, size_t count, const requests_t &expected)
{
    REQUIRE (peer.num_open == 0 && count <= requests.size ());
    for (size_t i = 0; i < count; i++) {
        const q5_scan_request_t &r = requests[i], &e = expected[i];
        REQUIRE (e.answered && r.result == e.result && r.rx == e.rx);
    }
    // No reply that came whole is lost, unless the daemon was in the way.
    bool is_calm = peer.refusal + peer.hiccup + peer.cancels_at == 0 && wire.room == SIZE_MAX;
    REQUIRE (!is_calm || count == requests.size () || !expected[count].answered);
}

static void try_values (const q5_scan_settings_t &settings, requests_t requests)
{
    const requests_t expected = answered (requests);
    size_t count = 0;
    q5_scan_outcome_t outcome = q5_scan_exchange (
        settings, requests, [&] (auto &reply) { REQUIRE (&reply == &requests[count++]); });
    require_replies (requests, count, expected);
    const bytes_t batch = batch_of (requests, settings.id);
    REQUIRE (std::equal (wire.received.begin (), wire.received.end (), batch.begin ()));
    REQUIRE (count == 0 || wire.received.size () == batch.size ());
    REQUIRE (outcome.num_replies == int32_t (count));
    REQUIRE (outcome.answered () == (count == requests.size ()));
    REQUIRE (outcome.answered () == outcome.text.empty () && is_one_line (outcome.text));
    for (size_t i = 0; i < requests.size (); i++) {
        REQUIRE (requests[i].answered == (i < count) && (i < count || requests[i].rx.empty ()));
    }
}

static void try_records (requests_t requests, bool at_once)
{
    const requests_t expected = answered (requests);
    q5_scan_client_t client ("127.0.0.1", Q5_SCAN_PORT);
    std::vector<q5_scan_command_t> c;
    for (q5_scan_request_t &r : requests) {
        int32_t txlen = r.tx.size ();
        r.rx.resize (r.rxlen);
        c.push_back ({r.command, r.slot, txlen, r.rxlen, r.tx.data (), r.rx.data (), 0});
    }
    bool done = at_once ? client.execute_batch (c.size (), c.data ())
                        : client.execute (c.size (), c.data ());
    for (size_t i = 0; i < c.size () && done; i++) {
        requests[i].result = c[i].result;
        requests[i].rx.resize (std::clamp (c[i].result, 0, c[i].rxlen));
    }
    require_replies (requests, done ? c.size () : 0, done ? expected : requests);
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    read_peer (input);
    uint8_t how = input.byte ();
    q5_scan_settings_t settings;
    settings.connect_timeout = settings.reply_timeout = std::chrono::seconds (1);
    settings.wait = std::chrono::seconds (how & 1);
    settings.id = input.word ();
    settings.cancel_fd = cancel_fd;
    requests_t requests = read_requests (input);
    wire.sent = input.rest ();
    try_values (settings, requests);
    restart_peer ();
    q5_scan_claim_t (settings).release ();
    REQUIRE (peer.num_open == 0);
    restart_peer ();
    peer.has_time_outs = false;
    try_records (requests, how & 2);
    return 0;
}

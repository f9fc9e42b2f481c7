#include "client/batch.h"

#include "client/exchange.h"
#include "client/wire.h"

#include <algorithm>
#include <limits>

#define MODULE "q5_scan_batch.cc"

using requests_t = std::vector<q5_scan_request_t>;
using records_t = std::vector<q5_scan_command_t>;

constexpr std::chrono::milliseconds pause_between_tries (100);

q5_scan_request_t q5_scan_claim_request ()
{
    return {0, Q5_SCAN_CLAIM, {}, 0};
}

q5_scan_request_t q5_scan_release_request ()
{
    return {0, Q5_SCAN_RELEASE, {}, 0};
}

q5_scan_request_t q5_scan_short_request (int32_t slot, uint8_t first, uint8_t second,
                                         const std::vector<uint8_t> &bytes)
{
    ASSERT (40, bytes.size () <= Q5_SCAN_MAX_SHORT);
    q5_scan_request_t request = {slot, Q5_SCAN_SEND_SHORT, bytes, 0};
    request.tx.insert (request.tx.begin (), {first, second});
    return request;
}

static int32_t size_of (size_t size)
{
    return static_cast<int32_t> (std::min<size_t> (size, std::numeric_limits<int32_t>::max ()));
}

// Records that point into the requests; room to receive is made when the batch is known to be fit.
static records_t checked_records (requests_t &requests)
{
    static uint8_t some_room;
    records_t records;
    for (const q5_scan_request_t &r : requests) {
        records.push_back (
            {r.command, r.slot, size_of (r.tx.size ()), r.rxlen, r.tx.data (), &some_room, 0});
    }
    q5_scan_check_records (size_of (records.size ()), records.data ());
    for (size_t i = 0; i < requests.size (); i++) {
        requests[i].rx.assign (requests[i].rxlen, 0);
        records[i].rxbuf = requests[i].rx.data ();
    }
    return records;
}

// Leaves nothing in requests that were not answered, whatever happens.
struct cleaner_t {
    requests_t &requests;
    ~cleaner_t ()
    {
        for (q5_scan_request_t &request : requests) {
            if (!request.answered) {
                request.rx.clear ();
            }
        }
    }
};

static q5_scan_outcome_t exchange_once (const q5_scan_settings_t &settings, requests_t &requests,
                                        const q5_scan_on_reply_t &on_reply)
{
    for (q5_scan_request_t &request : requests) {
        request.answered = false;
        request.result = 0;
    }
    cleaner_t cleaner = {requests};
    records_t records = checked_records (requests);
    auto fill_in = [&] (int32_t i) {
        q5_scan_request_t &request = requests[i];
        request.answered = true;
        request.result = records[i].result;
        request.rx.resize (std::clamp (request.result, 0, request.rxlen));
        if (on_reply) {
            on_reply (request);
        }
    };
    return q5_scan_exchange_records (settings, size_of (records.size ()), records.data (), fill_in);
}

// Returns false when it was cancelled.
static bool pause (const q5_scan_settings_t &settings)
{
    q5_scan_wire_t wire = {-1, settings.cancel_fd, q5_scan_deadline_t (pause_between_tries)};
    q5_scan_step_t step = q5_scan_step_t::done;
    while (step == q5_scan_step_t::done) {
        step = wire.wait (0);
    }
    return step == q5_scan_step_t::timed_out;
}

q5_scan_outcome_t q5_scan_exchange (const q5_scan_settings_t &settings, requests_t &requests,
                                    const q5_scan_on_reply_t &on_reply)
{
    ASSERT (100, settings.port > 0 && settings.port <= 65535);
    bool tries_again = settings.wait.count () > 0;
    q5_scan_deadline_t end (settings.wait);
    q5_scan_outcome_t outcome = exchange_once (settings, requests, on_reply);
    while (outcome.state == q5_scan_state_t::dropped && tries_again && !end.has_passed ()) {
        if (!pause (settings)) {
            return {q5_scan_state_t::cancelled, 0, 0, "cancelled while waiting: " + outcome.text};
        }
        outcome = exchange_once (settings, requests, on_reply);
    }
    return outcome;
}

#include "client/batch.h"

#include "client/exchange.h"

#include <algorithm>

using requests_t = std::vector<q5_scan_request_t>;

constexpr std::chrono::milliseconds pause_between_tries (100);

q5_scan_request_t q5_scan_claim_request ()
{
    return {0, Q5_SCAN_CLAIM, {}, 0};
}

q5_scan_request_t q5_scan_release_request ()
{
    return {0, Q5_SCAN_RELEASE, {}, 0};
}

// Throws unless `value` is `least` to `most`.
static void check (const std::string &name, int64_t value, int64_t least, int64_t most)
{
    if (value < least || value > most) {
        throw exception_t ("%s is %lld, not %lld to %lld", name.c_str (),
                           static_cast<long long> (value), static_cast<long long> (least),
                           static_cast<long long> (most));
    }
}

q5_scan_request_t q5_scan_short_request (int32_t slot, uint8_t first, uint8_t second,
                                         const std::vector<uint8_t> &bytes)
{
    check ("the size of the short message", bytes.size (), 0, Q5_SCAN_MAX_SHORT);
    q5_scan_request_t request = {slot, Q5_SCAN_SEND_SHORT, bytes, 0};
    request.tx.insert (request.tx.begin (), {first, second});
    return request;
}

void q5_scan_check_batch (const q5_scan_settings_t &settings, const requests_t &requests)
{
    check ("the port", settings.port, 1, 65535);
    check ("the number of requests", requests.size (), 1, MAX_REQUESTS - settings.claims);
    size_t tx_count = 0;
    for (size_t i = 0; i < requests.size (); i++) {
        const q5_scan_request_t &r = requests[i];
        std::string name = "request " + std::to_string (i + 1) + ": the ";
        check (name + "slot", r.slot, 0, Q5_SCAN_NUM_SLOTS - 1);
        check (name + "transmit length", r.tx.size (), 0, Q5_SCAN_MAX_TX);
        check (name + "receive length", r.rxlen, 0, Q5_SCAN_MAX_RX);
        tx_count += r.tx.size ();
    }
    check ("the transmit length of all requests", tx_count, 0, Q5_SCAN_MAX_TX);
}

static q5_scan_outcome_t try_once (const q5_scan_settings_t &settings, q5_scan_deadline_t total,
                                   requests_t &requests, const q5_scan_on_reply_t &on_reply)
{
    for (q5_scan_request_t &request : requests) {
        request.answered = false;
        request.result = 0;
        request.rx.clear ();
    }
    return q5_scan_exchange_once (settings, total, requests, on_reply);
}

// Returns false when it was cancelled.
static bool pause (const q5_scan_settings_t &settings, q5_scan_deadline_t end)
{
    q5_scan_wire_t wire;
    wire.cancel_fd = settings.cancel_fd;
    wire.total = end;
    wire.deadline = q5_scan_deadline_t (pause_between_tries);
    q5_scan_step_t step = q5_scan_step_t::done;
    while (step == q5_scan_step_t::done) {
        step = wire.wait (0);
    }
    return step != q5_scan_step_t::cancelled;
}

q5_scan_outcome_t q5_scan_exchange (const q5_scan_settings_t &settings, requests_t &requests,
                                    const q5_scan_on_reply_t &on_reply)
{
    const q5_scan_deadline_t total (settings.total_timeout);
    return q5_scan_exchange_within (settings, total, requests, on_reply);
}

q5_scan_outcome_t q5_scan_exchange_within (const q5_scan_settings_t &settings,
                                           q5_scan_deadline_t total, requests_t &requests,
                                           const q5_scan_on_reply_t &on_reply)
{
    q5_scan_check_batch (settings, requests);
    const q5_scan_deadline_t end = std::min (total, q5_scan_deadline_t (settings.wait));
    q5_scan_outcome_t outcome = try_once (settings, total, requests, on_reply);
    while (outcome.state == q5_scan_state_t::dropped && settings.wait.count () > 0 &&
           !end.has_passed ()) {
        if (!pause (settings, end)) {
            return {q5_scan_state_t::cancelled, 0, 0, "cancelled while waiting: " + outcome.text};
        }
        if (!total.has_passed ()) {
            outcome = try_once (settings, total, requests, on_reply);
        }
    }
    return outcome;
}

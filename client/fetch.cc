#include "client/fetch.h"

#include <algorithm>
#include <iterator>

using requests_t = std::vector<q5_scan_request_t>;

requests_t q5_scan_fetch_requests (const q5_scan_fetch_t &fetch)
{
    requests_t requests;
    for (int32_t command : fetch.commands) {
        for (int32_t slot : fetch.slots) {
            requests.push_back ({slot, command});
        }
    }
    return requests;
}

// Sends the requests, in as many batches as they need, and adds them to `replies` as far as one was
// sent. Returns whether all were answered.
static bool exchange (const q5_scan_settings_t &settings, const requests_t &requests,
                      requests_t &replies, const q5_scan_on_reply_t &on_reply,
                      q5_scan_outcome_t *outcome)
{
    for (size_t at = 0; at < requests.size (); at += MAX_REQUESTS) {
        size_t end = std::min<size_t> (at + MAX_REQUESTS, requests.size ());
        requests_t batch (requests.begin () + at, requests.begin () + end);
        int32_t before = outcome->num_replies;
        *outcome = q5_scan_exchange (settings, batch, on_reply);
        outcome->num_replies += before;
        std::move (batch.begin (), batch.end (), std::back_inserter (replies));
        if (!outcome->answered ()) {
            return false;
        }
    }
    return true;
}

// The slots of the last `count` replies that are no failure.
static std::vector<int32_t> answering (const requests_t &replies, size_t count)
{
    std::vector<int32_t> slots;
    for (auto reply = replies.end () - count; reply != replies.end (); ++reply) {
        if (reply->result >= 0) {
            slots.push_back (reply->slot);
        }
    }
    return slots;
}

q5_scan_outcome_t q5_scan_fetch (const q5_scan_settings_t &settings, const q5_scan_fetch_t &fetch,
                                 requests_t &replies, const q5_scan_on_reply_t &on_reply)
{
    replies.clear ();
    q5_scan_outcome_t outcome;
    if (!fetch.only_answering) {
        exchange (settings, q5_scan_fetch_requests (fetch), replies, on_reply, &outcome);
        return outcome;
    }
    q5_scan_fetch_t round = {fetch.slots, {}, false};
    for (int32_t command : fetch.commands) {
        round.commands = {command};
        requests_t requests = q5_scan_fetch_requests (round);
        if (!exchange (settings, requests, replies, on_reply, &outcome)) {
            break;
        }
        round.slots = answering (replies, requests.size ());
    }
    return outcome;
}

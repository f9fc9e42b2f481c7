#include "client/fetch.h"

#include "client/exchange.h"

#include <algorithm>
#include <iterator>

using requests_t = std::vector<q5_scan_request_t>;

// Command by command.
static requests_t requests_for (const q5_scan_selection_t &selection)
{
    requests_t requests;
    for (int32_t command : selection.commands) {
        for (int32_t slot : selection.slots) {
            requests.push_back ({slot, command});
        }
    }
    return requests;
}

namespace {

// The batches of one fetch, all within its total limit.
struct fetch_t {
    const q5_scan_settings_t &settings;
    const q5_scan_deadline_t total;
    const q5_scan_on_reply_t &on_reply;
    requests_t &replies;
    q5_scan_outcome_t outcome = {};

    // Whether all were answered. Adds the requests to `replies` as far as they were sent.
    bool exchange (const requests_t &requests);
};

} // namespace

bool fetch_t::exchange (const requests_t &requests)
{
    const size_t most = MAX_REQUESTS - settings.claims;
    for (size_t at = 0; at < requests.size () && outcome.answered (); at += most) {
        size_t end = std::min (at + most, requests.size ());
        requests_t batch (requests.begin () + at, requests.begin () + end);
        int32_t before = outcome.num_replies;
        outcome = q5_scan_exchange_within (settings, total, batch, on_reply);
        outcome.num_replies += before;
        std::move (batch.begin (), batch.end (), std::back_inserter (replies));
    }
    return outcome.answered ();
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

q5_scan_outcome_t q5_scan_fetch (const q5_scan_settings_t &settings,
                                 const q5_scan_selection_t &selection, requests_t &replies,
                                 const q5_scan_on_reply_t &on_reply)
{
    replies.clear ();
    fetch_t fetch = {settings, q5_scan_deadline_t (settings.total_timeout), on_reply, replies};
    if (!selection.only_answering) {
        fetch.exchange (requests_for (selection));
        return fetch.outcome;
    }
    q5_scan_selection_t round = {selection.slots, {}, false};
    for (int32_t command : selection.commands) {
        round.commands = {command};
        requests_t requests = requests_for (round);
        if (!fetch.exchange (requests)) {
            break;
        }
        round.slots = answering (replies, requests.size ());
    }
    return fetch.outcome;
}

#include "client/claim.h"

#include <algorithm>
#include <random>

using std::chrono::milliseconds;

constexpr int32_t most_tries = 3;
constexpr milliseconds longest (2000);
constexpr int32_t common_id = 2; // of every program that sets none

int32_t q5_scan_fresh_id ()
{
    std::random_device random;
    std::uniform_int_distribution<int32_t> ids (common_id + 1);
    return ids (random);
}

static q5_scan_outcome_t exchange_one (const q5_scan_settings_t &settings,
                                       const q5_scan_request_t &request, int32_t *result)
{
    std::vector<q5_scan_request_t> requests = {request};
    q5_scan_outcome_t outcome = q5_scan_exchange (settings, requests);
    *result = requests[0].result;
    return outcome;
}

// Whether the daemon cannot have got the batch. One that was dropped may lie with a proxy.
static bool was_never_sent (q5_scan_state_t state)
{
    return state == q5_scan_state_t::unknown_host || state == q5_scan_state_t::no_connection ||
           state == q5_scan_state_t::timed_out_connecting;
}

q5_scan_claim_t::q5_scan_claim_t (const q5_scan_settings_t &given) : settings (given)
{
    settings.id = q5_scan_fresh_id ();
    int32_t result = 0;
    outcome = exchange_one (settings, q5_scan_claim_request (), &result);
    held = outcome.answered () && result > 0;
    owed = held || !(outcome.answered () || was_never_sent (outcome.state));
}

static milliseconds bounded (milliseconds time)
{
    return time.count () > 0 ? std::min (time, longest) : longest;
}

bool q5_scan_claim_t::release ()
{
    q5_scan_settings_t last = settings;
    last.connect_timeout = bounded (settings.connect_timeout);
    last.reply_timeout = bounded (settings.reply_timeout);
    last.wait = milliseconds (0);
    last.cancel_fd = -1;
    for (int32_t i = 0; owed && i < most_tries; i++) {
        int32_t result = 0;
        outcome = exchange_one (last, q5_scan_release_request (), &result);
        // Dropped: the bus is somebody else's, so it is no longer ours.
        owed = !outcome.answered () && outcome.state != q5_scan_state_t::dropped;
    }
    held = held && owed;
    return !owed;
}

q5_scan_claim_t::~q5_scan_claim_t ()
{
    try {
        release ();
    } catch (...) {
    }
}

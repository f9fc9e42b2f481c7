#include "client/claim.h"

#include "client/exchange.h"
#include "client/guardian.h"

#include <algorithm>
#include <errno.h>
#include <random>
#include <system_error>
#include <unistd.h>

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

static q5_scan_outcome_t exchange_one (const q5_scan_settings_t &settings, q5_scan_deadline_t total,
                                       const q5_scan_request_t &request, int32_t *result)
{
    std::vector<q5_scan_request_t> requests = {request};
    q5_scan_outcome_t outcome = q5_scan_exchange_within (settings, total, requests, {});
    *result = requests[0].result;
    return outcome;
}

// Whether the daemon cannot have received the batch. A dropped one may still be in a proxy.
static bool was_never_sent (q5_scan_state_t state)
{
    return state == q5_scan_state_t::unknown_host || state == q5_scan_state_t::no_connection ||
           state == q5_scan_state_t::timed_out_connecting;
}

q5_scan_claim_t::q5_scan_claim_t (const q5_scan_settings_t &given, int32_t id)
    : settings (given), owner (getpid ())
{
    settings.id = id != 0 ? id : q5_scan_fresh_id ();
    settings.claims = false;
    q5_scan_deadline_t total (settings.total_timeout);
    start_guardian (total);
    if (outcome.answered ()) {
        int32_t result = 0;
        outcome = exchange_one (settings, total, q5_scan_claim_request (), &result);
        held = outcome.answered () && result > 0;
        owed = held || !(outcome.answered () || was_never_sent (outcome.state));
    }
    settings.wait = milliseconds (0);
    settings.claims = held;
    if (!held) {
        problem = "no claim by id " + std::to_string (settings.id) + ": " +
                  (outcome.answered () ? "another id holds the bus" : outcome.text);
    }
    if (!owed) {
        dismiss_guardian ();
    }
}

// On failure leaves an outcome that says why.
void q5_scan_claim_t::start_guardian (q5_scan_deadline_t total)
{
    const std::vector<q5_scan_request_t> release = {q5_scan_release_request ()};
    q5_scan_check_batch (settings, release);
    sockaddr_in address;
    outcome = q5_scan_find (settings, total, &address);
    if (!outcome.answered ()) {
        return;
    }
    guardian_fd = q5_scan_start_guardian (address, q5_scan_bytes_of (settings, release));
    if (guardian_fd < 0) {
        outcome.state = q5_scan_state_t::no_connection;
        outcome.error = errno;
        outcome.text = "cannot start the guardian process: " +
                       std::generic_category ().message (outcome.error);
    }
}

void q5_scan_claim_t::dismiss_guardian ()
{
    if (guardian_fd >= 0) {
        q5_scan_dismiss_guardian (guardian_fd);
        guardian_fd = -1;
    }
}

static milliseconds bounded (milliseconds time)
{
    return time.count () > 0 ? std::min (time, longest) : longest;
}

bool q5_scan_claim_t::release ()
{
    settings.claims = false;
    q5_scan_settings_t last = settings;
    last.connect_timeout = bounded (settings.connect_timeout);
    last.reply_timeout = bounded (settings.reply_timeout);
    last.cancel_fd = -1;
    for (int32_t i = 0; owed && i < most_tries; i++) {
        int32_t result = 0;
        outcome = exchange_one (last, q5_scan_deadline_t (milliseconds (0)),
                                q5_scan_release_request (), &result);
        // Dropped: another client has the bus, so it is no longer ours.
        owed = !outcome.answered () && outcome.state != q5_scan_state_t::dropped;
    }
    if (owed) {
        problem =
            "the bus may still be held by id " + std::to_string (settings.id) + ": " + outcome.text;
        return false;
    }
    problem = held ? "" : problem; // of a claim that was never held
    held = false;
    dismiss_guardian ();
    return true;
}

q5_scan_claim_t::~q5_scan_claim_t ()
{
    try {
        if (owner == getpid ()) {
            release ();
        }
    } catch (...) {
    }
    if (guardian_fd >= 0) {
        close (guardian_fd); // now it is the guardian's turn
    }
}

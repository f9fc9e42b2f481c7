#include "client/sentences.h"

#include <errno.h>
#include <netdb.h>
#include <system_error>

using state_t = q5_scan_state_t;
using std::chrono::milliseconds;

static std::string place_of (const q5_scan_settings_t &settings)
{
    return settings.host + " port " + std::to_string (settings.port);
}

static std::string reason_of (int error)
{
    return std::generic_category ().message (error);
}

// "2 s", "0.25 s".
static std::string seconds (milliseconds time)
{
    std::string rest = std::to_string (1000 + time.count () % 1000).substr (1);
    rest.erase (rest.find_last_not_of ('0') + 1);
    return std::to_string (time.count () / 1000) + (rest.empty () ? "" : "." + rest) + " s";
}

// "timed out after 2 s ", and what it was doing.
static std::string timed_out (const q5_scan_place_t &place, milliseconds limit)
{
    return "timed out after " + (place.is_total
                                     ? seconds (place.settings.total_timeout) + " in all, "
                                     : seconds (limit) + " ");
}

q5_scan_outcome_t q5_scan_unknown_host (const q5_scan_settings_t &settings, int host_error,
                                        int error)
{
    std::string reason = error != 0 ? reason_of (error) : hstrerror (host_error);
    return {state_t::unknown_host, 0, error,
            "the host '" + settings.host + "' is not known: " + reason};
}

static const char *const unreachable =
    ": the host does not respond, or the daemon's queue of clients is full";

q5_scan_outcome_t q5_scan_no_connection (const q5_scan_settings_t &settings, int error)
{
    return {state_t::no_connection, 0, error,
            "no connection to " + place_of (settings) + ": " + reason_of (error) +
                (error == ETIMEDOUT ? unreachable : "")};
}

q5_scan_outcome_t q5_scan_late_name (const q5_scan_place_t &place)
{
    return {state_t::timed_out_connecting, 0, 0,
            timed_out (place, place.settings.connect_timeout) + "resolving '" +
                place.settings.host + "': its name server does not answer"};
}

q5_scan_outcome_t q5_scan_late_connection (const q5_scan_place_t &place)
{
    return {state_t::timed_out_connecting, 0, 0,
            timed_out (place, place.settings.connect_timeout) + "connecting to " +
                place_of (place.settings) + unreachable};
}

// A daemon that closes before it has read the whole batch resets the connection.
q5_scan_outcome_t q5_scan_dropped (const q5_scan_settings_t &settings, int error)
{
    std::string how = error != 0 ? " (" + reason_of (error) + ")" : "";
    return {state_t::dropped, 0, error,
            "the daemon at " + place_of (settings) + " dropped the batch without a reply" + how +
                ": another id probably holds the bus (this batch was sent as id " +
                std::to_string (settings.id) +
                "); a crashed daemon or a full queue of clients looks the same"};
}

q5_scan_outcome_t q5_scan_refused (const q5_scan_settings_t &settings)
{
    return {state_t::broken_off, 0, 0,
            "the daemon at " + place_of (settings) + " refused the claim by id " +
                std::to_string (settings.id) + " at the start of the batch"};
}

q5_scan_outcome_t q5_scan_broken_off (const q5_scan_settings_t &settings, size_t num_replies,
                                      size_t num_requests, int error)
{
    std::string count =
        std::to_string (num_replies) + " of " + std::to_string (num_requests) + " replies";
    return {state_t::broken_off, static_cast<int32_t> (num_replies), error,
            error == 0
                ? "the daemon at " + place_of (settings) + " closed the connection after " + count
                : "the connection to " + place_of (settings) + " failed after " + count + ": " +
                      reason_of (error)};
}

q5_scan_outcome_t q5_scan_late_sending (const q5_scan_place_t &place)
{
    return {state_t::timed_out_sending, 0, 0,
            timed_out (place, place.settings.reply_timeout) + "sending the batch to " +
                place_of (place.settings) + ": its host has stopped accepting data"};
}

q5_scan_outcome_t q5_scan_late_reply (const q5_scan_place_t &place, size_t num_replies,
                                      size_t num_requests, bool is_taken)
{
    std::string text = timed_out (place, place.settings.reply_timeout) + "waiting for reply " +
                       std::to_string (num_replies + 1) + " of " + std::to_string (num_requests) +
                       " from " + place_of (place.settings);
    if (!is_taken) {
        text +=
            ": its host has not acknowledged the batch or is unreachable, or the daemon's queue of "
            "clients is full";
    } else if (num_replies == 0) {
        text += ": the daemon is busy with another client, or hung";
    } else {
        text += ": the daemon is hung, or the connection is lost";
    }
    return {state_t::timed_out_waiting, static_cast<int32_t> (num_replies), 0, text};
}

q5_scan_outcome_t q5_scan_cancelled (size_t num_replies)
{
    return {state_t::cancelled, static_cast<int32_t> (num_replies), 0,
            "the exchange was cancelled"};
}

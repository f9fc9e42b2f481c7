#include "client/sentences.h"

#include <errno.h>
#include <netdb.h>
#include <system_error>

using state_t = q5_scan_state_t;

static std::string place_of (const q5_scan_settings_t &settings)
{
    return settings.host + " port " + std::to_string (settings.port);
}

static std::string reason_of (int error)
{
    return std::generic_category ().message (error);
}

static std::string count_of (int32_t num_replies, int32_t num_commands)
{
    return std::to_string (num_replies) + " of " + std::to_string (num_commands) + " replies";
}

// "within 2 s", "within 0.25 s".
static std::string within (std::chrono::milliseconds time)
{
    std::string rest = std::to_string (1000 + time.count () % 1000).substr (1);
    rest.erase (rest.find_last_not_of ('0') + 1);
    return "within " + std::to_string (time.count () / 1000) + (rest.empty () ? "" : "." + rest) +
           " s";
}

q5_scan_outcome_t q5_scan_unknown_host (const q5_scan_settings_t &settings, int host_error,
                                        int error)
{
    std::string reason = error != 0 ? reason_of (error) : hstrerror (host_error);
    return {state_t::unknown_host, 0, error,
            "the host '" + settings.host + "' is not known: " + reason};
}

q5_scan_outcome_t q5_scan_no_connection (const q5_scan_settings_t &settings, int error)
{
    std::string hint = error == ETIMEDOUT
                           ? ": nothing answers there, or the daemon's queue of clients is full"
                           : "";
    return {state_t::no_connection, 0, error,
            "no connection to " + place_of (settings) + ": " + reason_of (error) + hint};
}

q5_scan_outcome_t q5_scan_late_name (const q5_scan_settings_t &settings)
{
    return {state_t::timed_out_connecting, 0, 0,
            "the name '" + settings.host + "' was not resolved " +
                within (settings.connect_timeout) + ": its name server does not answer"};
}

q5_scan_outcome_t q5_scan_late_connection (const q5_scan_settings_t &settings)
{
    return {state_t::timed_out_connecting, 0, 0,
            "no connection to " + place_of (settings) + " " + within (settings.connect_timeout) +
                ": nothing answers there, or the daemon's queue of clients is full"};
}

// A daemon that closes before it has read the whole batch resets the connection.
q5_scan_outcome_t q5_scan_dropped (const q5_scan_settings_t &settings, int error)
{
    std::string how = error != 0 ? " (" + reason_of (error) + ")" : "";
    return {state_t::dropped, 0, error,
            "the daemon at " + place_of (settings) + " dropped the batch unanswered" + how +
                ": as a rule another id holds the bus (this batch went out as id " +
                std::to_string (settings.id) +
                "); a daemon that ended, or whose queue of clients overflowed, looks the same"};
}

q5_scan_outcome_t q5_scan_broken_off (const q5_scan_settings_t &settings, int32_t num_replies,
                                      int32_t num_commands, int error)
{
    std::string count = count_of (num_replies, num_commands);
    return {state_t::broken_off, num_replies, error,
            error == 0
                ? "the daemon at " + place_of (settings) + " closed the connection after " + count
                : "the connection to " + place_of (settings) + " failed after " + count + ": " +
                      reason_of (error)};
}

q5_scan_outcome_t q5_scan_late_sending (const q5_scan_settings_t &settings)
{
    return {state_t::timed_out_sending, 0, 0,
            "the batch was not sent to " + place_of (settings) + " " +
                within (settings.reply_timeout) + ": the host does not take it"};
}

q5_scan_outcome_t q5_scan_late_reply (const q5_scan_settings_t &settings, int32_t num_replies,
                                      int32_t num_commands, bool is_taken)
{
    std::string text = "the daemon at " + place_of (settings) + " gave " +
                       count_of (num_replies, num_commands) + ", and not the next " +
                       within (settings.reply_timeout);
    if (!is_taken) {
        text += ": its host has not taken the batch, is out of reach, or the daemon's queue of "
                "clients is full";
    } else if (num_replies == 0) {
        text += ": it is busy with the batch of another client, or hangs";
    } else {
        text += ": it hangs, or the connection is lost";
    }
    return {state_t::timed_out_waiting, num_replies, 0, text};
}

q5_scan_outcome_t q5_scan_cancelled (int32_t num_replies)
{
    return {state_t::cancelled, num_replies, 0, "the exchange was cancelled"};
}

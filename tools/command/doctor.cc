#include "client/claim.h"
#include "client/fetch.h"
#include "client/result.h"
#include "tools/command/command.h"
#include "tools/parse/parse.h"

#include <CLI/CLI.hpp>
#include <arpa/inet.h>
#include <errno.h>
#include <memory>
#include <netdb.h>
#include <stdio.h>
#include <unistd.h>

using state_t = q5_scan_state_t;

constexpr int32_t no_slot = 21; // the daemon answers for it without using the bus
static const char *const log_command = "journalctl --unit=q5_scand --lines=1 --output=cat";

namespace {

// One look at each part of the way from here to the cards, until one of them fails.
class examination_t {
  public:
    explicit examination_t (const q5_scan_settings_t &given) : settings (given)
    {
        bound (settings);
        settings.wait = {};
    }
    report_t run ();

  private:
    q5_scan_settings_t settings;
    report_t report;

    void note (const std::string &part, const std::string &text);
    void conclude (int status, const std::string &sentence);
    q5_scan_outcome_t ask_as (int32_t id) const;
    bool reaches_daemon (const q5_scan_outcome_t &outcome);
    bool is_served (const q5_scan_outcome_t &outcome);
    void examine_cards ();
    void examine_board ();
};

} // namespace

void examination_t::note (const std::string &part, const std::string &text)
{
    const std::string line = printable (text);
    report.text += part + std::string (12 - part.size (), ' ') + line + "\n";
    report.json["parts"].push_back ({{"part", part}, {"text", line}});
}

void examination_t::conclude (int status, const std::string &sentence)
{
    report.status = status;
    report.text += sentence + "\n";
    report.json["conclusion"] = sentence;
}

// A batch that costs no time on the bus.
q5_scan_outcome_t examination_t::ask_as (int32_t id) const
{
    q5_scan_settings_t asking = settings;
    asking.id = id;
    std::vector<q5_scan_request_t> requests = {{no_slot, Q5_SCAN_GET_TYPED, {}, 0}};
    return q5_scan_exchange (asking, requests);
}

static std::string addresses_of (const std::string &host)
{
    addrinfo hints = {}, *first = nullptr;
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    std::string text;
    if (getaddrinfo (host.c_str (), nullptr, &hints, &first) != 0) {
        return text;
    }
    for (addrinfo *info = first; info; info = info->ai_next) {
        sockaddr_in *address = reinterpret_cast<sockaddr_in *> (info->ai_addr);
        text += (text.empty () ? "" : ", ") + std::string (inet_ntoa (address->sin_addr));
    }
    freeaddrinfo (first);
    return text;
}

// Name, address and connection.
bool examination_t::reaches_daemon (const q5_scan_outcome_t &outcome)
{
    note ("host", place_of (settings));
    if (outcome.state == state_t::unknown_host) {
        note ("address", outcome.text);
        conclude (status_no_connection, "No such host: correct the name, or give an IPv4 address.");
        return false;
    }
    bool is_refused = outcome.state == state_t::no_connection && outcome.error == ECONNREFUSED;
    if (outcome.state == state_t::timed_out_connecting ||
        (outcome.state == state_t::no_connection && !is_refused)) {
        note ("connection", outcome.text);
        conclude (status_no_connection,
                  "The host is down, a firewall drops the packets, or eight clients are already "
                  "waiting for the daemon: ping the host, and look for a client that hangs.");
        return false;
    }
    note ("address", addresses_of (settings.host));
    note ("connection", is_refused ? outcome.text : "accepted");
    if (is_refused) {
        examine_board ();
        conclude (status_no_connection, "No daemon listens there: start q5_scand on that host, or "
                                        "correct the host and the port.");
    }
    return !is_refused;
}

// What the daemon does with a batch of a fresh id, and then with one of the usual id.
bool examination_t::is_served (const q5_scan_outcome_t &outcome)
{
    if (outcome.answered ()) {
        note ("service", "served");
        note ("claim", "the bus is free");
        return true;
    }
    if (outcome.state != state_t::dropped) {
        note ("service", outcome.text);
        examine_board ();
        conclude (status_no_connection,
                  "The daemon is blocked by another client, or hung: end that client (on the "
                  "board, ss -tnp 'sport = :1971' shows it), or restart the daemon.");
        return false;
    }
    const std::string id = std::to_string (settings.id);
    q5_scan_outcome_t own = ask_as (settings.id);
    if (own.answered ()) {
        note ("service", "served as id " + id + " only");
        note ("claim", "id " + id + " holds the bus, which is this command's id");
        return true;
    }
    bool is_claimed = own.state == state_t::dropped;
    note ("service", is_claimed ? "each batch is dropped" : own.text);
    note ("claim", is_claimed ? "an id other than " + id + " holds the bus" : "not known");
    examine_board ();
    conclude (is_claimed ? status_dropped : status_no_connection,
              is_claimed ? "Another client has claimed the bus: let it release the bus, or restart "
                           "the daemon if that client is gone."
                         : "The daemon ended while it was asked: read its log.");
    return false;
}

static std::string sentence_for_all (int32_t result)
{
    switch (result) {
    case Q5_SCAN_NO_ANSWER:
        return "No card answers: the chassis has no power, its bus cable is off, or the board's "
               "strobe or receive line is not connected.";
    case Q5_SCAN_NO_SLOT:
        return "The receive line is low whatever slot is selected: check its wiring and pull-up.";
    case Q5_SCAN_NOT_SENT:
        return "Nothing is sent: the bit clock is missing, or a card holds up the transmitter.";
    case Q5_SCAN_LINE_ERROR:
        return "Every answer is damaged: check ground, shield and termination of the cable, and "
               "the bit rate.";
    default:
        return "No card answers as it should.";
    }
}

void examination_t::examine_cards ()
{
    std::vector<q5_scan_request_t> replies;
    q5_scan_outcome_t outcome =
        q5_scan_fetch (settings, {parse_slots ({}), {Q5_SCAN_GET_TYPED}}, replies);
    if (!outcome.answered ()) {
        note ("cards", outcome.text);
        examine_board ();
        conclude (failure_of (outcome).status, "The daemon stopped answering: run this again.");
        return;
    }
    size_t num_sound = 0;
    bool are_same = true;
    const q5_scan_request_t *damaged = nullptr;
    std::string all;
    for (const q5_scan_request_t &reply : replies) {
        num_sound += reply.result >= 0;
        are_same &= !q5_scan_slot_exists (reply.slot) || reply.result == replies.front ().result;
        if (q5_scan_is_damaged (reply)) {
            damaged = damaged ? damaged : &reply;
            all += "; slot " + std::to_string (reply.slot) + ": " + q5_scan_describe (reply).state;
        }
    }
    note ("cards",
          std::to_string (num_sound) + (num_sound == 1 ? " answers" : " answer") +
              (num_sound == 0 && are_same ? ": " + q5_scan_describe (replies.front ().result).state
                                          : all));
    examine_board ();
    if (num_sound == 0 && are_same) {
        conclude (status_failed, sentence_for_all (replies.front ().result));
    } else if (damaged) {
        conclude (status_failed, "The daemon works, but slot " + std::to_string (damaged->slot) +
                                     " does not: look at " + q5_scan_describe (*damaged).look_at +
                                     ".");
    } else {
        conclude (status_ok, "All is well.");
    }
}

// The first lines that a command prints, as one; "" when it fails.
static std::string output_of (const std::string &command)
{
    FILE *pipe = popen (("timeout 5 " + command + " 2>/dev/null").c_str (), "r");
    char bytes[400];
    size_t size = pipe ? fread (bytes, 1, sizeof (bytes), pipe) : 0;
    std::string text (bytes, size);
    bool is_done = pipe && pclose (pipe) == 0;
    for (size_t at = 0; (at = text.find ('\n')) != text.npos;) {
        text.replace (at, 1, at + 1 < text.size () ? " " : "");
    }
    return is_done ? text : "";
}

// The daemon's unit, device and log, when it is this machine that has them.
void examination_t::examine_board ()
{
    if (addresses_of (settings.host).rfind ("127.", 0) != 0) {
        return;
    }
    std::string unit =
        output_of ("systemctl show --property=LoadState,ActiveState,SubState --value q5_scand");
    bool has_unit = unit.rfind ("loaded ", 0) == 0;
    bool has_device = access ("/dev/scanp", F_OK) == 0;
    if (!has_unit && !has_device) {
        return;
    }
    note ("unit", has_unit ? unit.substr (7) : "not installed");
    note ("device",
          has_device ? "/dev/scanp is there" : "/dev/scanp is missing: its driver is not loaded");
    note ("log", output_of (log_command));
}

report_t examination_t::run ()
{
    q5_scan_outcome_t outcome = ask_as (q5_scan_fresh_id ());
    if (reaches_daemon (outcome) && is_served (outcome)) {
        examine_cards ();
    }
    return report;
}

void add_doctor (command_line_t &line)
{
    auto host = std::make_shared<std::vector<std::string>> ();
    CLI::App &command =
        add_command (line, "doctor", "diagnose the path to the cards and suggest a fix",
                     [&globals = line.globals, host] () {
                         return examination_t (chassis_of (globals, *host).front ()).run ();
                     });
    command.add_option ("HOST", *host, "HOST or HOST:PORT (default: that of --host)")
        ->expected (0, 1);
}

// One batch between the command line and the daemon, as it is reported.
#pragma once

#include "client/batch.h"
#include "tools/interrupt.h"
#include "tools/show/report.h"

#include <stdint.h>
#include <string>
#include <vector>

// The options of all commands.
struct globals_t {
    q5_scan_settings_t settings;
    bool as_json = false;
    bool has_id = false;                   // named one, by option or environment
    std::vector<std::string> held_command; // what hold runs, with its arguments
};

// Where a command that talks to the daemon reports from.
origin_t origin_of (const std::string &command, const globals_t &globals);

// Takes HOST or HOST:PORT into the settings; without a port, theirs stays. Throws failure_t for a
// text that is neither.
void take_place (const std::string &text, q5_scan_settings_t &settings);
std::string place_of (const q5_scan_settings_t &settings); // HOST:PORT

// Ten seconds in all, where the command line has no --timeout.
void bound (q5_scan_settings_t &settings);

// The settings for each of the hosts, in their order, each place once; for none, those of
// `globals`.
std::vector<q5_scan_settings_t> chassis_of (const globals_t &globals,
                                            const std::vector<std::string> &hosts);

// The settings of an exchange that Ctrl-C cancels while this exists.
struct interruptible_t {
    const interrupt_t interrupt;
    q5_scan_settings_t settings;

    explicit interruptible_t (const globals_t &globals) : settings (globals.settings)
    {
        settings.cancel_fd = interrupt.fd ();
    }
};

// The default rxlen: 4096; of claim and release 0.
int32_t usual_rxlen (int32_t command);

// The failure that an outcome other than an answer is.
failure_t failure_of (const q5_scan_outcome_t &outcome);

// Sends the requests as one batch and reports those that were answered; for a person, each is
// written as it arrives. Ctrl-C ends the wait. Throws exception_t, before anything is sent, when
// the daemon would refuse the batch.
report_t run_requests (const globals_t &globals, std::vector<q5_scan_request_t> requests);

// Sends one request and writes the received bytes to standard output, and nothing else; a request
// that fails is the report's failure.
report_t run_raw (const globals_t &globals, const q5_scan_request_t &request);

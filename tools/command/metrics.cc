#include "tools/command/metrics.h"

#include "client/result.h"
#include "tools/command/command.h"
#include "tools/command/fetch.h"
#include "tools/command/samples.h"
#include "tools/parse/files.h"
#include "tools/parse/parse.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <errno.h>
#include <memory>
#include <optional>
#include <sstream>

static std::vector<sample_t> samples_for (const globals_t &globals,
                                          const metrics_options_t &options)
{
    std::vector<sample_t> samples;
    for (q5_scan_settings_t &settings : chassis_of (globals, options.hosts)) {
        bound (settings);
        auto slots = options.slots_of.find (place_of (settings));
        bool has_own = slots != options.slots_of.end ();
        samples.push_back (
            {settings, {has_own ? slots->second : options.slots, {Q5_SCAN_GET_TYPED}}});
    }
    return samples;
}

// "" when the chassis answered.
static const char *down_reason (const q5_scan_outcome_t &outcome)
{
    switch (outcome.state) {
    case q5_scan_state_t::answered:
        return "";
    case q5_scan_state_t::unknown_host:
        return "unknown";
    case q5_scan_state_t::no_connection:
        return outcome.error == ECONNREFUSED ? "refused" : "timed_out";
    case q5_scan_state_t::dropped:
    case q5_scan_state_t::broken_off:
        return "dropped";
    default:
        return "timed_out";
    }
}

// In its value a backslash and a quotation mark are escaped, and nothing else.
static std::string label (const std::string &name, const std::string &value)
{
    return name + "=" + in_quotes (printable (value));
}

static std::string number_text (double value)
{
    char text[32];
    auto end = std::to_chars (text, text + sizeof (text), value, std::chars_format::general, 15);
    return std::string (text, end.ptr);
}

static std::string head (const std::string &metric, const std::string &help)
{
    return "# HELP " + metric + " " + help + "\n# TYPE " + metric + " gauge\n";
}

static std::string line (const std::string &metric, const std::string &labels, double value)
{
    return metric + "{" + labels + "} " + number_text (value) + "\n";
}

static std::string slot_labels (const sample_t &sample, int32_t slot)
{
    return label ("host", place_of (sample.settings)) + "," + label ("slot", std::to_string (slot));
}

static std::string host_lines (const std::vector<sample_t> &samples)
{
    std::string up = head ("q5_scan_up", "Whether the chassis answered the whole fetch.");
    std::string down = head (
        "q5_scan_down_reason",
        "Why not: refused, unknown (name), timed_out (or unreachable), or dropped (usually another "
        "client has claimed the bus).");
    std::string seconds = head ("q5_scan_fetch_duration_seconds", "How long the fetch took.");
    for (const sample_t &sample : samples) {
        const std::string host = label ("host", place_of (sample.settings));
        const std::string reason = down_reason (sample.outcome);
        up += line ("q5_scan_up", host, reason.empty ());
        down += reason.empty ()
                    ? ""
                    : line ("q5_scan_down_reason", host + "," + label ("reason", reason), 1);
        seconds += line ("q5_scan_fetch_duration_seconds", host, sample.seconds);
    }
    return up + down + seconds;
}

static std::string slot_lines (const std::vector<sample_t> &samples, const card_types_t &types)
{
    std::string results =
        head ("q5_scan_slot_result",
              "Result of the slot: bytes received, or -1 damaged, -2 no such slot or line low, -3 "
              "no answer, -4 wrong address, -10 not sent.");
    std::string sound = head ("q5_scan_slot_message_sound",
                              "1 if the message of the slot matches its type letters.");
    for (const sample_t &sample : samples) {
        for (const q5_scan_request_t &reply : sample.replies) {
            if (!reply.answered) {
                continue;
            }
            std::string labels = slot_labels (sample, reply.slot);
            results += line ("q5_scan_slot_result", labels, reply.result);
            if (reply.result >= 0) {
                bool adds_up = q5_scan_decode (reply.rx, types.of (reply.slot)).adds_up ();
                sound += line ("q5_scan_slot_message_sound", labels, adds_up);
            }
        }
    }
    return results + sound;
}

static std::string field_lines_of (const sample_t &sample, const q5_scan_request_t &reply,
                                   const q5_scan_types_t &types)
{
    std::string text;
    int32_t index = 0;
    for (const q5_scan_field_t &field : q5_scan_decode (reply.rx, types).fields) {
        index++;
        if (field.is_number ()) {
            std::string labels =
                slot_labels (sample, reply.slot) + "," + label ("index", std::to_string (index)) +
                "," + label ("letter", std::string (1, static_cast<char> (field.letter)));
            if (!field.type.name.empty ()) {
                labels += "," + label ("name", field.type.name);
            }
            text += line ("q5_scan_field_value", labels, field.value);
        }
    }
    return text;
}

static std::string field_lines (const std::vector<sample_t> &samples, const card_types_t &types)
{
    std::string text =
        head ("q5_scan_field_value", "A number in the message of the slot, by index from 1.");
    for (const sample_t &sample : samples) {
        for (const q5_scan_request_t &reply : sample.replies) {
            text += reply.answered ? field_lines_of (sample, reply, types.of (reply.slot)) : "";
        }
    }
    return text;
}

report_t metrics (const globals_t &globals, const metrics_options_t &options)
{
    if (globals.as_json) {
        usage_failure ("metrics has no JSON output", "Leave out --json.");
    }
    std::vector<sample_t> samples = samples_for (globals, options);
    take_samples (samples);
    report_t report;
    report.text = host_lines (samples) + slot_lines (samples, options.types) +
                  field_lines (samples, options.types);
    return report;
}

// Reads lines of HOST[:PORT] LIST, LIST being slots, and adds the hosts to those of `options`.
static void read_slots (const std::string &path, const globals_t &globals,
                        metrics_options_t &options)
{
    std::istringstream text (read_file (path, most_lines));
    read_lines (text, shown_name (path), [&] (const std::string &line) {
        std::istringstream words (line);
        std::string host, slots, more;
        if (!(words >> host >> slots) || words >> more) {
            usage_failure ("two words are expected",
                           "A line is: HOST[:PORT] LIST, for example chassis-4 3-7,23");
        }
        std::string place = place_of (chassis_of (globals, {host}).front ());
        if (!options.slots_of.emplace (place, parse_slots ({slots})).second) {
            usage_failure (printable (place) + " is named twice", "Give each host one line.");
        }
        options.hosts.push_back (host);
    });
}

struct metrics_words_t {
    std::vector<std::string> hosts, slots;
    std::optional<std::string> types;
};

static report_t metrics (const globals_t &globals, const metrics_words_t &words)
{
    metrics_options_t options = {words.hosts, {}};
    options.types = words.types ? parse_types (*words.types) : card_types_t{q5_scan_usual_types ()};
    bool is_file = !words.slots.empty () && words.slots[0][0] == '@';
    if (is_file) {
        read_slots (words.slots[0].substr (1), globals, options);
    }
    options.slots = parse_slots (is_file ? std::vector<std::string> () : words.slots);
    return metrics (globals, options);
}

void add_metrics (command_line_t &line)
{
    auto words = std::make_shared<metrics_words_t> ();
    CLI::App &command =
        add_command (line, "metrics", "what several chassis say, as text for Prometheus",
                     [&globals = line.globals, words] () { return metrics (globals, *words); });
    command.add_option ("HOST", words->hosts, "HOST or HOST:PORT, queried in parallel");
    command
        .add_option ("--slots", words->slots,
                     "0 to 31, or 3-7,23 (default: all); or @FILE: HOST[:PORT] LIST a line")
        ->allow_extra_args (false)
        ->type_name ("LIST");
    add_types (command, words->types);
}

#include "tools/command/metrics.h"

#include "client/result.h"
#include "tools/command/fetch.h"
#include "tools/parse/parse.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <thread>

using std::chrono::duration;
using std::chrono::steady_clock;

constexpr std::chrono::seconds usual_timeout (10);

// One chassis, and what became of its fetch.
struct sample_t {
    q5_scan_settings_t settings;
    std::string place;
    bool is_up = false;
    double seconds = 0;
    std::vector<q5_scan_request_t> replies = {};
};

// HOST or HOST:PORT.
static sample_t sample_for (const q5_scan_settings_t &usual, const std::string &text)
{
    q5_scan_settings_t settings = usual;
    size_t colon = text.rfind (':');
    if (!text.empty ()) {
        settings.host = text.substr (0, colon);
    }
    if (colon != text.npos) {
        settings.port =
            parse_number ("port of " + printable (text), text.substr (colon + 1), 1, 65535);
    }
    check_host (settings.host);
    bool is_bounded = settings.connect_timeout.count () > 0;
    settings.connect_timeout = is_bounded ? settings.connect_timeout : usual_timeout;
    settings.reply_timeout = is_bounded ? settings.reply_timeout : usual_timeout;
    return {settings, settings.host + ":" + std::to_string (settings.port)};
}

// One for each host, however often it is named: a series may stand in the text once.
static std::vector<sample_t> samples_for (const q5_scan_settings_t &usual,
                                          std::vector<std::string> hosts)
{
    std::vector<sample_t> samples;
    std::set<std::string> places;
    hosts.resize (std::max<size_t> (hosts.size (), 1));
    for (const std::string &host : hosts) {
        sample_t sample = sample_for (usual, host);
        if (places.insert (sample.place).second) {
            samples.push_back (sample);
        }
    }
    return samples;
}

static void take (sample_t &sample, const std::vector<int32_t> &slots)
{
    q5_scan_selection_t selection;
    selection.slots = slots;
    selection.commands = {Q5_SCAN_GET_TYPED};
    steady_clock::time_point start = steady_clock::now ();
    sample.is_up = q5_scan_fetch (sample.settings, selection, sample.replies).answered ();
    sample.seconds = duration<double> (steady_clock::now () - start).count ();
}

static void take_all (std::vector<sample_t> &samples, const std::vector<int32_t> &slots)
{
    std::vector<std::thread> threads;
    for (sample_t &sample : samples) {
        threads.emplace_back ([&sample, &slots] () { take (sample, slots); });
    }
    for (std::thread &thread : threads) {
        thread.join ();
    }
}

// A label's value: a backslash, a quotation mark and a newline would end it.
static std::string label (const std::string &name, const std::string &value)
{
    std::string text;
    for (char c : printable (value)) {
        text += (c == '"' || c == '\\' ? "\\" : "") + std::string (1, c);
    }
    return name + "=\"" + text + "\"";
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
    return label ("host", sample.place) + "," + label ("slot", std::to_string (slot));
}

static std::string host_lines (const std::vector<sample_t> &samples)
{
    std::string up = head ("q5_scan_up", "Whether the chassis answered the whole fetch.");
    std::string seconds = head ("q5_scan_fetch_duration_seconds", "How long the fetch took.");
    for (const sample_t &sample : samples) {
        up += line ("q5_scan_up", label ("host", sample.place), sample.is_up);
        seconds +=
            line ("q5_scan_fetch_duration_seconds", label ("host", sample.place), sample.seconds);
    }
    return up + seconds;
}

static std::string slot_lines (const std::vector<sample_t> &samples)
{
    std::string results =
        head ("q5_scan_slot_result",
              "Result of the slot: bytes received, or -1 damaged, -2 no such slot or line low, -3 "
              "no answer, -4 wrong address, -10 not sent.");
    std::string sound = head ("q5_scan_slot_message_sound",
                              "Whether the message of the slot adds up to its own letters.");
    for (const sample_t &sample : samples) {
        for (const q5_scan_request_t &reply : sample.replies) {
            if (!reply.answered) {
                continue;
            }
            std::string labels = slot_labels (sample, reply.slot);
            results += line ("q5_scan_slot_result", labels, reply.result);
            if (reply.result >= 0) {
                bool adds_up =
                    q5_scan_decode (reply.rx.data (), reply.rx.size (), q5_scan_usual_types ())
                        .adds_up ();
                sound += line ("q5_scan_slot_message_sound", labels, adds_up);
            }
        }
    }
    return results + sound;
}

static std::string field_lines_of (const sample_t &sample, const q5_scan_request_t &reply,
                                   const names_t &names)
{
    q5_scan_message_t message =
        q5_scan_decode (reply.rx.data (), reply.rx.size (), q5_scan_usual_types ());
    std::string text;
    int32_t index = 0;
    for (const q5_scan_field_t &field : message.fields) {
        index++;
        if (!field.is_number ()) {
            continue;
        }
        auto found = names.find ({reply.slot, index});
        const name_t *name = found == names.end () ? nullptr : &found->second;
        std::string labels = slot_labels (sample, reply.slot) + "," +
                             label ("index", std::to_string (index)) + "," +
                             label ("letter", std::string (1, static_cast<char> (field.letter))) +
                             (name ? "," + label ("name", name->name) : "");
        text += line ("q5_scan_field_value", labels, value_of (field, name));
    }
    return text;
}

static std::string field_lines (const std::vector<sample_t> &samples, const names_t &names)
{
    std::string text =
        head ("q5_scan_field_value", "A number in the message of the slot, by index from 1.");
    for (const sample_t &sample : samples) {
        for (const q5_scan_request_t &reply : sample.replies) {
            text += reply.answered ? field_lines_of (sample, reply, names) : "";
        }
    }
    return text;
}

report_t metrics (const globals_t &globals, const metrics_options_t &options)
{
    if (globals.as_json) {
        usage_failure ("metrics have a form of their own", "Leave out --json.");
    }
    std::vector<sample_t> samples = samples_for (globals.settings, options.hosts);
    take_all (samples, options.slots);
    report_t report;
    report.text =
        host_lines (samples) + slot_lines (samples) + field_lines (samples, options.names);
    return report;
}

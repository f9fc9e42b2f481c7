// What the commands make of hostile cards: sound lines and JSON, text that Prometheus reads, and a
// chassis file that plays the same bytes.
#include "chassis/file/chassis_file.h"
#include "fuzz/peer.h"
#include "tools/command/inventory.h"
#include "tools/command/metrics.h"
#include "tools/command/snapshot.h"
#include "tools/command/watch.h"
#include "tools/parse/parse.h"
#include "tools/parse/types.h"

#include <sstream>

// A report is whole lines for a person, and for a program one object on one line.
static void require_lines (const report_t &report)
{
    const std::string json = json_line ({"fuzz"}, report);
    REQUIRE_SHOWING (is_lines (report.text), report.text);
    REQUIRE_SHOWING (is_lines (json) && json.find ('\n') == json.size () - 1, json);
    REQUIRE_SHOWING (json_t::accept (json), json);
}

using slots_t = std::vector<int32_t>;

static report_t fetch (const globals_t &globals, const slots_t &slots, const char *types)
{
    fetched_t fetched = fetch_slots (globals.settings, slots, parse_types (types));
    report_t report = report_of (fetched, true);
    report.text = joined (marked_lines ({}, rows_of (fetched.slots, {{}, true}), {{}, true}));
    return report;
}

// name{label="value",...} number
static bool is_sample (const std::string &line)
{
    size_t end = line.rfind ("\"} "), num_quotes = 0;
    for (size_t i = 0; i < line.size (); i++) {
        num_quotes += line[i] == '"';
        i += line[i] == '\\';
    }
    return num_quotes % 2 == 0 &&
           line.find_first_not_of ("-+.einf0123456789", end + 3) == line.npos;
}

static report_t play (const std::vector<q5_scan_request_t> &taken)
{
    report_t report;
    report.text = chassis_file_of (taken);
    chassis_settings_t chassis = parse_chassis (report.text, "chassis.toml");
    for (const q5_scan_request_t &r : taken) {
        REQUIRE (r.result < 0 || chassis.cards.at (r.slot).answer.at (r.command).bytes == r.rx);
    }
    return report;
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    read_peer (input);
    globals_t globals;
    globals.settings.reply_timeout = std::chrono::seconds (1);
    const char *types = input.byte () % 2
                            ? "b=sbyte*-0.1:t,b3=bytes:3:a=\"\x7F\\,h=sshort*1e308,i=uint"
                            : "b=byte,h=short,i=int,s=string,x=rest";
    const slots_t slots = {0, 3, 20};
    wire.sent = input.rest ();
    wire.sent.insert (wire.sent.end (), 36, 0xFF); // what is missing failed
    require_lines (fetch (globals, slots, types));
    wire.num_read = 0;
    require_lines (inventory (globals, {{}, slots}));
    wire.num_read = 0;
    report_t measured = metrics (globals, {{}, slots, parse_types (types)});
    require_lines (measured);
    std::istringstream lines (measured.text);
    for (std::string line; std::getline (lines, line);) {
        REQUIRE_SHOWING (line[0] == '#' || is_sample (line), line);
    }
    wire.num_read = 0;
    try {
        require_lines (play (take_snapshot (globals.settings, slots, parse_commands ("51,73,51"))));
    } catch (failure_t &failure) {
        require_lines (report_of (failure));
    }
    return 0;
}

#include "tools/command/inventory.h"

#include "client/result.h"
#include "tools/command/command.h"
#include "tools/command/samples.h"
#include "tools/parse/identity.h"
#include "tools/parse/parse.h"
#include "tools/show/output.h"

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <optional>

using images_t = std::map<std::string, struct image_t>; // by type

struct image_t {
    std::string path;
    q5_scan_identity_t identity;
};

// One card that answered, or failed other than by silence.
struct entry_t {
    int32_t slot;
    int32_t result;
    std::optional<q5_scan_identity_t> identity;
    const image_t *image = nullptr; // of the same type
    std::string state = "";         // "current", "older", "newer"; else what else there is to say
};

// The newest image of each type.
static images_t newest_of (const std::vector<std::string> &paths)
{
    images_t newest;
    for (const std::string &path : paths) {
        image_t image = {path, read_identity (path)};
        auto [known, is_first] = newest.emplace (image.identity.type, image);
        if (!is_first && q5_scan_compare_builds (known->second.identity, image.identity) < 0) {
            known->second = image;
        }
    }
    return newest;
}

static void judge (entry_t &entry, const images_t &images)
{
    auto found = images.find (entry.identity->type);
    if (found == images.end ()) {
        entry.state = images.empty () ? "" : "no image of this type";
        return;
    }
    entry.image = &found->second;
    int32_t order = q5_scan_compare_builds (*entry.identity, entry.image->identity);
    entry.state = order < 0 ? "older" : order > 0 ? "newer" : "current";
}

static entry_t entry_of (const q5_scan_request_t &reply, const images_t &images)
{
    entry_t entry = {reply.slot, reply.result, std::nullopt};
    if (reply.result < 0) {
        entry.state = q5_scan_describe (reply).state;
        return entry;
    }
    q5_scan_identity_t identity = q5_scan_find_identity (
        {reinterpret_cast<const char *> (reply.rx.data ()), reply.rx.size ()});
    if (!identity.found ()) {
        entry.state = printable (identity.problem);
        return entry;
    }
    entry.identity = identity;
    judge (entry, images);
    return entry;
}

static row_t row_of (const entry_t &entry)
{
    bool is_dated = entry.image && entry.state != "current";
    std::string than = is_dated ? " than " + printable (entry.image->identity.date) : "";
    return {std::to_string (entry.slot), entry.identity ? printable (entry.identity->type) : "-",
            entry.identity ? printable (entry.identity->date) : "-",
            entry.image ? printable (entry.image->path) : "-", entry.state + than};
}

static json_t json_of (const entry_t &entry)
{
    json_t object = {{"slot", entry.slot}, {"result", entry.result}, {"state", entry.state}};
    if (entry.identity) {
        object["type"] = entry.identity->type;
        object["date"] = entry.identity->date;
    }
    if (entry.image) {
        object["image"] = entry.image->path;
        object["image_date"] = entry.image->identity.date;
    }
    return object;
}

static bool is_wrong (const entry_t &entry)
{
    return !entry.identity || entry.state == "older";
}

// Adds what one chassis said to the table, and returns it for a program.
static json_t add (const sample_t &sample, const images_t &images, const std::string &host,
                   std::vector<row_t> &rows, report_t &report)
{
    json_t slots = json_t::array ();
    auto add_row = [&] (row_t row) {
        if (!host.empty ()) {
            row.insert (row.begin (), host);
        }
        rows.push_back (row);
    };
    for (const q5_scan_request_t &reply : sample.replies) {
        if (!reply.answered || q5_scan_is_empty (reply)) {
            continue;
        }
        entry_t entry = entry_of (reply, images);
        add_row (row_of (entry));
        slots.push_back (json_of (entry));
        report.status = is_wrong (entry) && !report.failure ? status_failed : report.status;
    }
    if (!sample.outcome.answered () && !host.empty ()) {
        add_row ({"-", "-", "-", "-", printable (sample.outcome.text)});
    }
    return slots;
}

static json_t json_of (const sample_t &sample, const json_t &slots)
{
    json_t object = {
        {"host", sample.settings.host}, {"port", sample.settings.port}, {"slots", slots}};
    if (!sample.outcome.answered ()) {
        object["error"] = json_of (failure_of (sample.outcome));
    }
    return object;
}

report_t inventory (const globals_t &globals, const inventory_options_t &options)
{
    images_t images = newest_of (options.images);
    bool are_many = !options.hosts.empty ();
    interrupt_t interrupt;
    std::vector<sample_t> samples;
    for (q5_scan_settings_t &settings : chassis_of (globals, options.hosts)) {
        settings.cancel_fd = interrupt.fd ();
        samples.push_back ({settings, {options.slots, {options.command}}});
    }
    take_samples (samples);

    report_t report;
    row_t heading = {"SLOT", "TYPE", "BUILT", "IMAGE", "STATE"};
    if (are_many) {
        heading.insert (heading.begin (), "HOST");
    }
    std::vector<row_t> rows = {heading};
    for (const sample_t &sample : samples) {
        if (!sample.outcome.answered () && !report.failure) {
            report.failure = failure_of (sample.outcome);
            report.status = report.failure->status;
        }
        std::string host = are_many ? printable (place_of (sample.settings)) : "";
        json_t slots = add (sample, images, host, rows, report);
        if (are_many) {
            report.json["hosts"].push_back (json_of (sample, slots));
        } else {
            report.json["slots"] = slots;
        }
    }
    report.text = joined (table_lines (rows));
    return report;
}

struct inventory_words_t {
    std::vector<std::string> images, slots, hosts;
    std::string command = std::to_string (identity_command);
};

void add_inventory (command_line_t &line)
{
    auto words = std::make_shared<inventory_words_t> ();
    CLI::App &command = add_command (
        line, "inventory", "the build identity of every card, compared with images",
        [&globals = line.globals, words] () {
            return inventory (globals, {words->images, parse_slots (words->slots),
                                        parse_number ("--command", words->command, 3, 255),
                                        split (words->hosts)});
        });
    command.add_option ("IMAGE", words->images, "firmware images; the newest of each type counts");
    command.add_option ("--slots", words->slots, "0 to 31, or 3-7,23 (default: all)")
        ->allow_extra_args (false)
        ->type_name ("LIST");
    command
        .add_option ("--command", words->command,
                     "what a card answers with its identity (default 73)")
        ->type_name ("N");
    command
        .add_option ("--hosts", words->hosts,
                     "HOST or HOST:PORT, comma-separated; queried in parallel")
        ->allow_extra_args (false)
        ->type_name ("LIST");
}

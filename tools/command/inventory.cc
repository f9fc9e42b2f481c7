#include "tools/command/inventory.h"

#include "client/fetch.h"
#include "client/result.h"
#include "tools/parse/identity.h"
#include "tools/show/output.h"

#include <map>
#include <optional>

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
static std::map<std::string, image_t> newest_of (const std::vector<std::string> &paths)
{
    std::map<std::string, image_t> newest;
    for (const std::string &path : paths) {
        image_t image = {path, read_identity (path)};
        auto [known, is_first] = newest.emplace (image.identity.type, image);
        if (!is_first && q5_scan_compare_builds (known->second.identity, image.identity) < 0) {
            known->second = image;
        }
    }
    return newest;
}

static void judge (entry_t &entry, const std::map<std::string, image_t> &images)
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

static entry_t entry_of (const q5_scan_request_t &reply,
                         const std::map<std::string, image_t> &images)
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

static bool is_empty (const q5_scan_request_t &reply)
{
    return reply.result == Q5_SCAN_NO_ANSWER || !q5_scan_slot_exists (reply.slot);
}

report_t inventory (const globals_t &globals, const std::vector<std::string> &images,
                    const std::vector<int32_t> &slots, int32_t command)
{
    std::map<std::string, image_t> newest = newest_of (images);
    interrupt_t interrupt;
    q5_scan_settings_t settings = globals.settings;
    settings.cancel_fd = interrupt.fd ();
    std::vector<q5_scan_request_t> replies;
    q5_scan_outcome_t outcome = q5_scan_fetch (settings, {slots, {command}}, replies);
    report_t report = outcome.answered () ? report_t () : report_of (failure_of (outcome));
    report.json["slots"] = json_t::array ();
    std::vector<row_t> rows = {{"SLOT", "TYPE", "BUILT", "IMAGE", "STATE"}};
    for (const q5_scan_request_t &reply : replies) {
        if (!reply.answered || is_empty (reply)) {
            continue;
        }
        entry_t entry = entry_of (reply, newest);
        rows.push_back (row_of (entry));
        report.json["slots"].push_back (json_of (entry));
        report.status = is_wrong (entry) && !report.failure ? status_failed : report.status;
    }
    for (const std::string &line : table_lines (rows)) {
        report.text += line + "\n";
    }
    return report;
}

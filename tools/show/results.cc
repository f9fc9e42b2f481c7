#include "tools/show/results.h"

#include "tools/show/output.h"

static std::string failure_text (const std::string &how, const q5_scan_request_t &request)
{
    q5_scan_meaning_t m = q5_scan_describe (request);
    return how + " (" + std::to_string (request.result) + "), " + m.meaning +
           "\n    look at: " + m.look_at + "\n";
}

static std::string text_of_owner_change (const q5_scan_request_t &request, int32_t id)
{
    bool is_claim = request.command == Q5_SCAN_CLAIM;
    const std::string name = is_claim ? "claim: " : "release: ";
    if (q5_scan_has_failed (request)) {
        return name + failure_text ("refused", request);
    }
    if (is_claim && id == 0) {
        return name + "granted, but id 0 holds nothing: the bus is free\n";
    }
    return name +
           (is_claim ? "granted, id " + std::to_string (id) + " holds the bus until its release"
                     : "the bus is free") +
           "\n" + hex_lines (request.rx);
}

static std::string bytes_text (size_t count)
{
    return std::to_string (count) + (count == 1 ? " byte" : " bytes");
}

std::string text_of (const q5_scan_request_t &request, int32_t id)
{
    if (request.command == Q5_SCAN_CLAIM || request.command == Q5_SCAN_RELEASE) {
        return text_of_owner_change (request, id);
    }
    std::string head = "slot " + std::to_string (request.slot) + " command " +
                       std::to_string (request.command) + ": ";
    if (request.result < 0) {
        return head + failure_text ("failed", request);
    }
    size_t received = request.result;
    std::string fetched = request.rx.empty () ? "none" : std::to_string (request.rx.size ());
    std::string shown = request.rx.size () < received ? ", " + fetched + " fetched" : "";
    return head + bytes_text (received) + " received" + shown + "\n" + hex_lines (request.rx);
}

json_t json_of (const q5_scan_request_t &request)
{
    bool has_failed = q5_scan_has_failed (request);
    json_t object = {{"slot", request.slot},
                     {"command", request.command},
                     {"ok", !has_failed},
                     {"result", request.result}};
    if (has_failed) {
        q5_scan_meaning_t m = q5_scan_describe (request);
        object["meaning"] = m.meaning;
        object["look_at"] = m.look_at;
    }
    object["data_hex"] = hex_digits (request.rx);
    object["data_text"] = characters (request.rx);
    return object;
}

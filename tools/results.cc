#include "tools/results.h"

#include "scan/q5_scan_protocol.h"

#include <map>

static const std::map<int32_t, meaning_t> meanings = {
    {-1,
     {"line error",
      "the answer came damaged: a break, a framing error, an overrun, noise, or no address "
      "character before it",
      "the bus cabling, and the bit rate of the card (slots 23 and 24 run at a fifth of the rate "
      "of the others)"}},
    {-2,
     {"no such slot, or line low", "the slot does not exist, or its receive line is held low",
      "the slot number (21, 22, 25, 26 and 31 do not exist), then a card in it that holds the "
      "line low"}},
    {-3,
     {"no card, or silent", "the request went out, and no complete answer came within 110 ms",
      "whether a card is plugged in, has power and knows this command"}},
    {-4,
     {"wrong address",
      "the answer came to the second address (0xA5), or a length was beyond its limit",
      "the address that the card answers to: it must be 0x5A"}},
    {-10,
     {"not sent", "the request was not completely sent within 110 ms",
      "a card that holds up the transmitter, the clock of the bus, and in slots 23 and 24 the "
      "length: about 1600 bytes go out in that time"}},
};

meaning_t meaning_of (int32_t result)
{
    auto found = meanings.find (result);
    if (found != meanings.end ()) {
        return found->second;
    }
    return {"unknown result " + std::to_string (result), "a result that this program does not know",
            "whether the daemon is a q5_scand of another version"};
}

std::string state_of (int32_t result)
{
    return result >= 0 ? "ok" : meaning_of (result).state;
}

static bool is_daemons_own (const request_t &request)
{
    return request.command == Q5_SCAN_CLAIM || request.command == Q5_SCAN_RELEASE;
}

static const char *refused = "another id holds the bus";
static const char *look_at_holder = "which program holds the bus: it must release it first";

static std::string text_of_owner_change (const request_t &request, int32_t id)
{
    bool is_claim = request.command == Q5_SCAN_CLAIM;
    std::string name = is_claim ? "claim" : "release";
    if (request.result < 0) {
        return name + ": refused (" + std::to_string (request.result) + "), " + refused +
               "\n    look at: " + look_at_holder + "\n";
    }
    if (is_claim && id == 0) {
        return "claim: granted, but id 0 holds nothing: the bus is free\n";
    }
    return name + ": " +
           (is_claim ? "granted, id " + std::to_string (id) + " holds the bus until its release"
                     : "the bus is free") +
           "\n" + hex_lines (request.rx);
}

static std::string bytes_text (size_t count)
{
    return std::to_string (count) + (count == 1 ? " byte" : " bytes");
}

std::string text_of (const request_t &request, int32_t id)
{
    if (is_daemons_own (request)) {
        return text_of_owner_change (request, id);
    }
    std::string head = "slot " + std::to_string (request.slot) + " command " +
                       std::to_string (request.command) + ": ";
    if (request.result < 0) {
        meaning_t m = meaning_of (request.result);
        return head + "failed (" + std::to_string (request.result) + "), " + m.meaning +
               "\n    look at: " + m.look_at + "\n";
    }
    size_t received = request.result;
    std::string fetched = request.rx.empty () ? "none" : std::to_string (request.rx.size ());
    std::string shown = request.rx.size () < received ? ", " + fetched + " fetched" : "";
    return head + bytes_text (received) + " received" + shown + "\n" + hex_lines (request.rx);
}

json_t json_of (const request_t &request)
{
    json_t object = {{"slot", request.slot},
                     {"command", request.command},
                     {"ok", request.result >= 0},
                     {"result", request.result}};
    if (request.result < 0) {
        meaning_t m = meaning_of (request.result);
        object["meaning"] = is_daemons_own (request) ? refused : m.meaning;
        object["look_at"] = is_daemons_own (request) ? look_at_holder : m.look_at;
    }
    object["data_hex"] = hex_digits (request.rx.data (), request.rx.size ());
    object["data_text"] = characters (request.rx.data (), request.rx.size ());
    return object;
}

#include "client/result.h"

#include <map>

static const std::map<int32_t, q5_scan_meaning_t> &meanings ()
{
    static const std::map<int32_t, q5_scan_meaning_t> table = {
        {Q5_SCAN_LINE_ERROR,
         {"line error",
          "the answer was damaged: a break, a framing error, an overrun, noise, or no address "
          "character before it",
          "the bus cabling, and the bit rate of the card (slots 23 and 24 run at a fifth of the "
          "rate of the others)"}},
        {Q5_SCAN_NO_SLOT,
         {"no such slot, or line low", "the slot does not exist, or its receive line is held low",
          "the slot number (21, 22, 25, 26 and 31 do not exist), then a card in it that holds the "
          "line low"}},
        {Q5_SCAN_NO_ANSWER,
         {"no card, or silent", "the request went out, and no complete answer came within 110 ms",
          "whether a card is plugged in, has power and knows this command"}},
        {Q5_SCAN_BAD_ADDRESS,
         {"wrong address",
          "the answer came to the second address (0xA5), or a length was beyond its limit",
          "the address that the card answers to: it must be 0x5A"}},
        {Q5_SCAN_NOT_SENT,
         {"not sent", "the request was not completely sent within 110 ms",
          "a card that holds up the transmitter, the clock of the bus, and in slots 23 and 24 the "
          "length: about 1600 bytes go out in that time"}},
    };
    return table;
}

q5_scan_meaning_t q5_scan_describe (int32_t result)
{
    if (result >= 0) {
        return {"ok", "bytes received: " + std::to_string (result), ""};
    }
    auto found = meanings ().find (result);
    if (found != meanings ().end ()) {
        return found->second;
    }
    return {"unknown result " + std::to_string (result), "a result that this program does not know",
            "whether the daemon is a q5_scand of another version"};
}

q5_scan_meaning_t q5_scan_describe (const q5_scan_request_t &request)
{
    if (!request.answered) {
        return {"not answered", "no reply to the request came", "the outcome of its batch"};
    }
    bool is_claim = request.command == Q5_SCAN_CLAIM;
    if (!is_claim && request.command != Q5_SCAN_RELEASE) {
        return q5_scan_describe (request.result);
    }
    if (request.result <= 0) {
        return {"refused", "another id holds the bus",
                "which program holds the bus: it must release it first"};
    }
    return {"ok", is_claim ? "the bus is claimed" : "the bus is free", ""};
}

bool q5_scan_has_failed (const q5_scan_request_t &request)
{
    bool is_of_slot = request.command != Q5_SCAN_CLAIM && request.command != Q5_SCAN_RELEASE;
    return request.answered && request.result < (is_of_slot ? 0 : 1);
}

bool q5_scan_is_empty (int32_t slot, int32_t result)
{
    return result == Q5_SCAN_NO_ANSWER ||
           (result == Q5_SCAN_NO_SLOT && !q5_scan_slot_exists (slot));
}

bool q5_scan_is_damaged (int32_t slot, int32_t result)
{
    return result < 0 && !q5_scan_is_empty (slot, result);
}

bool q5_scan_is_empty (const q5_scan_request_t &request)
{
    return request.answered && q5_scan_is_empty (request.slot, request.result);
}

bool q5_scan_is_damaged (const q5_scan_request_t &request)
{
    return request.answered && q5_scan_is_damaged (request.slot, request.result);
}

#include "docs/transfer.h"

#include <algorithm>
#include <stdexcept>

int transfer_t::code_at (int64_t time) const
{
    int code = 0;
    for (int i = 0; i < 7; i++) {
        code |= wires.at ("slot_code[" + std::to_string (i) + "]").level_at (time) << i;
    }
    return code;
}

// The narrowest pulse of the line.
static int64_t bit_of (const wire_t &line)
{
    int64_t narrowest = INT64_MAX;
    for (size_t i = 2; i < line.changes.size (); i++) {
        narrowest = std::min (narrowest, line.changes[i].time - line.changes[i - 1].time);
    }
    return narrowest;
}

// The characters that begin in the given time.
static std::vector<character_t> characters_of (const wire_t &line, int64_t bit, int64_t from,
                                               int64_t to)
{
    std::vector<character_t> characters;
    int64_t start = line.next (false, from);
    while (start >= 0 && start < to) {
        uint32_t bits = 0;
        for (int i = 0; i < bits_per_character; i++) {
            bits |= uint32_t (line.level_at (start + i * bit + bit / 2)) << i;
        }
        int64_t end = start + bits_per_character * bit;
        characters.push_back ({start, end, uint8_t (bits >> 1), (bits >> 9 & 1) != 0});
        start = line.next (false, end - bit / 2);
    }
    return characters;
}

transfer_t first_transfer (std::istream &in)
{
    transfer_t transfer{read_dump (in), 0, 0, 0, {}, {}};
    for (const char *name : {"slot_code[0]", "strobe", "TXD3", "RXD3"}) {
        if (transfer.wires.count (name) == 0) {
            throw std::runtime_error (std::string ("no wire ") + name + " in the dump");
        }
    }
    const wire_t &strobe = transfer.wires["strobe"], &txd3 = transfer.wires["TXD3"];
    int64_t begin = txd3.next (false, 1);
    for (const change_t &change : strobe.changes) {
        transfer.select = !change.level && change.time <= begin ? change.time : transfer.select;
    }
    transfer.poll = strobe.next (true, begin);
    transfer.bit = bit_of (transfer.wires["RXD3"]);
    transfer.request = characters_of (txd3, transfer.bit, transfer.select, transfer.poll);
    transfer.answer =
        characters_of (transfer.wires["RXD3"], transfer.bit, transfer.select, transfer.poll);
    if (begin < 0 || transfer.poll < 0 || transfer.answer.empty ()) {
        throw std::runtime_error ("no transfer with an answer in the dump");
    }
    return transfer;
}

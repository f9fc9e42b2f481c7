#include "chassis/bus/trace.h"

#include "base/hex.h"

constexpr size_t longest_shown = 32; // data characters; of more, the ends
constexpr size_t shown_at_start = 16;
constexpr size_t shown_at_end = 8;
constexpr size_t most_faults = 4; // shown of one frame

static const char *words_of (line_fault_t fault)
{
    switch (fault) {
    case line_fault_t::wrong_rate:
        return "not understood by the card: wrong bit rate";
    case line_fault_t::cut:
        return "cut off";
    case line_fault_t::framing:
        return "framing error";
    case line_fault_t::noise:
        return "noise";
    case line_fault_t::overrun:
        return "overrun";
    case line_fault_t::line_break:
        return "break";
    case line_fault_t::none:
        break;
    }
    return "";
}

static std::string place_of (const line_character_t &character, size_t data_characters)
{
    return character.address ? "address" : "data byte " + std::to_string (data_characters);
}

// A fault that lasts is shown once.
static void add_fault (std::vector<std::string> &faults, const line_character_t &character,
                       size_t data_characters)
{
    std::string words = words_of (character.fault);
    bool is_known = !faults.empty () && faults.back ().compare (0, words.size (), words) == 0;
    if (!is_known && faults.size () < most_faults) {
        faults.push_back (words + " at " + place_of (character, data_characters));
    }
}

void trace_t::character (const line_character_t &character)
{
    finish (!character.from_card);
    std::optional<frame_t> &frame = frames_[character.from_card];
    if (!frame) {
        frame = {character.start, character.slot, pins_.code, {}, {}, {}, {}};
    }
    add (*frame, character);
    bool ends = character.fault == line_fault_t::line_break || frame->closing.has_value ();
    if (ends) {
        finish (character.from_card);
    }
}

void trace_t::add (frame_t &frame, const line_character_t &character)
{
    if (character.fault != line_fault_t::none) {
        add_fault (frame.faults, character, frame.data.size ());
    }
    bool opens = !frame.address && frame.data.empty ();
    if (character.fault == line_fault_t::line_break) {
        return;
    }
    if (!character.address) {
        frame.data.push_back (character.value);
    } else if (opens) {
        frame.address = character.value;
    } else {
        frame.closing = character.value;
    }
}

static std::string slot_text (int slot)
{
    return slot < 0 ? "no slot" : (slot < 10 ? "slot  " : "slot ") + std::to_string (slot);
}

static std::string where (int slot, uint8_t code)
{
    return slot_text (slot) + (code < 10 ? " (code  " : " (code ") + std::to_string (code) + ")";
}

void trace_t::pins (uint64_t tick, const bus_pins_t &pins)
{
    finish (false);
    finish (true);
    if (pins.strobe_low && pins_.strobe_low && pins.code != pins_.code) {
        file_.put (tick, "the code changes from " + std::to_string (pins_.code) + " to " +
                             std::to_string (pins.code) +
                             " under the low strobe: " + slot_text (pins.slot));
    }
    if (pins.rx_held_low && !pins_.rx_held_low) {
        file_.put (tick, where (pins.slot, pins.code) + " holds the receive line low");
    }
    if (pins.tx_held_up && !pins_.tx_held_up) {
        file_.put (tick, where (pins.slot, pins.code) + " holds up the transmitter");
    }
    pins_ = pins;
}

void trace_t::remark (uint64_t tick, const std::string &line, bool refused)
{
    finish (false);
    finish (true);
    file_.put (tick, (refused ? "stopped: " : "note: ") + line);
}

void trace_t::finish (bool from_card)
{
    if (frames_[from_card]) {
        print (*frames_[from_card], from_card);
        frames_[from_card].reset ();
    }
}

// A blank follows what is there.
static std::string shown (const std::vector<uint8_t> &bytes, size_t begin, size_t end)
{
    return begin == end ? "" : hex_text (bytes.data () + begin, end - begin) + " ";
}

static std::string shown (const std::vector<uint8_t> &bytes)
{
    size_t count = bytes.size ();
    if (count <= longest_shown) {
        return shown (bytes, 0, count);
    }
    size_t hidden = count - shown_at_start - shown_at_end;
    return shown (bytes, 0, shown_at_start) + "... " + std::to_string (hidden) + " more ... " +
           shown (bytes, count - shown_at_end, count);
}

static std::string shown (std::optional<uint8_t> byte)
{
    return byte ? hex_text (&*byte, 1) + " " : "-- ";
}

void trace_t::print (const frame_t &frame, bool from_card)
{
    std::string text = (from_card ? "from " : "to   ") + where (frame.slot, frame.code) + "  ";
    text += shown (frame.address) + "| " + shown (frame.data) + "| " + shown (frame.closing);
    text.pop_back ();
    for (const std::string &fault : frame.faults) {
        text += "  " + fault;
    }
    file_.put (frame.start, text);
}

#include "chassis/bus/trace.h"

#include "base/hex.h"

constexpr size_t longest_shown = 32; // data characters; of more, the ends
constexpr size_t shown_at_start = 16;
constexpr size_t shown_at_end = 8;
constexpr size_t most_faults = 4; // told of one frame

static const char *words_of (line_fault_t fault)
{
    switch (fault) {
    case line_fault_t::wrong_rate:
        return "not understood by the card: wrong bit rate";
    case line_fault_t::wrong_format:
        return "not understood by the card: wrong character format";
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

// The same fault in each character is told once.
static void add_fault (std::vector<std::string> &faults, const line_character_t &character,
                       size_t data_characters)
{
    std::string words = words_of (character.fault);
    bool told = !faults.empty () && faults.back ().compare (0, words.size (), words) == 0;
    if (!told && faults.size () < most_faults) {
        faults.push_back (words + " at " + place_of (character, data_characters));
    }
}

void trace_t::character (const line_character_t &character)
{
    finish (!character.from_card);
    std::optional<frame_t> &frame = frames_[character.from_card];
    if (!frame) {
        frame = {character.start, character.slot, code_, {}, {}, {}, {}};
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

void trace_t::pins (uint64_t tick, const bus_pins_t &pins)
{
    finish (false);
    finish (true);
    code_ = pins.code;
    if (pins.rx_held_low && !line_held_low_) {
        print_time (tick);
        fprintf (file_, "  slot %2d (code %2d) holds the receive line low\n", pins.slot, code_);
        fflush (file_);
    }
    line_held_low_ = pins.rx_held_low;
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

void trace_t::print_time (uint64_t tick)
{
    uint64_t micros = tick % brgclk_ * 1000000 / brgclk_;
    fprintf (file_, "%llu.%06llu", static_cast<unsigned long long> (tick / brgclk_),
             static_cast<unsigned long long> (micros));
}

void trace_t::print (const frame_t &frame, bool from_card)
{
    std::string where = "no slot";
    if (frame.slot >= 0) {
        where = (frame.slot < 10 ? "slot  " : "slot ") + std::to_string (frame.slot);
    }
    std::string text =
        shown (frame.address) + "| " + shown (frame.data) + "| " + shown (frame.closing);
    text.pop_back ();
    for (const std::string &fault : frame.faults) {
        text += "  " + fault;
    }
    print_time (frame.start);
    fprintf (file_, "  %s %s (code %2d)  %s\n", from_card ? "from" : "to  ", where.c_str (),
             frame.code, text.c_str ());
    fflush (file_);
}

#include "chassis/bus/slot_card.h"

#include "chassis/bus/slots.h"

#include <algorithm>

constexpr uint32_t late_delay = 200000;   // microseconds
constexpr uint8_t closing_address = 0x00; // ends a frame in either direction
constexpr uint8_t unused_address = 0x3C;  // the controller listens to two others
constexpr int break_bits = 2 * BITS_PER_CHARACTER;

static bit_time_t bit_time_of (int slot, const card_t &settings, uint32_t brgclk)
{
    if (settings.bit_rate != 0) {
        return {brgclk, settings.bit_rate};
    }
    return {divider_of_slot (slot), 1};
}

slot_card_t::slot_card_t (int slot, const card_t &settings, uint32_t brgclk, uint64_t now)
    : slot_ (slot), settings_ (settings), brgclk_ (brgclk),
      bit_ (bit_time_of (slot, settings, brgclk)), selected_at_ (now)
{}

line_fault_t slot_card_t::judge (const line_character_t &character) const
{
    if (character.start < selected_at_) {
        return line_fault_t::cut;
    }
    if (character.fault == line_fault_t::none && !bit_.reads (character.bit)) {
        return line_fault_t::wrong_rate;
    }
    return character.fault;
}

line_fault_t slot_card_t::hear (const line_character_t &character)
{
    line_fault_t fault = judge (character);
    if (is_sending (character.start)) {
        return fault;
    }
    current_.reset (); // more characters followed: what looked complete was no request
    if (fault != line_fault_t::none) {
        spoiled_ = true;
    } else {
        take (character);
    }
    return fault;
}

void slot_card_t::take (const line_character_t &character)
{
    if (!character.address) {
        spoiled_ = spoiled_ || data_.size () >= MAX_CARD_DATA;
        if (open_ && !spoiled_) {
            data_.push_back (character.value);
        }
        return;
    }
    open_ = !open_;
    if (open_) {
        command_ = character.value;
        spoiled_ = false;
        data_.clear ();
    } else if (character.value == closing_address && !spoiled_ && is_request ()) {
        answer (character.end);
    }
}

bool slot_card_t::is_sending (uint64_t tick) const
{
    return current_ && tick >= answer_start_;
}

// The command comes once as address and twice as data.
bool slot_card_t::is_request () const
{
    return data_.size () >= 2 && data_[0] == command_ && data_[1] == command_;
}

void slot_card_t::answer (uint64_t request_end)
{
    auto found = settings_.answer.find (command_);
    if (found == settings_.answer.end ()) {
        return;
    }
    const answer_t &answer = found->second;
    fault_t fault = answer.fault.value_or (settings_.fault);
    if (fault == fault_t::silent || fault == fault_t::line_low) {
        return;
    }
    uint32_t delay = fault == fault_t::late ? late_delay : answer.delay.value_or (settings_.delay);
    compose (answer, fault);
    strike (fault, answer.fault_at.value_or (settings_.fault_at));
    answer_start_ = request_end + static_cast<uint64_t> (delay) * brgclk_ / 1000000;
    sent_bits_ = 0;
    next_ = 0;
    go_on ();
}

void slot_card_t::compose (const answer_t &answer, fault_t fault)
{
    answer_.clear ();
    if (fault != fault_t::missing_address) {
        uint8_t address = fault == fault_t::wrong_address
                              ? unused_address
                              : answer.address.value_or (settings_.address);
        answer_.push_back ({address, true, line_fault_t::none});
    }
    for (uint8_t byte : answer.bytes) {
        answer_.push_back ({byte, false, line_fault_t::none});
    }
    for (size_t i = 2; answer.echo && i < data_.size (); i++) {
        answer_.push_back ({data_[i], false, line_fault_t::none});
    }
    if (fault != fault_t::missing_end) {
        answer_.push_back ({closing_address, true, line_fault_t::none});
    }
}

static line_fault_t line_fault_of (fault_t fault)
{
    switch (fault) {
    case fault_t::line_break:
        return line_fault_t::line_break;
    case fault_t::framing:
        return line_fault_t::framing;
    case fault_t::overrun:
        return line_fault_t::overrun;
    case fault_t::noise:
        return line_fault_t::noise;
    default:
        return line_fault_t::none;
    }
}

// Without a data byte to hit, the closing address is hit. After a break the card is done.
void slot_card_t::strike (fault_t fault, uint32_t at)
{
    line_fault_t how = line_fault_of (fault);
    if (how == line_fault_t::none) {
        return;
    }
    size_t data_bytes = answer_.size () - 2; // these faults leave both addresses in place
    size_t index = 1 + std::min<size_t> (at, std::max<size_t> (data_bytes, 1) - 1);
    answer_[index].fault = how;
    if (how == line_fault_t::line_break) {
        answer_.resize (index + 1);
    }
}

static uint32_t levels_of (uint8_t value, bool address, line_fault_t fault)
{
    return fault == line_fault_t::line_break
               ? 0
               : character_levels (value, address, fault != line_fault_t::framing);
}

void slot_card_t::go_on ()
{
    if (next_ == answer_.size ()) {
        current_.reset ();
        return;
    }
    uint64_t gaps = next_ * uint64_t{settings_.gap} * brgclk_ / 1000000;
    const outgoing_t &out = answer_[next_++];
    int count = out.fault == line_fault_t::line_break ? break_bits : BITS_PER_CHARACTER;
    uint64_t start = answer_start_ + gaps + bit_.lasts (sent_bits_);
    sent_bits_ += static_cast<uint64_t> (count);
    current_ = {start,
                answer_start_ + gaps + bit_.lasts (sent_bits_),
                true,
                slot_,
                out.value,
                out.address,
                out.fault,
                bit_,
                levels_of (out.value, out.address, out.fault),
                count};
}

line_character_t slot_card_t::finish ()
{
    line_character_t sent = *current_;
    go_on ();
    return sent;
}

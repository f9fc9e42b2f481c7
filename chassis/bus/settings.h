// What a chassis is made of: the board, and the cards in its slots. Plain values; the chassis file
// fills them, and so do tests, in a few words:
//
//     chassis_settings_t settings;
//     settings.card (3).answers (51, {0x01, 'b', 0x2A});
//     settings.card (5).fails (fault_t::framing).answers (51, {1, 2, 3});
#pragma once

#include <map>
#include <optional>
#include <stdint.h>
#include <string>
#include <vector>

// What can go wrong with one answer, or with the line while a card is selected.
enum class fault_t {
    none,
    silent,             // no answer at all
    late,               // the answer begins 200 ms after the request, whatever the delay
    line_break,         // the line goes low for longer than a character, at `fault_at`
    framing,            // the stop bit of the byte at `fault_at` is low
    overrun,            // the controller loses the byte at `fault_at`
    noise,              // the samples of a bit of the byte at `fault_at` disagree
    wrong_address,      // the answer goes to an address that the controller does not listen to
    missing_address,    // the answer begins with its data, without an address character
    missing_end,        // the answer is not followed by its closing address character
    line_low,           // the receive line is held low as long as the card is selected
    endless_transmitter // the card holds CTS3 negated as long as it is selected: see board_t::cts3
};

// Data characters of one frame, at most. A longer request is not understood.
constexpr uint32_t MAX_CARD_DATA = 65536;

// What a card sends back for one command.
struct answer_t {
    std::vector<uint8_t> bytes; // the data characters, at most MAX_CARD_DATA
    bool echo = false;          // the request's own data follow `bytes`

    // Each replaces the card's own value for this answer alone.
    std::optional<uint32_t> delay; // microseconds
    std::optional<uint8_t> address;
    std::optional<fault_t> fault;
    std::optional<uint32_t> fault_at;
};

struct card_t {
    std::map<uint8_t, answer_t> answer; // by command byte; a command not listed is not answered
    uint32_t delay = 100;               // microseconds from the end of the request to the answer
    uint8_t address = 0x5A;             // the address character that opens the answer
    fault_t fault = fault_t::none;
    uint32_t fault_at = 0; // index of the data byte that the fault hits; past the end: the last
    uint32_t gap = 0;      // microseconds between the characters of an answer
    uint32_t bit_rate = 0; // bit/s; 0: the usual rate of this slot (see chassis_settings_t)

    card_t &answers (uint8_t command, std::vector<uint8_t> bytes)
    {
        answer[command].bytes = std::move (bytes);
        return *this;
    }
    card_t &echoes (uint8_t command)
    {
        answer[command].echo = true;
        return *this;
    }
    card_t &fails (fault_t how, uint32_t at = 0)
    {
        fault = how;
        fault_at = at;
        return *this;
    }
    card_t &after (uint32_t microseconds)
    {
        delay = microseconds;
        return *this;
    }
    card_t &pauses (uint32_t microseconds)
    {
        gap = microseconds;
        return *this;
    }
    card_t &from (uint8_t address_character)
    {
        address = address_character;
        return *this;
    }
};

// The board that the program runs on, and what its driver answers.
struct board_t {
    uint32_t brgclk = 66000000;   // Hz
    bool device = true;           // whether /dev/scanp can be opened
    bool cts3 = false;            // whether the boot firmware gave PC11 to SCC3 as CTS3
    uint32_t buffer = 0x01F40000; // physical address of the driver's buffers
    uint32_t dpram = 0x00001000;  // offset of the reserved dual-port RAM
    uint32_t cpcr = 0;            // what it answers to a CP command; not 0: the command is lost
    enum class fill_t {
        zeros,
        ones,
        noise,
        noise2,
        noise3
    } fill = fill_t::zeros; // RAM, input pins and other drivers' bits before the program runs
};

// A whole chassis. Cards in slots 23 and 24 run at brgclk / 400 bit/s, all others at brgclk / 80,
// unless a card says otherwise.
struct chassis_settings_t {
    board_t board;
    std::map<int, card_t> cards; // by slot, 0 to 31

    card_t &card (int slot)
    {
        return cards[slot];
    }
};

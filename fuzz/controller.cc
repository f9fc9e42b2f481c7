// The board under arbitrary accesses, commands, waits and edits of its cards, with transfers of the
// device layer between them: time passes as asked, the lines carry no more than fits into it, and
// a write that changes what is not the program's is refused.
#include "chassis/board/register_map.h"
#include "fuzz/board.h"
#include "scanp/scanp_driver.h"

// A known register, or any place in the areas about them; and a width.
static std::pair<uint32_t, int> read_place (input_t &input)
{
    static constexpr uint32_t bases[] = {0x1000,  SCC3_PRAM, PDIRB,  PDIRC,
                                         GSMR_L3, BRGC4,     CMXSCR, IMMR_SIZE - 128};
    uint8_t which = input.byte ();
    uint32_t offset = which < 0x80 ? bases[which % 8] + input.byte () : uint32_t (input.word ());
    const known_register_t *found = which & 8 ? nullptr : find_register (offset);
    return found ? std::pair (found->offset, int (found->width))
                 : std::pair (offset, 1 << which % 3);
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    static uint8_t buffer[SCAN_PORT_MAX_RX];
    input_t input (data, size);
    chassis_settings_t settings;
    uint8_t how = input.byte ();
    settings.board.fill = board_t::fill_t (how % 5);
    settings.board.cts3 = how & 4;
    settings.cards = read_cards (input);
    board_under_test_t board (settings);
    chassis_t &chassis = board.chassis;
    uint64_t waited = 0; // microseconds
    for (size_t step = 1; step < 60 && !input.at_end (); step++) {
        int what = input.byte () % 8;
        if (what < 4) {
            auto [offset, width] = read_place (input);
            uint32_t value = input.word () ^ (what & 2 ? chassis.memory ().read32 (offset) : 0);
            uint32_t before = chassis.memory ().read (offset, width);
            what & 1 ? void (chassis.read (offset, width)) : chassis.write (offset, width, value);
            uint32_t changed = before ^ chassis.memory ().read (offset, width);
            bit_owners_t owners =
                owners_at (registers_at (offset, width), offset, width, settings.board.dpram);
            bool is_line = (what & 1) && offset / 4 == SCCS3 / 4; // which the board itself changes
            REQUIRE (board.refused || is_line || !(changed & ~owners.ours));
        } else if (what == 4) {
            chassis.driver_request (SCANP_DO_CPCR_COMMAND, input.word () ^ 0x08C10000);
        } else if (what == 5) {
            uint32_t microseconds = input.word () & 0xFFFFF;
            waited += microseconds;
            chassis.advance (microseconds);
        } else if (what == 6) {
            chassis.set_cards (read_cards (input));
        } else {
            uint32_t slot = input.byte (), command = input.byte ();
            int32_t txlen = std::clamp (input.word (), -2, SCAN_PORT_MAX_TX);
            scan_port_transfer (slot, command, txlen, buffer, SCAN_PORT_MAX_RX, buffer);
            uint64_t polled = chassis.now () / 66 - waited;
            waited += polled;
            REQUIRE (polled % 10000 == 0 && polled <= 11 * 10000);
        }
        REQUIRE (chassis.now () == waited * 66);
        // None is shorter than 11 bits of 3 MHz or 16 ticks; one may be cut off in each step.
        REQUIRE (board.num_characters <= chassis.now () / (11 * 16) + 2 * step);
    }
    return 0;
}

// A chassis file: one line that names file and line, or settings on which each card's transfer ends
// in time with one of the documented results, and a good card answers after all of them.
#include "chassis/file/chassis_file.h"
#include "fuzz/board.h"

static void require_transfers (chassis_settings_t settings)
{
    static uint8_t buffer[SCAN_PORT_MAX_RX], sent[] = {1, 2};
    constexpr int good_card = 30;
    settings.cards[good_card] = card_t ().echoes (0x93);
    settings.board.device = true; // with answers of the driver with which a daemon starts
    settings.board.cpcr = 0;
    settings.board.buffer = board_t ().buffer;
    settings.board.dpram = board_t ().dpram;
    board_under_test_t board (settings);
    size_t memory = 0;
    for (const auto &[slot, card] : settings.cards) {
        for (const auto &[command, answer] : card.answer) {
            REQUIRE (answer.bytes.size () <= 65536);
            REQUIRE ((memory += answer.bytes.size ()) <= 4 << 20);
        }
        int command = card.answer.empty () ? 51 : card.answer.begin ()->first;
        uint64_t end = board.chassis.now () + settings.board.brgclk / 100 * 11;
        int32_t result = scan_port_transfer (slot, command, slot, buffer, SCAN_PORT_MAX_RX, buffer);
        REQUIRE ((result >= -4 && result <= SCAN_PORT_MAX_RX) || result == -10);
        REQUIRE (board.chassis.now () <= end + 11 && !board.refused);
    }
    int32_t result = scan_port_transfer (good_card, 0x93, 2, sent, 2, buffer);
    bool is_echoed = result == 2 && std::equal (sent, sent + 2, buffer);
    REQUIRE (is_echoed || settings.board.brgclk != board_t ().brgclk);
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    try {
        require_transfers (parse_chassis (std::string (data, data + size), "a.toml"));
    } catch (chassis_file_error_t &error) {
        int line = 0;
        char key = 0;
        int found = sscanf (error.what (), "a.toml:%d: %c", &line, &key);
        REQUIRE_SHOWING (found == 2 && line > 0 && is_one_line (error.what ()), error.what ());
    }
    return 0;
}

// One session on the emulated chassis: every transfer ends with a documented result, a good card's
// answer is what it was sent, and a refused batch touches neither registers nor buffers.
#include "fuzz/board.h"
#include "fuzz/session.h"

constexpr uint32_t good_card = 3, no_card = 4, no_slot = 21;
constexpr uint8_t echo = 0x93;

extern "C" transfer_call_t __real__Z18scan_port_transferjiiPKhiPh;

static int32_t checked (uint32_t slot, int32_t command, int32_t txlen, const uint8_t *tx,
                        int32_t rxlen, uint8_t *rx)
{
    int32_t result = __real__Z18scan_port_transferjiiPKhiPh (slot, command, txlen, tx, rxlen, rx);
    REQUIRE (is_result (result));
    REQUIRE ((slot != no_slot || result == -2) && (slot != no_card || result == -3));
    bool echoes = slot == good_card && static_cast<uint8_t> (command) == echo;
    REQUIRE (!echoes || (result == txlen && std::equal (tx, tx + std::min (txlen, rxlen), rx)));
    return result;
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    server.owner_id = model.owner = input.word ();
    read_peer (input);
    chassis_settings_t settings;
    settings.board.cts3 = true;
    settings.cards = read_cards (input);
    settings.cards.erase (no_card);
    settings.cards[good_card] = card_t ().echoes (echo);
    board_under_test_t board (settings);
    const uint8_t *buffers = board.chassis.memory ().physical (settings.board.buffer);
    const bytes_t before (buffers, buffers + 8192);
    size_t num_accesses = board.num_accesses;
    transfer = checked;
    bool ran = serve_peer ();
    REQUIRE (!board.refused);
    REQUIRE (ran || board.num_accesses == num_accesses);
    REQUIRE (ran || std::equal (before.begin (), before.end (), buffers));
    return 0;
}

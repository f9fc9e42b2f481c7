// Connections one after the other on a stubbed transfer, with claims and releases, whoever holds
// the bus at first: each is served, dropped or refused as if it were alone, but for the claims of
// those before it.
#include "fuzz/fuzz.h"
#include "tests/served_session.h"

// The peer as an input describes it: how it reads and writes; id, count and headers, the transmit
// bytes that they ask for, and then often some more, or not all of it.
static void read_peer (input_t &input)
{
    uint8_t how = input.byte ();
    wire = {};
    wire.chunk = how & 2 ? 1 : 1000;
    wire.room = how & 4 ? uint16_t (input.word ()) : SIZE_MAX;
    append_word (wire.sent, input.word ());
    int32_t count = input.word (), sum = 0;
    append_word (wire.sent, count);
    for (int32_t i = 1; i <= 4 * std::clamp (count, 0, 102); i++) {
        int32_t value = input.word ();
        append_word (wire.sent, value);
        sum += i % 4 == 0 ? std::clamp (value, 0, 5000) : 0;
    }
    size_t size = wire.sent.size () + std::min (sum, 5000);
    while (wire.sent.size () < size) {
        wire.sent.push_back (wire.sent.size () % 251);
    }
    uint32_t change = input.word ();
    wire.sent.resize (change < 0x80 ? size + change : change % (size + 1));
    transfers.clear ();
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    server.owner_id = model.owner = input.word ();
    do {
        read_peer (input);
        serve_peer ();
    } while (!input.at_end ());
    return 0;
}

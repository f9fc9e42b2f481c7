// Connections one after the other on a stubbed transfer, with claims and releases, whoever holds
// the bus at first: each is served, dropped or refused as if it were alone, but for the claims of
// those before it.
#include "fuzz/session.h"

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

// Connections one after the other, with claims and releases: each is served, dropped or refused as
// if it were alone, but for the claims of those before it.
#include "fuzz/session.h"

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    server.owner_id = model.owner = 0;
    while (!input.at_end ()) {
        read_peer (input);
        serve_peer ();
    }
    return 0;
}

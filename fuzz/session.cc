// One session on a stubbed transfer, whoever holds the bus.
#include "fuzz/session.h"

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    input_t input (data, size);
    server.owner_id = model.owner = input.word ();
    read_peer (input);
    serve_peer ();
    return 0;
}

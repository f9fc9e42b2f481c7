#include "fuzz/wire.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

wire_t wire;

extern "C" {
ssize_t __real_read (int fd, void *bytes, size_t size);
ssize_t __real_write (int fd, const void *bytes, size_t size);

ssize_t __wrap_read (int fd, void *bytes, size_t size)
{
    if (fd != wire_fd) {
        return __real_read (fd, bytes, size);
    }
    size = std::min ({size, wire.chunk, wire.sent.size () - wire.num_read});
    std::copy_n (wire.sent.begin () + wire.num_read, size, static_cast<uint8_t *> (bytes));
    wire.num_read += size;
    return size;
}

ssize_t __wrap_write (int fd, const void *bytes, size_t size)
{
    if (fd != wire_fd) {
        return __real_write (fd, bytes, size);
    }
    const uint8_t *first = static_cast<const uint8_t *> (bytes);
    size = std::min ({size, wire.chunk, wire.room - wire.received.size ()});
    wire.received.insert (wire.received.end (), first, first + size);
    errno = EPIPE;
    return size > 0 ? size : -1;
}
}

bytes_t read_batch (input_t &input)
{
    bytes_t batch;
    append_word (batch, input.word ());
    int32_t count = input.word (), sum = 0;
    append_word (batch, count);
    for (int32_t i = 0; i < std::min (count, 102); i++) {
        int32_t slot = input.word (), command = input.word (), rxlen = input.word ();
        int32_t txlen = input.word ();
        for (int32_t value : {slot, command, rxlen, txlen}) {
            append_word (batch, value);
        }
        sum += std::clamp (txlen, 0, 5000);
    }
    for (int32_t i = 0; i < std::min (sum, 5000); i++) {
        batch.push_back (static_cast<uint8_t> (i % 251));
    }
    // Exactly so, a few more, or anything from nothing to nearly all.
    uint8_t change = input.byte ();
    uint32_t kept = change < 0x80 ? batch.size () + change % 8 : uint32_t (input.word ());
    batch.resize (change < 0x80 ? kept : kept % (batch.size () + 1), 0xEE);
    return batch;
}

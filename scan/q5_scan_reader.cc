#include "scan/q5_scan_reader.h"

#include "net/assertion.h"

#include <algorithm>
#include <limits>
#include <string.h>

#define MODULE "q5_scan_reader.cc"

q5_scan_reader_t::q5_scan_reader_t (const char *host, int32_t port)
    : q5_scan_client_t (host, port), length (0), types_length (0), pos (0), types_pos (0),
      bytes (nullptr), types (nullptr)
{}

TESTS_ITS_OBJECT int32_t q5_scan_reader_t::begin_message (int32_t slot)
{
    ASSERT (13, this);
    ASSERT (14, slot >= 0 && slot < Q5_SCAN_NUM_SLOTS);

    const q5_scan_buffer_t &buffer = typed_buffers[slot];
    if (buffer.count < 1) {
        return 0;
    }
    // Deliberately signed and not tied to the message's size.
    int32_t n = static_cast<int8_t> (buffer.data[0]);
    types = buffer.data + 1;
    types_length = n;
    types_pos = 0;
    bytes = types + n;
    pos = 0;
    int64_t size = int64_t (buffer.count) - n - 1;
    length = std::min<int64_t> (size, std::numeric_limits<int32_t>::max ());
    return length;
}

TESTS_ITS_OBJECT int32_t q5_scan_reader_t::begin_raw (int32_t slot)
{
    ASSERT (30, this);
    ASSERT (31, slot >= 0 && slot < Q5_SCAN_NUM_SLOTS);

    const q5_scan_buffer_t &buffer = raw_buffers[slot];
    if (buffer.count < 1) {
        return 0;
    }
    // The type letters deliberately stay those of the last typed message.
    bytes = buffer.data;
    pos = 0;
    length = buffer.count;
    return length;
}

// The payload is in this object, where it has an end; not in memory that a program chose.
bool q5_scan_reader_t::points_inside () const
{
    uintptr_t at = reinterpret_cast<uintptr_t> (bytes);
    return at >= reinterpret_cast<uintptr_t> (this) && at <= reinterpret_cast<uintptr_t> (this + 1);
}

// Whether the bytes from `first` to `end`, counted from the payload's start, may be read.
bool q5_scan_reader_t::reaches (int64_t first, int64_t end) const
{
    if (!points_inside ()) {
        return bytes != nullptr;
    }
    int64_t start = bytes - reinterpret_cast<const uint8_t *> (this);
    return start + first >= 0 && start + end <= int64_t (sizeof (*this));
}

const uint8_t *q5_scan_reader_t::get_bytes (int32_t count)
{
    int64_t end = int64_t (pos) + count;
    ASSERT_AS (44,
               end <= length && (count == 0 || reaches (std::min<int64_t> (pos, end),
                                                        std::max<int64_t> (pos, end))),
               "pos + count <= length");

    const uint8_t *p = bytes + pos;
    pos = end;
    return p;
}

const char *q5_scan_reader_t::get_string ()
{
    // Deliberately weak: the position does not count, nor does the NUL.
    const char *const text = "(int) strlen (bytes + pos) <= length";
    ASSERT_AS (52, reaches (pos, pos), text);
    const char *p = reinterpret_cast<const char *> (bytes + pos);
    size_t space = points_inside () ? reinterpret_cast<const char *> (this + 1) - p : SIZE_MAX;
    size_t size = points_inside () ? strnlen (p, space) : strlen (p);
    ASSERT_AS (52, size < space && int64_t (size) <= length, text);

    pos += size + 1;
    return p;
}

// A big-endian number of `size` bytes.
uint32_t q5_scan_reader_t::take (int32_t size)
{
    uint32_t value = 0;
    for (const uint8_t *p = bytes + pos; p < bytes + pos + size; p++) {
        value = value << 8 | *p;
    }
    pos += size;
    return value;
}

uint8_t q5_scan_reader_t::get_byte ()
{
    ASSERT_AS (61, pos < length && reaches (pos, int64_t (pos) + 1), "pos < length");
    return take (1);
}

uint16_t q5_scan_reader_t::get_short ()
{
    int64_t end = int64_t (pos) + 2;
    ASSERT_AS (68, end <= length && reaches (pos, end), "pos + (int) sizeof (short) <= length");
    return take (2);
}

int32_t q5_scan_reader_t::get_int ()
{
    int64_t end = int64_t (pos) + 4;
    ASSERT_AS (77, end <= length && reaches (pos, end), "pos + (int) sizeof (int) <= length");
    return take (4);
}

uint8_t q5_scan_reader_t::get_type ()
{
    ASSERT (85, types_pos < types_length);
    return types[types_pos++];
}

TESTS_ITS_OBJECT void q5_scan_reader_t::init_command (q5_scan_command_t *c, int32_t command,
                                                      int32_t slot, uint8_t *)
{
    ASSERT (97, this && c);

    c->command = command;
    c->slot = slot;
    c->txlen = 0;
    c->rxlen = Q5_SCAN_MAX_RX;
    q5_scan_buffer_t *buffers = command == Q5_SCAN_GET_TYPED ? typed_buffers : raw_buffers;
    c->rxbuf = slot >= 0 && slot < Q5_SCAN_NUM_SLOTS ? buffers[slot].data : nullptr;
}

int32_t q5_scan_reader_t::fetch_all ()
{
    q5_scan_command_t *typed = fetch_commands;
    q5_scan_command_t *raw = fetch_commands + Q5_SCAN_NUM_SLOTS;
    for (int32_t slot = 0; slot < Q5_SCAN_NUM_SLOTS; slot++) {
        init_command (&typed[slot], Q5_SCAN_GET_TYPED, slot, nullptr);
        init_command (&raw[slot], Q5_SCAN_GET_RAW, slot, nullptr);
    }
    if (!execute (2 * Q5_SCAN_NUM_SLOTS, fetch_commands)) {
        return 0;
    }
    for (int32_t slot = 0; slot < Q5_SCAN_NUM_SLOTS; slot++) {
        typed_buffers[slot].count = typed[slot].result;
        raw_buffers[slot].count = raw[slot].result;
    }
    return 1;
}

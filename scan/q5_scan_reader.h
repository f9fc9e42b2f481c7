// The replies of all 32 slots, fetched in one batch and decoded field by field.
#pragma once

#include "scan/q5_scan_client.h"

#include <stdint.h>

// One reply as a slot sent it.
struct q5_scan_buffer_t {
    int32_t count; // bytes received, or the failure result of the slot
    uint8_t data[Q5_SCAN_MAX_RX];
};

// Fetch, then for each slot of interest begin its typed message or its raw block and take the
// fields in the order that the type letters give. What a letter means is agreed between the
// program and the cards.
//
//   typed message = n letter*n payload     n is signed: a letter count above 127 is negative
//   raw block     = payload
//
// The object holds more than 256 KiB: create it once and keep it. The buffers hold nothing of
// meaning before the first successful fetch_all. Every operation throws exception_t on a broken
// precondition; one that throws leaves the cursor where it was.
//
// The counts in a reply are taken as the card sent them, so a field may lie outside its own reply;
// an operation that would reach outside this object throws as if its bound had failed. A program
// may point `bytes` at its own memory: then only the listed bounds apply.
class q5_scan_reader_t : public q5_scan_client_t {
  public:
    int32_t length;       // payload bytes of the current message; negative when n exceeds it
    int32_t types_length; // type letters of the current message
    int32_t pos;          // next payload byte
    int32_t types_pos;    // next type letter
    const uint8_t *bytes; // the payload, in one of the buffers below
    const uint8_t *types; // the type letters
    q5_scan_buffer_t typed_buffers[Q5_SCAN_NUM_SLOTS];
    q5_scan_buffer_t raw_buffers[Q5_SCAN_NUM_SLOTS];
    q5_scan_command_t fetch_commands[2 * Q5_SCAN_NUM_SLOTS]; // typed, slots 0 to 31; then raw

    q5_scan_reader_t (const char *host, int32_t port);

    // Fetches both replies of every slot in one batch. Returns 1; or 0 when the exchange failed,
    // which keeps every count but may have overwritten data. Invalidates all pointers that
    // get_string and get_bytes have returned.
    int32_t fetch_all ();

    // Place the cursor at the start of the slot's typed message or raw block and return its payload
    // length, or return 0 and leave the cursor alone when the slot sent nothing or failed. A raw
    // block leaves the type letters of the last typed message.
    int32_t begin_message (int32_t slot);
    int32_t begin_raw (int32_t slot);

    // Return the next field and step over it.
    uint8_t get_type ();
    uint8_t get_byte ();
    uint16_t get_short ();
    int32_t get_int ();

    // Returns the text at the cursor, in place, and steps over its NUL. Throws only when the text
    // is longer than the whole payload, so the last one may run past the payload's end, and then
    // the cursor is beyond it.
    const char *get_string ();

    // Returns the next `count` bytes, in place, and steps over them. A negative count steps back.
    const uint8_t *get_bytes (int32_t count);

    // Makes `c` a fetch of `command` from `slot` into this object's buffer for that command: a
    // typed one for Q5_SCAN_GET_TYPED, a raw one for any other; none for a slot outside 0 to 31,
    // which execute refuses. The last argument is not used.
    void init_command (q5_scan_command_t *c, int32_t command, int32_t slot, uint8_t *rxbuf);

  private:
    bool points_inside () const;
    bool reaches (int64_t first, int64_t end) const;
    uint32_t take (int32_t size);
};

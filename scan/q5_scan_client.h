// The client side of the scan request protocol, and the build identity of a firmware image.
#pragma once

#include "net/exception.h"
#include "net/kp_server.h"
#include "scan/q5_scan_protocol.h"

#include <stdint.h>

// One request of a batch. The caller owns the record and both buffers.
struct q5_scan_command_t {
    int32_t command;      // claim, release, or a command of the card
    int32_t slot;         // 0 to 31
    int32_t txlen;        // bytes to transmit
    int32_t rxlen;        // bytes wanted back, the capacity of rxbuf
    const uint8_t *txbuf; // not read when txlen is 0
    uint8_t *rxbuf;       // not written when rxlen is 0
    int32_t result;       // output: bytes received, or a failure result
};

// One client of one daemon. Keeps no connection: each operation is one connection and one batch.
// Every operation throws exception_t on a broken precondition and returns 0 when the network fails.
// A program that uses execute, or what is built on it, ignores or handles SIGPIPE: the daemon may
// close while a batch is sent. Objects are independent: each thread uses one of its own. New
// programs use client/batch.h, which has timeouts, reasons, and results as values.
class q5_scan_client_t : public kp_client_t {
  public:
    int32_t client_id; // sent first in every batch; 2 unless the program writes it

    q5_scan_client_t (const char *host, int32_t port);

    // Sends the batch and reads every reply into the records. Returns 1 when every byte was written
    // and read, else 0. Each header is followed by its own transmit bytes, which the daemon reads
    // as intended only when no request but the last has any: send others with q5_scan_exchange. A
    // record is checked just before it is written, so a bad one throws after those before it have
    // been sent, and leaves the connection open.
    int32_t execute (int32_t num_commands, q5_scan_command_t *commands);

    // Take and give back the bus for this client's id. Return 1 when the daemon granted it; 0 when
    // it refused or could not be reached.
    int32_t claim ();
    int32_t release ();

    // Sends `first`, `second` and `size` bytes at `p` (at most 27) to `slot`. Returns what execute
    // returns, whatever the card answers.
    int32_t send_short (int32_t slot, uint8_t first, uint8_t second, const void *p, int32_t size);

    // The build identity of a firmware image; these use no state and no network. In the image it is
    // four NUL-terminated strings one after another, in an identity text four lines:
    //
    //   Type: ABC
    //   Compiled on:
    //   Jan 12 2004
    //   10:22:33

    // Copies the identity text of the image, `length` bytes (more than 0) at `image`, to `version`,
    // and returns 1; `version` is left alone when the image has none. The NULs between the four
    // strings become newlines in the image itself. The caller provides one spare byte at
    // image[length], which may be overwritten, a NUL after it, and space in `version` for
    // everything from the text's start to that NUL.
    int32_t find_version (char *image, int32_t length, char *version) const;

    // Copies the type ("ABC") out of an identity text: all after the first "Type: " to the end of
    // the line, blanks included. Returns `type`, for which the caller provides as much space as the
    // text takes, its NUL included. Throws exception_t when the text has no "Type: ".
    char *version_type (const char *version, char *type) const;

    // Copies the build date ("Jan 12 2004 10:22:33") out of an identity text: the two lines after
    // the first "Compiled on:" line, with a blank between them; one alone as it is. Returns
    // `date`, with space as above. Throws exception_t when the text has no "Compiled on:" line.
    char *version_date (const char *version, char *date) const;

    // Splits a build date at blanks, colons and newlines, and returns 1. An unknown month is 0;
    // numbers end at the first character that is not a digit and stop at 2147483647; no range is
    // checked. Throws exception_t when one of the six is missing, and when day or year is 0; the
    // numbers before that one have then been written.
    int32_t parse_date (const char *date, int32_t *month, int32_t *day, int32_t *year,
                        int32_t *hour, int32_t *minute, int32_t *second) const;

    // Returns -1 when the first build date is the earlier, 1 when it is the later, 0 when they are
    // equal. Throws what parse_date throws.
    int32_t compare_dates (const char *date1, const char *date2) const;

    // Prints `n` bytes at `p` to standard output in hex and as ASCII letters and digits, 16 a line.
    // An incomplete last line shows as four blanks.
    void dump (const void *p, int32_t n) const;

  private:
    bool write_word (int32_t fd, int32_t word);
    bool write_request (int32_t fd, const q5_scan_command_t &c);
    bool write_interleaved (int32_t fd, int32_t num_commands, const q5_scan_command_t *commands);
    bool read_reply (int32_t fd, q5_scan_command_t &c);
    bool read_replies (int32_t fd, int32_t num_commands, q5_scan_command_t *commands);
    int32_t change_owner (int32_t command);
};

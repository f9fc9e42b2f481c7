// All-or-nothing transfers, text lines and formatted text on a descriptor.
//
// The prefix kp_ marks the classes of this connection framework, in net/, which know nothing of the
// scan service; q5_scan_ marks those of the service.
#pragma once

#include <stdint.h>

#define MAX_PUTS 1000 // bytes, terminator included, that puts formats

// The base of everything that reads and writes a connection. It owns no descriptor: each operation
// is given one. Every operation throws exception_t on a broken precondition; failures of the system
// calls are results, and leave errno as the call set it.
class kp_literate_t {
  public:
    char puts_buffer[MAX_PUTS + 1]; // the text of the last puts

    // Returns `length` after reading exactly `length` bytes (more than 0); 0 at the end of the
    // stream or on any error, an interrupted call included.
    int32_t read_fully (int32_t fd, void *buffer, int32_t length);

    // Returns `length` after writing exactly `length` bytes (more than 0); 0 on any error.
    int32_t write_fully (int32_t fd, const void *buffer, int32_t length);

    // Reads one line, a byte at a time, up to a line feed or a carriage return (either alone ends
    // it; the other of a pair stays for the next call) or to `size` - 1 characters. Returns the
    // number of characters, line end excluded; -1 at the end of the stream or on an error, and
    // when `size` is 1. The buffer is NUL-terminated in every case.
    int32_t gets (char *buffer, int32_t size, int32_t fd);

    // Formats as printf does and writes the text, at most MAX_PUTS characters of it and not empty.
    // Returns what write_fully returns.
    int32_t puts (int32_t fd, const char *format, ...) __attribute__ ((format (printf, 3, 4)));
};

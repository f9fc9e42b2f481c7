// The one exception type.
#pragma once

#include <stdint.h>

class exception_t {
  public:
    char message[200]; // NUL-terminated; a longer text is cut
    int32_t code;      // always 6

    // Formats as printf does.
    explicit exception_t (const char *format, ...) __attribute__ ((format (printf, 2, 3)));

    // Writes the message and a newline to standard output; nothing at all when it is empty.
    void print () const;
};

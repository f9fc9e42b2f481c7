#include "net/kp_literate.h"

#include "net/assertion.h"

#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

#define MODULE "kp_literate.cc"

TESTS_ITS_OBJECT int32_t kp_literate_t::read_fully (int32_t fd, void *buffer, int32_t length)
{
    ASSERT (11, this);
    ASSERT (12, fd >= 0 && buffer && length > 0);

    char *p = static_cast<char *> (buffer);
    int32_t left = length;
    while (left > 0) {
        ssize_t r = read (fd, p, left);
        if (r <= 0) {
            return 0;
        }
        p += r;
        left -= r;
    }
    return length;
}

TESTS_ITS_OBJECT int32_t kp_literate_t::write_fully (int32_t fd, const void *buffer, int32_t length)
{
    ASSERT (26, this);
    ASSERT (27, fd >= 0 && buffer && length > 0);

    const char *p = static_cast<const char *> (buffer);
    int32_t left = length;
    while (left > 0) {
        ssize_t r = write (fd, p, left);
        if (r <= 0) {
            return 0;
        }
        p += r;
        left -= r;
    }
    return length;
}

int32_t kp_literate_t::gets (char *buffer, int32_t size, int32_t fd)
{
    ASSERT (43, buffer && size > 0);
    ASSERT (44, fd >= 0);

    int32_t position = 0;
    int32_t r = 0;
    while (position < size - 1) {
        r = read_fully (fd, buffer + position, 1);
        if (r != 1 || buffer[position] == '\n' || buffer[position] == '\r') {
            break;
        }
        position++;
    }
    buffer[position] = '\0';
    return r == 1 ? position : -1;
}

int32_t kp_literate_t::puts (int32_t fd, const char *format, ...)
{
    va_list values;
    va_start (values, format);
    int32_t size = vsnprintf (puts_buffer, MAX_PUTS, format, values);
    va_end (values);

    // Deliberately lets exactly MAX_PUTS characters through: the last of them goes out as a NUL.
    ASSERT (58, size <= MAX_PUTS);
    return write_fully (fd, puts_buffer, size);
}

#include "net/assertion.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

exception_t::exception_t (const char *format, ...)
{
    va_list values;
    va_start (values, format);
    vsnprintf (message, sizeof (message), format, values);
    va_end (values);
    code = 6;
}

void exception_t::print () const
{
    if (message[0] != '\0') {
        puts (message);
    }
}

void throw_assertion (const char *module, int line, const char *text)
{
    throw exception_t ("assertion failed. %s:%d (%s)", module, line, text);
}

void throw_sys_error (const char *module, int line)
{
    throw exception_t ("error %s:%d (%s)", module, line, strerror (errno));
}

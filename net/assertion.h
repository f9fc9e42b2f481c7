// The two ways in which a module raises an exception_t. Not installed: a program may have an ASSERT
// of its own.
//
// The line numbers in messages are part of the interface: a check carries its number, whatever line
// it is on. A module defines MODULE, its file name without a directory, before the checks.
#pragma once

#include "net/exception.h"

// Throw an exception_t "assertion failed. MODULE:LINE (TEXT)", and "error MODULE:LINE (TEXT)" with
// the system's text for the current errno.
[[noreturn]] void throw_assertion (const char *module, int line, const char *text);
[[noreturn]] void throw_sys_error (const char *module, int line);

// Throws unless `condition` holds; the message carries its text exactly as written.
#define ASSERT(line, condition) ASSERT_AS (line, condition, #condition)

// The same, where the text in the message is not the condition's own.
#define ASSERT_AS(line, condition, text)                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            throw_assertion (MODULE, line, text);                                                  \
        }                                                                                          \
    } while (0)

// An operation that tests its own object may be called on a null one: the sanitizers leave it
// alone.
#define TESTS_ITS_OBJECT __attribute__ ((no_sanitize ("null", "vptr")))

// Right after a failed system call.
#define SYS_ERROR(line) throw_sys_error (MODULE, line)

// What the entries of the door, one file for each kind, share.
#pragma once

#include "chassis/launch/door.h"

#include <dlfcn.h>
#include <stdarg.h>

// The attached chassis, made now if this is the first open of a device; null: everything passes.
chassis_t *chassis_for_open ();
chassis_t *attached_chassis ();

// The thread that calls it is the one whose sleep moves the chassis's time.
void take_time ();

// The definition of a function that the program would have got without this one.
template <typename function_t> function_t *next (const char *name)
{
    return reinterpret_cast<function_t *> (dlsym (RTLD_NEXT, name));
}

// A function as the program finds it. The name is given to the assembler alone, because the C
// library's headers have declarations, and with large files other names, of their own for it.
#define Q5_ENTRY(name) asm(name) __attribute__ ((visibility ("default"), used))

// Defines `name` as the argument that may stand behind `last`; reading it anyway does no harm.
#define Q5_OPTIONAL_ARGUMENT(type, name, last)                                                     \
    va_list rest;                                                                                  \
    va_start (rest, last);                                                                         \
    type name = va_arg (rest, type);                                                               \
    va_end (rest)

// Makes the program's own loads and stores to device registers visible: the pages of a trapped view
// are closed, so that an access faults; the faulting instruction is carried out on a register file,
// and so are the accesses of the plain instructions after it. All this happens in the accessing
// thread, in the order of the program.
#pragma once

#include "chassis/trap/register_file.h"

#include <stddef.h>

// Pages of the device's memory in the program.
struct device_view_t {
    uint8_t *begin;
    size_t length;   // whole pages
    uint32_t offset; // in the register file, of `begin`
    int protection;  // what the program asked for: an access beyond it is its own fault
    register_file_t *registers;
    bool is_trapped;          // closed pages, PROT_NONE; others are the program's alone
    int granted = protection; // the most that it may ask for later
};

// Installs the handler of SIGSEGV at the first call. Faults elsewhere go to the handler that was
// there before. An access by an unknown instruction ends the process, with a message.
// A view takes the place of those that were there.
void add_view (const device_view_t &view);
// Unmaps all views of these registers, before they go away.
void remove_views (const register_file_t &registers);

// The trapped view that contains the address; null if there is none, and while the views change.
const device_view_t *find_trapped_view (uintptr_t address);

// Whether any of these bytes is in a view; in a trapped one.
bool is_viewed (const void *begin, size_t length);
bool is_trapped (const void *begin, size_t length);
// The program took these pages away, or put others into their place.
void forget_pages (const void *begin, size_t length);
// What mprotect does to pages of trapped views. Returns false, with errno and nothing done, when
// there are others among them (EINVAL), and for more than was granted (EACCES).
bool protect_pages (const void *begin, size_t length, int protection);

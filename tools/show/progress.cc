#include "tools/show/progress.h"

#include "tools/show/terminal.h"

#include <stdio.h>
#include <unistd.h>

static const char *const clear_line = "\r\033[K";

progress_t::progress_t () : is_on (has_controls (STDERR_FILENO)) {}

progress_t::~progress_t ()
{
    hide ();
}

void progress_t::show (size_t done, size_t all)
{
    if (is_on) {
        fprintf (stderr, "%sasking the cards: %zu of %zu", clear_line, done, all);
        fflush (stderr);
        is_shown = true;
    }
}

void progress_t::hide ()
{
    if (is_shown) {
        fputs (clear_line, stderr);
        fflush (stderr);
        is_shown = false;
    }
}

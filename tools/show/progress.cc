#include "tools/show/progress.h"

#include "tools/show/terminal.h"

#include <stdio.h>
#include <unistd.h>

static const char *const clear = "\r\033[K";

progress_t::progress_t (size_t all) : is_on (has_controls (STDERR_FILENO)), all (all) {}

progress_t::~progress_t ()
{
    if (is_on) {
        fputs (clear, stderr);
    }
}

void progress_t::advance (size_t more)
{
    done += more;
    if (is_on) {
        fprintf (stderr, "%sasking the cards: %zu of %zu", clear, done, all);
        fflush (stderr);
    }
}

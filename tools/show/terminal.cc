#include "tools/show/terminal.h"

#include "tools/show/output.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

static const char *const clear_screen = "\033[H\033[J";
static const char *const go_home = "\033[H";
static const char *const clear_line = "\033[K";
static const char *const end_screen = "\033[J";

bool has_controls (int fd)
{
    const char *term = getenv ("TERM");
    return isatty (fd) && term && *term && strcmp (term, "dumb") != 0;
}

static winsize size_of_terminal ()
{
    winsize size = {};
    return ioctl (STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size : winsize{};
}

size_t output_width ()
{
    const char *columns = getenv ("COLUMNS");
    long given = columns ? strtol (columns, nullptr, 10) : 0;
    return given > 0 ? given : size_of_terminal ().ws_col;
}

terminal_t::terminal_t () : in_place (has_controls (STDOUT_FILENO)) {}

// A line that fills the width leaves the cursor on its last character, so it is cleared before.
static void show_line (const std::string &line, size_t width)
{
    printf ("%s%s\r\n", clear_line, cut (line, width).c_str ());
}

static void show_in_place (const std::vector<std::string> &lines)
{
    size_t width = output_width ();
    unsigned rows = size_of_terminal ().ws_row;
    size_t height = rows > 1 ? rows - 1 : 23;
    bool fits = lines.size () <= height;
    size_t shown = fits ? lines.size () : height - 1;

    fputs (go_home, stdout);
    for (size_t i = 0; i < shown; i++) {
        show_line (lines[i], width);
    }
    if (!fits) {
        std::string rest = std::to_string (lines.size () - shown) +
                           " more lines: make the terminal taller, or name the slots";
        show_line (rest, width);
    }
    fputs (end_screen, stdout);
}

void terminal_t::show (const std::vector<std::string> &lines)
{
    if (in_place) {
        fputs (shown ? "" : clear_screen, stdout);
        show_in_place (lines);
    } else {
        fputs (shown ? "\n" : "", stdout);
        for (const std::string &line : lines) {
            printf ("%s\n", line.c_str ());
        }
    }
    shown = true;
    fflush (stdout);
}

#include "tools/show/terminal.h"

#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

static const char *const clear_screen = "\033[H\033[J";
static const char *const go_home = "\033[H";
static const char *const clear_line = "\033[K";
static const char *const end_screen = "\033[J";

terminal_t::terminal_t () : in_place (isatty (STDOUT_FILENO)) {}

// A line that fills the width leaves the cursor on its last character, so it is cleared before.
static void show_line (const std::string &line, size_t width)
{
    printf ("%s%s\r\n", clear_line, line.substr (0, width).c_str ());
}

static void show_in_place (const std::vector<std::string> &lines)
{
    winsize size = {};
    bool known =
        ioctl (STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1 && size.ws_col > 0;
    size_t width = known ? size.ws_col : 80;
    size_t height = known ? size.ws_row - 1 : 23;
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

#include "tools/terminal.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

static const char *const clear_screen = "\033[H\033[J";
static const char *const go_home = "\033[H";
static const char *const clear_line = "\033[K";
static const char *const end_screen = "\033[J";

static const int ending_signals[] = {SIGINT, SIGTERM, SIGHUP};
static volatile sig_atomic_t signal_seen = 0;
static int note_fds[2] = {-1, -1}; // a pipe that is closed at its writing end by the signal

static void note_signal (int)
{
    bool is_first = !signal_seen;
    signal_seen = 1;
    if (is_first) {
        close (note_fds[1]);
    }
}

static void handle_signals (void (*handler) (int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    for (int number : ending_signals) {
        sigaction (number, &action, nullptr);
    }
}

terminal_t::terminal_t () : in_place (isatty (STDOUT_FILENO))
{
    signal_seen = 0;
    if (pipe2 (note_fds, O_CLOEXEC) < 0) {
        note_fds[0] = note_fds[1] = -1;
    }
    handle_signals (note_signal);
}

terminal_t::~terminal_t ()
{
    handle_signals (SIG_DFL);
    close (note_fds[0]);
    if (!signal_seen) {
        close (note_fds[1]);
    }
}

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

void terminal_t::pause (double seconds) const
{
    using std::chrono::duration;
    constexpr double slice = 0.1;
    for (double left = seconds; left > 0 && !interrupted (); left -= slice) {
        std::this_thread::sleep_for (duration<double> (std::min (left, slice)));
    }
}

int terminal_t::interrupted_fd () const
{
    return note_fds[0];
}

bool terminal_t::interrupted () const
{
    return signal_seen != 0;
}

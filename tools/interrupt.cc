#include "tools/interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

static const int ending_signals[] = {SIGINT, SIGTERM, SIGHUP};
static volatile sig_atomic_t signal_seen = 0;
static int note_fds[2] = {-1, -1}; // a pipe whose writing end the signal closes

static void note_signal (int)
{
    if (!signal_seen) {
        signal_seen = 1;
        close (note_fds[1]);
    }
}

// Under nohup SIGHUP stays ignored. A shell's background job is interrupted all the same.
static void handle_signals (void (*handler) (int))
{
    struct sigaction action = {}, before;
    action.sa_handler = handler;
    for (int number : ending_signals) {
        sigaddset (&action.sa_mask, number);
    }
    for (int number : ending_signals) {
        sigaction (number, nullptr, &before);
        if (number != SIGHUP || before.sa_handler != SIG_IGN) {
            sigaction (number, &action, nullptr);
        }
    }
}

interrupt_t::interrupt_t ()
{
    signal_seen = 0;
    if (pipe2 (note_fds, O_CLOEXEC) < 0) {
        note_fds[0] = note_fds[1] = -1;
    }
    handle_signals (note_signal);
}

interrupt_t::~interrupt_t ()
{
    handle_signals (SIG_DFL);
    close (note_fds[0]);
    if (!signal_seen) {
        close (note_fds[1]);
    }
}

bool interrupt_t::seen () const
{
    return signal_seen != 0;
}

int interrupt_t::fd () const
{
    return note_fds[0];
}

void interrupt_t::pause (std::chrono::milliseconds time) const
{
    pollfd note = {note_fds[0], 0, 0};
    poll (&note, 1, static_cast<int> (time.count ()));
}

#include "client/claim.h"
#include "tools/command/command.h"
#include "tools/show/output.h"

#include <CLI/CLI.hpp>
#include <errno.h>
#include <memory>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

// What a shell reports of a command that it cannot run.
constexpr int status_not_executable = 126;
constexpr int status_not_found = 127;

static volatile sig_atomic_t child = 0;

// A terminal sends Ctrl-C to the command as well; these come to this process alone.
static void pass_on (int number)
{
    if (child > 0) {
        kill (child, number);
    }
}

static void set_environment (const q5_scan_settings_t &settings)
{
    setenv ("Q5_SCAN_ID", std::to_string (settings.id).c_str (), 1);
    setenv ("Q5_SCAN_HOST", settings.host.c_str (), 1);
    setenv ("Q5_SCAN_PORT", std::to_string (settings.port).c_str (), 1);
}

// The signals that end a session, blocked until this process and its command have settled what to
// do with them. Under nohup SIGHUP stays ignored.
struct ending_signals_t {
    std::vector<int> heeded;
    sigset_t before;

    ending_signals_t ()
    {
        sigset_t all;
        sigemptyset (&all);
        for (int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
            struct sigaction action;
            sigaction (number, nullptr, &action);
            sigaddset (&all, number);
            if (number != SIGHUP || action.sa_handler != SIG_IGN) {
                heeded.push_back (number);
            }
        }
        pthread_sigmask (SIG_BLOCK, &all, &before);
    }
    void deliver_to_command () const
    {
        for (int number : heeded) {
            signal (number, SIG_DFL);
        }
        pthread_sigmask (SIG_SETMASK, &before, nullptr);
    }
    void pass_on_to_command () const
    {
        for (int number : heeded) {
            signal (number, number == SIGINT || number == SIGQUIT ? SIG_IGN : pass_on);
        }
        pthread_sigmask (SIG_SETMASK, &before, nullptr);
    }
};

// When hold is killed its command no longer has the bus, so it ends too.
[[noreturn]] static void become (std::vector<std::string> command, pid_t holder,
                                 const ending_signals_t &signals)
{
    prctl (PR_SET_PDEATHSIG, SIGTERM);
    if (getppid () != holder) {
        _exit (status_interrupted);
    }
    std::vector<char *> words;
    for (std::string &word : command) {
        words.push_back (word.data ());
    }
    words.push_back (nullptr);
    signal (SIGPIPE, SIG_DFL);
    signals.deliver_to_command ();
    execvp (words[0], words.data ());
    int error = errno;
    fprintf (stderr, "q5_scan: '%s' cannot be run: %s\n", printable (command[0]).c_str (),
             strerror (error));
    _exit (error == ENOENT ? status_not_found : status_not_executable);
}

static int wait_for_child ()
{
    int how = 0;
    while (waitpid (child, &how, 0) < 0 && errno == EINTR) {
    }
    child = 0;
    return WIFSIGNALED (how) ? 128 + WTERMSIG (how) : WEXITSTATUS (how);
}

// Between claim and release nothing but the end of the command ends this process.
static int run (const interruptible_t &session, const q5_scan_settings_t &settings,
                const std::vector<std::string> &command)
{
    set_environment (settings);
    signal (SIGCHLD, SIG_DFL); // if the caller ignores it the command leaves no status
    ending_signals_t signals;
    if (session.interrupt.seen ()) {
        throw failure_t{status_interrupted, "interrupted before the command ran", ""};
    }
    pid_t holder = getpid ();
    pid_t pid = fork ();
    if (pid == 0) {
        become (command, holder, signals);
    }
    if (pid < 0) {
        throw failure_t{status_failed,
                        std::string ("cannot start a process for the command: ") + strerror (errno),
                        "Free some processes and try again."};
    }
    child = pid;
    signals.pass_on_to_command ();
    return wait_for_child ();
}

static const failure_t refused = {status_dropped, "the claim was refused: another id holds the bus",
                                  "Wait until it releases the bus: --wait SECONDS."};

// Claims, runs the command, and releases however the command ends. Signals that end a session go to
// the command. The status is the command's own, or 128 plus the signal that ended it.
static report_t hold (const globals_t &globals, bool is_verbose)
{
    const std::vector<std::string> &command = globals.held_command;
    if (command.empty ()) {
        usage_failure ("hold needs a command to run", "For example: q5_scan hold -- ./measure.sh");
    }
    report_t report;
    interruptible_t session (globals);
    q5_scan_claim_t claim (session.settings);
    if (!claim.held) {
        return report_of (claim.outcome.answered () ? refused : failure_of (claim.outcome));
    }
    if (is_verbose) {
        fprintf (stderr, "q5_scan: id %d holds the bus\n", claim.settings.id);
    }
    report.printed = true;
    report.status = run (session, claim.settings, command);
    if (!claim.release ()) {
        report.failure = failure_of (claim.outcome);
        report.failure->what = claim.problem;
        report.failure->advice =
            "Release it with: q5_scan --id " + std::to_string (claim.settings.id) + " release";
    }
    return report;
}

void add_hold (command_line_t &line)
{
    auto verbose = std::make_shared<bool> (false);
    CLI::App &command = add_command (
        line, "hold", "claim the bus, run a command that has it to itself, release the bus",
        [&globals = line.globals, verbose] () { return hold (globals, *verbose); });
    command.add_flag ("--verbose", *verbose, "print the id that holds the bus, on standard error");
    command.footer ("Usage: q5_scan hold [--verbose] [--] COMMAND...\n"
                    "Exit status: that of COMMAND, 128 and the number of the signal that ended it, "
                    "126 when\nit cannot be run, 127 when it is not found; 2, 3, 4 and 130 as for "
                    "every command when the\nbus was not claimed.");
}

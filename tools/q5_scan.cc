// The command line of q5-scan: batches for the daemon, the chassis as a table, firmware images.
#include "net/exception.h"
#include "tools/command/command.h"
#include "tools/parse/parse.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <locale.h>
#include <new>
#include <optional>
#include <set>
#include <signal.h>
#include <stdlib.h>
#include <string.h>

static const char *const exit_statuses =
    "Numbers are decimal or 0x; bytes are hex, with or without blanks.\n"
    "Q5_SCAN_HOST, Q5_SCAN_PORT and Q5_SCAN_ID replace options that are not given.\n"
    "Exit status: 0 every request succeeded, 1 a request failed, 2 wrong usage, 3 no connection,\n"
    "4 the daemon dropped the batch, 130 Ctrl-C; hold exits with the status of its command.";

constexpr int32_t most_seconds = 86400;

// The words after "hold" belong to another program, dashes included. Returns where they begin;
// `argc` when there are none.
static int begin_of_held (int argc, char **argv)
{
    const std::set<std::string> with_value = {"--host", "--port", "--id", "--timeout", "--wait"};
    bool is_hold = false;
    for (int i = 1; i < argc; i++) {
        std::string word = argv[i];
        if (with_value.count (word) > 0) {
            i++;
        } else if (is_hold && (word == "--" || word[0] != '-')) {
            return i;
        } else if (word[0] != '-') {
            is_hold = word == "hold";
            if (!is_hold) {
                break;
            }
        }
    }
    return argc;
}

// Looks before the words are parsed: an error in them is reported as JSON too.
static bool wants_json (int argc, char **argv)
{
    for (int i = 1; i < argc && strcmp (argv[i], "--") != 0; i++) {
        if (strcmp (argv[i], "--json") == 0) {
            return true;
        }
    }
    return false;
}

// The options of all commands, as they are typed.
struct options_t {
    std::optional<std::string> host, port, id, timeout, wait;
};

// What an option says, or else the environment, whose variable `name` then is.
static std::optional<std::string> value_of (const std::optional<std::string> &text,
                                            const char *variable, std::string *name)
{
    const char *value = getenv (variable);
    if (text || !value || !*value) {
        return text;
    }
    *name = variable;
    return value;
}

static void take_times (const options_t &options, q5_scan_settings_t &settings)
{
    if (options.timeout) {
        settings.total_timeout = parse_seconds ("--timeout", *options.timeout, most_seconds);
    }
    if (options.wait) {
        settings.wait = parse_seconds ("--wait", *options.wait, most_seconds);
    }
}

static void take (const options_t &options, globals_t &globals)
{
    q5_scan_settings_t &settings = globals.settings;
    std::string name = "--port";
    if (auto port = value_of (options.port, "Q5_SCAN_PORT", &name)) {
        settings.port = parse_number (name, *port, 1, 65535);
    }
    int32_t port = settings.port;
    take_place (value_of (options.host, "Q5_SCAN_HOST", &name).value_or (settings.host), settings);
    settings.port = options.port ? port : settings.port;
    if (auto id = value_of (options.id, "Q5_SCAN_ID", &(name = "--id"))) {
        settings.id = parse_word (name, *id);
        globals.has_id = true;
    }
    take_times (options, settings);
}

static void add_options (CLI::App &app, options_t &options, globals_t &globals)
{
    app.add_option ("--host", options.host, "where the daemon runs (default 127.0.0.1)")
        ->type_name ("HOST[:PORT]");
    app.add_option ("--port", options.port, "its TCP port (default 1971)")->type_name ("PORT");
    app.add_option ("--id", options.id, "the client id that the batch carries (default 2)")
        ->type_name ("ID");
    app.add_option ("--timeout", options.timeout,
                    "give up when all of it takes longer (default: never; metrics, and each step "
                    "of doctor: 10)")
        ->type_name ("SECONDS");
    app.add_option ("--wait", options.wait,
                    "keep trying for SECONDS while another id holds the bus (default 0)")
        ->type_name ("SECONDS");
    app.add_flag ("--json", globals.as_json, "print the outcome as one JSON object");
}

static std::string name_of_command (const CLI::App &app)
{
    std::vector<CLI::App *> commands = app.get_subcommands ();
    return commands.empty () ? "" : commands.front ()->get_name ();
}

// CLI11 reports a missing command before a word that is not one.
static std::string what_is_wrong (const CLI::App &app, const CLI::ParseError &e)
{
    std::vector<std::string> unknown = app.remaining ();
    if (!name_of_command (app).empty ()) {
        return e.what ();
    }
    return unknown.empty () ? "a command is missing"
                            : "'" + unknown.front () + "' is not a command";
}

static report_t parse_and_run (command_line_t &line, int argc, char **argv, globals_t &globals)
{
    CLI::App &app = line.app;
    options_t options;
    add_options (app, options, globals);
    for (auto add : {add_claim, add_hold, add_send, add_run, add_batch, add_fetch, add_watch,
                     add_inventory, add_snapshot, add_metrics, add_doctor, add_identity}) {
        add (line);
    }
    try {
        app.parse (argc, argv);
        take (options, globals);
        return line.work ();
    } catch (CLI::Success &help) {
        app.exit (help);
        report_t report;
        report.printed = true;
        return report;
    } catch (CLI::ParseError &e) {
        line.name = name_of_command (app);
        return report_of (
            {status_usage, what_is_wrong (app, e), "See q5_scan --help, or man q5_scan."});
    } catch (failure_t &failure) {
        return report_of (failure);
    } catch (exception_t &e) {
        return report_of ({status_usage, e.message, ""});
    } catch (std::bad_alloc &) {
        return report_of ({status_usage, "there is not enough memory for this input", ""});
    } catch (std::exception &e) {
        return report_of ({status_failed, e.what (), "Check the limits of this user and machine."});
    }
}

int main (int argc, char **argv)
{
    signal (SIGPIPE, SIG_IGN);
    setlocale (LC_CTYPE, ""); // whether the terminal takes UTF-8
    globals_t globals;
    int held = begin_of_held (argc, argv);
    bool has_mark = held < argc && strcmp (argv[held], "--") == 0;
    globals.held_command.assign (argv + std::min (held + has_mark, argc), argv + argc);
    argc = held;
    CLI::App app ("Talks to the q5-scan daemon from a shell.", "q5_scan");
    app.set_version_flag ("--version", "q5_scan " Q5_SCAN_VERSION);
    app.require_subcommand (1);
    app.fallthrough ();
    app.footer (exit_statuses);
    app.get_formatter ()->label ("SUBCOMMAND", "COMMAND");
    app.get_formatter ()->label ("REQUIRED", "");
    app.get_formatter ()->label ("TEXT", "");
    command_line_t line = {app, globals};
    report_t report = parse_and_run (line, argc, argv, globals);
    origin_t origin = line.uses_daemon ? origin_of (line.name, globals) : origin_t{line.name};
    return print (origin, report, globals.as_json || wants_json (argc, argv));
}

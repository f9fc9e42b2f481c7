// The command line of q5-scan: batches for the daemon, the chassis as a table, firmware images.
#include "net/exception.h"
#include "tools/commands.h"
#include "tools/parse.h"

#include <new>
#include <signal.h>
#include <string.h>

static const char *const exit_statuses =
    "Numbers are decimal or 0x; bytes are hex, with or without blanks.\n"
    "Exit status: 0 every request succeeded, 1 a request failed, 2 wrong usage, 3 no connection,\n"
    "4 the daemon dropped the batch.";

// Before the words are parsed: an error in them is told as JSON too.
static bool wants_json (int argc, char **argv)
{
    for (int i = 1; i < argc && strcmp (argv[i], "--") != 0; i++) {
        if (strcmp (argv[i], "--json") == 0) {
            return true;
        }
    }
    return false;
}

static report_t run (const choice_t &choice, globals_t &globals, const std::string &port,
                     const std::string &id)
{
    globals.settings.port = parse_number ("--port", port, 1, 65535);
    globals.settings.id = parse_word ("--id", id);
    check_host (globals.settings.host);
    return choice.work ();
}

static std::string name_of_command (const CLI::App &app)
{
    std::vector<CLI::App *> commands = app.get_subcommands ();
    return commands.empty () ? "" : commands.front ()->get_name ();
}

// CLI11 tells of a missing command before it tells of a word that is none.
static std::string what_is_wrong (const CLI::App &app, const CLI::ParseError &e)
{
    std::vector<std::string> unknown = app.remaining ();
    if (!name_of_command (app).empty ()) {
        return e.what ();
    }
    return unknown.empty () ? "a command is missing" : "'" + unknown.front () + "' is no command";
}

static report_t parse_and_run (CLI::App &app, int argc, char **argv, choice_t &choice,
                               globals_t &globals)
{
    std::string port = std::to_string (globals.settings.port);
    std::string id = std::to_string (globals.settings.id);
    app.add_option ("--host", globals.settings.host, "where the daemon runs (default 127.0.0.1)")
        ->type_name ("HOST");
    app.add_option ("--port", port, "its TCP port (default 1971)")->type_name ("PORT");
    app.add_option ("--id", id, "the client id that the batch carries (default 2)")
        ->type_name ("ID");
    app.add_flag ("--json", globals.as_json, "tell the outcome as one JSON object");
    add_bus_commands (app, globals, choice);
    add_chassis_commands (app, globals, choice);
    add_image_commands (app, globals, choice);
    try {
        app.parse (argc, argv);
        return run (choice, globals, port, id);
    } catch (CLI::Success &help) {
        app.exit (help);
        report_t report;
        report.printed = true;
        return report;
    } catch (CLI::ParseError &e) {
        choice.name = name_of_command (app);
        return report_of (
            {status_usage, what_is_wrong (app, e), "See q5_scan --help, or man q5_scan."});
    } catch (failure_t &failure) {
        return report_of (failure);
    } catch (exception_t &e) {
        return report_of ({status_usage, e.message, ""});
    } catch (std::bad_alloc &) {
        return report_of ({status_usage, "there is not enough memory for this input", ""});
    }
}

int main (int argc, char **argv)
{
    signal (SIGPIPE, SIG_IGN);
    globals_t globals;
    choice_t choice;
    CLI::App app ("Talks to the q5-scan daemon from a shell.", "q5_scan");
    app.set_version_flag ("--version", "q5_scan " Q5_SCAN_VERSION);
    app.require_subcommand (1);
    app.fallthrough ();
    app.footer (exit_statuses);
    app.get_formatter ()->label ("SUBCOMMAND", "COMMAND");
    app.get_formatter ()->label ("REQUIRED", "");
    app.get_formatter ()->label ("TEXT", "");
    report_t report = parse_and_run (app, argc, argv, choice, globals);
    return print (choice.name, report, globals.as_json || wants_json (argc, argv));
}

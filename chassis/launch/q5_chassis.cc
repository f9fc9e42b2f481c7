// Runs a program on an emulated board and chassis: checks everything that can be checked before
// anything starts, then becomes the program, so that signals and the exit status are its own.

#include "chassis/file/chassis_file.h"
#include "chassis/launch/chassis_summary.h"
#include "chassis/launch/device_file.h"
#include "chassis/launch/environment.h"
#include "chassis/launch/listen_address.h"
#include "chassis/launch/preload_check.h"
#include "chassis/launch/real_memory.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

namespace fs = std::filesystem;

// Exit statuses; the latter two as a shell has them.
static constexpr int bad_request = 2;
static constexpr int cannot_execute = 126;
static constexpr int not_found = 127;

struct launch_t {
    std::string file;
    std::string trace;
    std::string registers;
    std::string vcd;
    std::string listen;
    bool fast = false;
    bool example = false;
    bool check = false;
    std::vector<char *> program; // ends with a null
};

struct launch_error_t : std::runtime_error {
    launch_error_t (int status, const std::string &message)
        : std::runtime_error (message), status (status)
    {}
    int status;
};

// Leaves an empty file, so that an old one is never mistaken for this run's.
static void prepare_output (const std::string &path, const std::string &other, const char *what)
{
    if (path.empty () || path == "-") {
        return;
    }
    std::error_code none;
    if (fs::equivalent (path, other, none)) {
        throw launch_error_t (bad_request, path + ": is " + what + "; write to another file");
    }
    if (device_at (AT_FDCWD, path.c_str ())) {
        throw launch_error_t (bad_request, path + ": is a device of the board; write to a file");
    }
    int fd = open (path.c_str (), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        throw launch_error_t (bad_request, path + ": cannot be written: " + strerror (errno));
    }
    if (flock (fd, LOCK_EX | LOCK_NB) != 0) {
        throw launch_error_t (bad_request,
                              path + ": another program is writing its waveform there");
    }
    (void)!ftruncate (fd, 0); // fails on a pipe
    close (fd);
}

static void prepare_outputs (const launch_t &launch)
{
    prepare_output (launch.trace, launch.file, "the chassis file");
    prepare_output (launch.registers, launch.file, "the chassis file");
    prepare_output (launch.vcd, launch.file, "the chassis file");
    prepare_output (launch.vcd, launch.trace, "the trace");
    prepare_output (launch.vcd, launch.registers, "the trace of the registers");
}

// In the build tree the library is beside the launcher.
static std::string find_library ()
{
    fs::path directory = fs::read_symlink ("/proc/self/exe").parent_path ();
    fs::path built = directory / "libq5_chassis.so";
    fs::path installed = (directory / Q5_INSTALLED_LIBRARY).lexically_normal ();
    for (const fs::path &library : {built, installed}) {
        if (!fs::exists (library)) {
            continue;
        }
        if (library.string ().find_first_of (" :") != std::string::npos) {
            throw launch_error_t (bad_request, library.string () +
                                                   ": cannot be preloaded from a path with a blank "
                                                   "or a colon; move it");
        }
        return library;
    }
    throw launch_error_t (bad_request, "neither " + built.string () + " nor " +
                                           installed.string () + " exists; build or install it");
}

static void check_program (const std::string &name, const std::string &library)
{
    std::string program = find_program (name);
    std::string obstacle = program.empty () ? "" : preload_obstacle (program, library);
    if (!obstacle.empty ()) {
        throw launch_error_t (cannot_execute, program + ": cannot run on the chassis: " + obstacle);
    }
}

static void set_or_unset (const char *name, const std::string &value)
{
    if (value.empty ()) {
        unsetenv (name);
    } else {
        setenv (name, value.c_str (), 1);
    }
}

static std::string absolute (const std::string &path)
{
    return path.empty () || path == "-" ? path : fs::absolute (path).string ();
}

static void set_environment (const launch_t &launch, const std::string &library)
{
    set_or_unset (FILE_VARIABLE, absolute (launch.file));
    set_or_unset (TRACE_VARIABLE, absolute (launch.trace));
    set_or_unset (REGISTERS_VARIABLE, absolute (launch.registers));
    set_or_unset (VCD_VARIABLE, absolute (launch.vcd));
    set_or_unset (LISTEN_VARIABLE, launch.listen);
    set_or_unset (FAST_VARIABLE, launch.fast ? "1" : "");
    const char *others = getenv ("LD_PRELOAD");
    set_or_unset ("LD_PRELOAD", others && *others ? library + ":" + others : library);
}

[[noreturn]] static void become (const launch_t &launch)
{
    std::string library = find_library ();
    check_program (launch.program[0], library);
    prepare_outputs (launch);
    set_environment (launch, library);
    give_up_real_memory ();
    execvp (launch.program[0], launch.program.data ());
    throw launch_error_t (errno == ENOENT ? not_found : cannot_execute,
                          std::string (launch.program[0]) + ": " + strerror (errno));
}

static int printed ()
{
    if (!std::cout.flush ()) {
        throw launch_error_t (bad_request, "standard output cannot be written");
    }
    return 0;
}

static int run (const launch_t &launch)
{
    if (launch.example) {
        std::cout << builtin_chassis_text ();
        return printed ();
    }
    chassis_settings_t settings =
        launch.file.empty () ? builtin_chassis () : load_chassis_file (launch.file);
    if (launch.check) {
        print_summary (std::cout, settings);
        return printed ();
    }
    if (launch.program.size () < 2) {
        throw launch_error_t (bad_request, "no program to run; put it after --, as in "
                                           "q5_chassis --fast -- q5_scand");
    }
    become (launch);
}

static std::string not_empty (const std::string &path)
{
    return path.empty () ? "expected a path, found nothing" : "";
}

static std::string not_dash (const std::string &path)
{
    return path == "-" ? "expected a file of its own, found -" : "";
}

static std::string is_listen_address (const std::string &text)
{
    return parse_listen_address (text)
               ? ""
               : "expected ADDRESS:PORT in numbers, as in 127.0.0.1:1971 or "
                 "0.0.0.0:0, found " +
                     text;
}

static void add_options (CLI::App &app, launch_t &launch)
{
    app.add_option ("--file", launch.file, "the chassis to play (default: a built-in one)")
        ->type_name ("CHASSIS.TOML")
        ->check (not_empty);
    app.add_option ("--trace", launch.trace, "write every frame to FILE; - is standard error")
        ->type_name ("FILE")
        ->check (not_empty);
    app.add_option ("--trace-registers", launch.registers,
                    "write every access to a register to FILE; - or nothing is standard error")
        ->type_name ("FILE")
        ->expected (0, 1)
        ->default_str ("-")
        ->check (not_empty);
    app.add_option ("--vcd", launch.vcd, "write the lines and pins to FILE, for waveform viewers")
        ->type_name ("FILE")
        ->check (not_empty)
        ->check (not_dash);
    app.add_option ("--listen", launch.listen,
                    std::string ("where clients reach the program (default ") +
                        DEFAULT_LISTEN_ADDRESS + "); port 0 is any free one, printed")
        ->type_name ("ADDRESS:PORT")
        ->check (is_listen_address);
    app.add_flag ("--fast", launch.fast, "skip the program's sleeps; the bus does not notice");
    app.add_flag ("--example", launch.example, "print the built-in chassis file and exit");
    app.add_flag ("--check", launch.check, "print what is in the chassis and exit");
    app.set_version_flag ("--version", "q5_chassis " Q5_VERSION);
    app.footer ("Usage in full: q5_chassis [OPTIONS] -- PROGRAM [ARGS...]");
}

// The options end at the first "--"; what follows is the program's alone.
static std::vector<std::string> split_off_program (char **argv, launch_t &launch)
{
    std::vector<std::string> options;
    for (argv++; *argv && strcmp (*argv, "--") != 0; argv++) {
        options.insert (options.begin (), *argv);
    }
    for (argv += *argv ? 1 : 0; *argv; argv++) {
        launch.program.push_back (*argv);
    }
    launch.program.push_back (nullptr);
    return options;
}

// What --help and --version print is not an error.
static int refused (const CLI::App &app, const CLI::ParseError &error)
{
    if (error.get_exit_code () == 0) {
        return app.exit (error);
    }
    std::vector<std::string> unknown = app.remaining (); // the last one first
    auto option = std::find_if (unknown.rbegin (), unknown.rend (),
                                [] (const std::string &word) { return word[0] == '-'; });
    if (option != unknown.rend ()) {
        complain (*option + ": unknown option; q5_chassis --help lists the options");
    } else if (!unknown.empty ()) {
        complain (unknown.back () + ": found before --, expected q5_chassis [OPTIONS] -- " +
                  unknown.back ());
    } else {
        complain (std::string (error.what ()) + "; q5_chassis --help lists the options");
    }
    return bad_request;
}

int main (int, char **argv)
{
    launch_t launch;
    CLI::App app ("Runs a program on an emulated board and chassis.", "q5_chassis");
    add_options (app, launch);
    try {
        app.parse (split_off_program (argv, launch));
        return run (launch);
    } catch (const CLI::ParseError &error) {
        return refused (app, error);
    } catch (const launch_error_t &error) {
        complain (error.what ());
        return error.status;
    } catch (const std::exception &error) {
        complain (error.what ());
        return bad_request;
    }
}

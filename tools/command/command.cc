#include "tools/command/command.h"

#include <CLI/CLI.hpp>

CLI::App &add_command (command_line_t &line, const char *name, const char *description,
                       const std::function<report_t ()> &work, needs_t needs)
{
    CLI::App *command = line.app.add_subcommand (name, description)->group ("Commands");
    command->callback ([&line, name = std::string (name), work, needs] () {
        line.name = name;
        line.work = work;
        line.uses_daemon = needs == needs_t::daemon;
    });
    return *command;
}

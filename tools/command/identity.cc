#include "tools/parse/identity.h"
#include "tools/command/command.h"
#include "tools/show/output.h"

#include <CLI/CLI.hpp>
#include <memory>

static report_t identity (const std::string &path)
{
    q5_scan_identity_t found = read_identity (path);
    report_t report;
    report.text = "type: " + printable (found.type) + "\nbuilt: " + printable (found.date) + "\n";
    report.json = {{"file", path}, {"type", found.type}, {"date", found.date}};
    return report;
}

void add_identity (command_line_t &line)
{
    auto file = std::make_shared<std::string> ();
    CLI::App &command = add_command (
        line, "identity", "type and build date of a firmware image",
        [file] () { return identity (*file); }, needs_t::files);
    command.add_option ("IMAGE", *file, "a file; - is standard input")->required ();
}

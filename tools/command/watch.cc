#include "tools/command/watch.h"

#include "tools/show/terminal.h"

#include <algorithm>
#include <stdio.h>

std::vector<std::string> marked_lines (const std::vector<row_t> &before,
                                       const std::vector<row_t> &rows)
{
    std::vector<row_t> marked;
    for (const row_t &row : rows) {
        bool is_old =
            before.empty () || std::find (before.begin (), before.end (), row) != before.end ();
        marked.push_back ({is_old ? "" : "*"});
        marked.back ().insert (marked.back ().end (), row.begin (), row.end ());
    }
    // The mark alone must not make the column appear and vanish.
    marked.front ().front () = " ";
    return table_lines (marked);
}

static std::vector<row_t> rows_of (const fetched_t &fetched, const watch_options_t &options)
{
    std::vector<row_t> rows = {heading ()};
    for (const slot_report_t &slot : fetched.slots) {
        if (!options.only_present || !slot.is_empty ()) {
            rows.push_back (row_of (slot, options.full));
        }
    }
    return rows;
}

namespace {

// What goes on between the first round and the last.
class watcher_t {
  public:
    watcher_t (const globals_t &globals, const watch_options_t &options)
        : globals (globals), options (options)
    {
        this->globals.settings.cancel_fd = interrupt.fd ();
    }
    report_t run ();

  private:
    globals_t globals;
    const watch_options_t &options;
    interrupt_t interrupt;
    terminal_t terminal;
    std::vector<row_t> before;
    int32_t round = 0;

    void show (const report_t &report, const std::vector<row_t> &rows);
    bool is_last () const
    {
        return interrupt.seen () || ferror (stdout) ||
               (options.count > 0 && round >= options.count);
    }
};

} // namespace

static std::string title_of (const q5_scan_settings_t &settings, int32_t round,
                             const report_t &report)
{
    return printable (settings.host) + ":" + std::to_string (settings.port) + "  round " +
           std::to_string (round) + (report.failure ? "  " + printable (report.failure->what) : "");
}

void watcher_t::show (const report_t &report, const std::vector<row_t> &rows)
{
    if (globals.as_json) {
        origin_t origin = origin_of ("watch", globals);
        origin.place["round"] = round;
        print (origin, report, true);
        return;
    }
    std::vector<std::string> lines = {title_of (globals.settings, round, report)};
    if (!rows.empty ()) {
        std::vector<std::string> table = marked_lines (before, rows);
        lines.insert (lines.end (), table.begin (), table.end ());
    }
    terminal.show (lines);
}

report_t watcher_t::run ()
{
    report_t report;
    while (!is_last ()) {
        round++;
        fetched_t fetched = fetch_slots (globals.settings, options.slots, options.types);
        if (interrupt.seen ()) {
            break;
        }
        if (fetched.failure && round == 1) {
            throw *fetched.failure;
        }
        report = fetched.failure ? report_of (*fetched.failure)
                                 : report_of (fetched, options.must_answer, options.only_present);
        std::vector<row_t> rows = fetched.failure ? before : rows_of (fetched, options);
        show (report, rows);
        before = rows;
        if (!is_last ()) {
            interrupt.pause (options.interval);
        }
    }
    report.status = interrupt.seen () ? status_ok : report.status;
    report.text.clear ();
    report.failure.reset ();
    report.printed = true;
    return report;
}

report_t watch (const globals_t &globals, const watch_options_t &options)
{
    return watcher_t (globals, options).run ();
}

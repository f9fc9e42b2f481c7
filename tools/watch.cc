#include "tools/watch.h"

#include "tools/terminal.h"

#include <algorithm>
#include <charconv>
#include <stdio.h>

double parse_interval (const std::string &text)
{
    double seconds = 0;
    const char *end = text.data () + text.size ();
    auto [stop, error] = std::from_chars (text.data (), end, seconds);
    if (error != std::errc () || stop != end || !(seconds >= 0 && seconds <= 3600)) {
        usage_failure ("--interval '" + printable (text) + "' is no number of seconds",
                       "Give seconds from 0 to 3600, for example 0.5.");
    }
    return seconds;
}

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

namespace {

// What goes on between the first round and the last.
class watcher_t {
  public:
    watcher_t (const q5_scan_settings_t &settings, const watch_options_t &options)
        : settings (settings), options (options)
    {
        this->settings.cancel_fd = terminal.interrupted_fd ();
    }
    report_t run ();

  private:
    q5_scan_settings_t settings;
    const watch_options_t &options;
    terminal_t terminal;
    std::vector<row_t> before;
    int32_t round = 0;

    void show (const report_t &report, const std::vector<row_t> &rows);
    bool is_last () const
    {
        return terminal.interrupted () || ferror (stdout) ||
               (options.count > 0 && round >= options.count);
    }
};

} // namespace

static std::string title_of (const q5_scan_settings_t &settings, int32_t round,
                             const report_t &report)
{
    return settings.host + ":" + std::to_string (settings.port) + "  round " +
           std::to_string (round) + (report.failure ? "  " + printable (report.failure->what) : "");
}

void watcher_t::show (const report_t &report, const std::vector<row_t> &rows)
{
    if (options.as_json) {
        print ("watch", report, true);
        return;
    }
    std::vector<std::string> lines = {title_of (settings, round, report)};
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
        std::vector<row_t> rows = before;
        report = {};
        try {
            std::vector<slot_report_t> slots = fetch_slots (settings, options.slots, options.types);
            rows = rows_of (slots, options.full);
            report = report_of (slots, rows);
        } catch (failure_t &failure) {
            if (terminal.interrupted ()) {
                break;
            }
            if (round == 1) {
                throw;
            }
            report = report_of (failure);
        }
        show (report, rows);
        before = rows;
        if (!is_last ()) {
            terminal.pause (options.interval);
        }
    }
    report.status = terminal.interrupted () ? status_ok : report.status;
    report.text.clear ();
    report.failure.reset ();
    report.printed = true;
    return report;
}

report_t watch (const q5_scan_settings_t &settings, const watch_options_t &options)
{
    return watcher_t (settings, options).run ();
}

#include "tools/command/watch.h"

#include "tools/parse/parse.h"
#include "tools/show/terminal.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <stdio.h>

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr size_t silent_part = 10; // of the silent slots, one in this many is asked in a round

struct watch_words_t {
    table_words_t table;
    std::string interval = "1", share = "50", count = "0";
};

std::vector<std::string> marked_lines (const std::vector<row_t> &before, std::vector<row_t> rows,
                                       const table_style_t &style)
{
    for (row_t &row : rows) {
        bool is_old =
            before.empty () || std::find (before.begin (), before.end (), row) != before.end ();
        row.front ().insert (0, is_old ? "   " : "*  ");
    }
    return lines_of (rows, style);
}

namespace {

class watcher_t {
  public:
    watcher_t (const globals_t &globals, const watch_words_t &words)
        : slots (parse_slots (words.table.slots)), types (words.table.parsed_types ()),
          style (words.table.style ()), must_answer (!words.table.slots.empty ()),
          interval (parse_seconds ("--interval", words.interval, 3600)),
          share (parse_number ("--share", words.share, 1, 100)),
          count (parse_number ("--count", words.count, 0, INT32_MAX)), globals (globals),
          session (globals)
    {}
    report_t run ();

  private:
    const std::vector<int32_t> slots;
    const card_types_t types;
    const table_style_t style;
    const bool must_answer;      // an empty slot is a failure
    const milliseconds interval; // between the end of a round and the next, at least
    const int32_t share;         // of the time, per cent, that the rounds may take
    const int32_t count;         // rounds; 0: until Ctrl-C
    const globals_t &globals;
    interruptible_t session;
    terminal_t terminal;
    fetched_t known;                     // what each slot said last
    std::map<int32_t, int32_t> asked_in; // slot to round
    std::vector<row_t> before;
    int32_t round = 0;

    std::vector<int32_t> due () const;
    void fetch ();
    void show (const report_t &report, const std::vector<row_t> &rows);
    bool is_last () const
    {
        return session.interrupt.seen () || ferror (stdout) || (count > 0 && round >= count);
    }
};

} // namespace

// The slots to ask in this round: those that are not silent, and of the silent ones, each of which
// takes the bus for 110 ms, some: at least one, those that were not asked for longest.
std::vector<int32_t> watcher_t::due () const
{
    if (known.slots.empty ()) {
        return slots;
    }
    std::vector<int32_t> due, silent;
    for (const slot_report_t &slot : known.slots) {
        (slot.is_empty () ? silent : due).push_back (slot.slot);
    }
    std::stable_sort (silent.begin (), silent.end (),
                      [this] (int32_t a, int32_t b) { return asked_in.at (a) < asked_in.at (b); });
    silent.resize ((silent.size () + silent_part - 1) / silent_part);
    due.insert (due.end (), silent.begin (), silent.end ());
    std::sort (due.begin (), due.end ());
    return due;
}

void watcher_t::fetch ()
{
    fetched_t fetched = fetch_slots (session.settings, due (), types);
    known.failure = fetched.failure;
    if (fetched.failure) {
        return;
    }
    if (known.slots.empty ()) {
        known.slots = fetched.slots;
    }
    for (const slot_report_t &slot : fetched.slots) {
        asked_in[slot.slot] = round;
        *std::find_if (known.slots.begin (), known.slots.end (),
                       [&] (const slot_report_t &old) { return old.slot == slot.slot; }) = slot;
    }
}

static std::string title_of (const q5_scan_settings_t &settings, int32_t round,
                             const report_t &report)
{
    return printable (place_of (settings)) + "  round " + std::to_string (round) +
           (report.failure ? "  " + printable (report.failure->what) : "");
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
        std::vector<std::string> table = marked_lines (before, rows, style);
        lines.insert (lines.end (), table.begin (), table.end ());
    }
    terminal.show (lines);
}

report_t watcher_t::run ()
{
    report_t report;
    while (!is_last ()) {
        round++;
        steady_clock::time_point start = steady_clock::now ();
        fetch ();
        auto took = duration_cast<milliseconds> (steady_clock::now () - start);
        if (session.interrupt.seen ()) {
            break;
        }
        if (known.failure && round == 1) {
            throw *known.failure;
        }
        report = known.failure ? report_of (*known.failure)
                               : report_of (known, must_answer, style.only_present);
        std::vector<row_t> shown = known.failure ? before : rows_of (known.slots, style);
        show (report, shown);
        before = shown;
        if (!is_last ()) {
            session.interrupt.pause (std::max (interval, took * (100 - share) / share));
        }
    }
    report.status = session.interrupt.seen () ? status_ok : report.status;
    report.text.clear ();
    report.failure.reset ();
    report.printed = true;
    return report;
}

void add_watch (command_line_t &line)
{
    auto words = std::make_shared<watch_words_t> ();
    CLI::App &command = add_command (
        line, "watch", "show the same table again and again",
        [&globals = line.globals, words] () { return watcher_t (globals, *words).run (); });
    words->table.add_to (command);
    command
        .add_option ("--interval", words->interval, "seconds between rounds, at least (default 1)")
        ->type_name ("SECONDS");
    command
        .add_option ("--share", words->share,
                     "how much of the time the rounds may take, 1 to 100 per cent (default 50)")
        ->type_name ("PERCENT");
    command.add_option ("--count", words->count, "rounds (default 0: until Ctrl-C)")
        ->type_name ("N");
}

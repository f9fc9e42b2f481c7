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

struct watch_options_t {
    std::vector<int32_t> slots;
    q5_scan_types_t types;
    table_style_t style;
    bool must_answer;      // an empty slot is a failure
    milliseconds interval; // between the end of a round and the next, at least
    int32_t share;         // of the time, per cent, that the rounds may take
    int32_t count;         // rounds; 0: until Ctrl-C
};

static watch_options_t options_of (const watch_words_t &words)
{
    return {parse_slots (words.table.slots),
            words.table.parsed_types (),
            words.table.style (),
            !words.table.slots.empty (),
            parse_seconds ("--interval", words.interval, 3600),
            parse_number ("--share", words.share, 1, 100),
            parse_number ("--count", words.count, 0, INT32_MAX)};
}

std::vector<std::string> marked_lines (const std::vector<row_t> &before,
                                       const std::vector<row_t> &rows, const table_style_t &style)
{
    std::vector<row_t> marked;
    for (const row_t &row : rows) {
        bool is_old =
            before.empty () || std::find (before.begin (), before.end (), row) != before.end ();
        marked.push_back (row);
        marked.back ().front ().insert (0, is_old ? "   " : "*  ");
    }
    table_t table;
    for (const row_t &row : marked) {
        table.widen (row);
    }
    fit (table, style);
    std::vector<std::string> lines;
    for (const row_t &row : marked) {
        lines.push_back (table.line (row));
    }
    return lines;
}

namespace {

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
    const watch_options_t options;
    interrupt_t interrupt;
    terminal_t terminal;
    fetched_t known;                     // what each slot said last
    std::map<int32_t, int32_t> asked_in; // slot to round
    std::vector<row_t> before;
    int32_t round = 0;

    std::vector<int32_t> due () const;
    void fetch ();
    std::vector<row_t> rows () const;
    void show (const report_t &report, const std::vector<row_t> &rows);
    bool is_last () const
    {
        return interrupt.seen () || ferror (stdout) ||
               (options.count > 0 && round >= options.count);
    }
};

} // namespace

// The slots to ask in this round: those that are not silent, and of the silent ones, each of which
// takes the bus for 110 ms, some: at least one, those that were not asked for longest.
std::vector<int32_t> watcher_t::due () const
{
    if (known.slots.empty ()) {
        return options.slots;
    }
    std::vector<int32_t> slots, silent;
    for (const slot_report_t &slot : known.slots) {
        (slot.is_empty () ? silent : slots).push_back (slot.slot);
    }
    std::stable_sort (silent.begin (), silent.end (),
                      [this] (int32_t a, int32_t b) { return asked_in.at (a) < asked_in.at (b); });
    silent.resize ((silent.size () + silent_part - 1) / silent_part);
    slots.insert (slots.end (), silent.begin (), silent.end ());
    std::sort (slots.begin (), slots.end ());
    return slots;
}

void watcher_t::fetch ()
{
    fetched_t fetched = fetch_slots (globals.settings, due (), options.types);
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

std::vector<row_t> watcher_t::rows () const
{
    std::vector<row_t> rows = {heading (options.style)};
    for (const slot_report_t &slot : known.slots) {
        if (is_shown (slot, options.style)) {
            rows.push_back (row_of (slot, options.style));
        }
    }
    return rows;
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
        std::vector<std::string> table = marked_lines (before, rows, options.style);
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
        if (interrupt.seen ()) {
            break;
        }
        if (known.failure && round == 1) {
            throw *known.failure;
        }
        report = known.failure ? report_of (*known.failure)
                               : report_of (known, options.must_answer, options.style.only_present);
        std::vector<row_t> shown = known.failure ? before : rows ();
        show (report, shown);
        before = shown;
        if (!is_last ()) {
            interrupt.pause (
                std::max (options.interval, took * (100 - options.share) / options.share));
        }
    }
    report.status = interrupt.seen () ? status_ok : report.status;
    report.text.clear ();
    report.failure.reset ();
    report.printed = true;
    return report;
}

void add_watch (command_line_t &line)
{
    auto words = std::make_shared<watch_words_t> ();
    CLI::App &command = add_command (line, "watch", "show the same table again and again",
                                     [&globals = line.globals, words] () {
                                         return watcher_t (globals, options_of (*words)).run ();
                                     });
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

// What the board makes of daemons that differ from ours: the table of daemons.txt.
#include "tests/board.h"
#include "tests/expected.h"

#include <map>
#include <numeric>
#include <regex>
#include <set>
#include <sstream>

namespace {

// What one row of the table changes, by the name of the change.
struct changes_t {
    std::map<std::string, std::set<uint32_t>> places; // "late": offsets
    std::map<std::string, std::vector<access_t>> writes;

    explicit changes_t (const std::string &row)
    {
        std::istringstream words (row);
        for (std::string what, place, word; words >> what >> place;) {
            uint32_t at = std::stoul (place, nullptr, 16);
            if (std::set<std::string>{"flip", "ready", "started", "look", "done", "whole", "peek"}
                    .count (what)) {
                words >> word;
                uint32_t value = std::stoul (word, nullptr, 16);
                writes[what].push_back ({at, static_cast<int> (word.size () / 2), value, true});
            } else {
                places[what].insert (at);
            }
        }
    }
    bool has (const std::string &change, uint32_t offset)
    {
        return places[change].count (offset) > 0;
    }
    // The one value of a change.
    uint32_t value_of (const std::string &change, uint32_t otherwise)
    {
        return places[change].empty () ? otherwise : *places[change].begin ();
    }
};

// Sits between the daemon and the board and makes its accesses those of the other daemon.
struct meddler_t final : register_file_t {
    chassis_t &board;
    changes_t changes;
    bool in_transfer = false, started = false, looked = false, done = false, flipped = false;
    std::vector<access_t> waiting; // for the start
    std::map<uint32_t, uint32_t> merged;

    meddler_t (chassis_t &chassis, const std::string &row) : board (chassis), changes (row) {}

    void begin_transfer ()
    {
        in_transfer = true;
        started = looked = done = false;
    }
    void write_at (const std::string &moment)
    {
        for (const access_t &a : changes.writes[moment]) {
            uint32_t bits = moment == "flip" ? board.memory ().read (a.offset, a.width) : 0;
            if (a.offset == 0x119C0) {
                board.driver_request (SCANP_DO_CPCR_COMMAND, a.value);
            } else {
                board.write (a.offset, a.width, a.value ^ bits);
            }
        }
    }
    void flip_once ()
    {
        if (in_transfer && !std::exchange (flipped, true)) {
            write_at ("flip");
        }
    }
    void write_what_waits ()
    {
        for (const access_t &a : std::exchange (waiting, {})) {
            board.write (a.offset, a.width, a.value);
        }
    }
    void spoil_bytes ()
    {
        for (uint32_t at : changes.places["byte"]) {
            *board.memory ().physical (0x01F40000 + at) ^= 0xFF;
        }
    }
    uint32_t read (uint32_t offset, int width) override
    {
        if (started && offset == 0x1010 && !std::exchange (looked, true)) {
            board.advance (changes.value_of ("wait", 0));
            for (const access_t &a : changes.writes["peek"]) {
                board.read (a.offset, a.width);
            }
            write_at ("look");
        }
        uint32_t value = board.read (offset, width);
        for (const access_t &a : waiting) {
            value = a.offset == offset ? a.value : value;
        }
        if (started && offset == 0x1020 && !(value & 0x8000) && !std::exchange (done, true)) {
            write_at ("done");
        }
        return value;
    }
    // One write of the daemon as the row has it.
    void pass_on (uint32_t offset, int width, uint32_t value)
    {
        for (const access_t &own : changes.writes["whole"]) {
            value = own.offset == offset ? value & own.value : value;
        }
        if (changes.has ("merge", offset - 2)) {
            merged[offset - 2] = value;
        } else if (changes.has ("merge", offset)) {
            board.write (offset, 4, value << 16 | merged[offset]);
        } else if (changes.has ("bytes", offset)) {
            for (int i = 0; i < width; i++) {
                board.write (offset + i, 1, value >> 8 * (width - 1 - i) & 0xFF);
            }
        } else {
            board.write (offset, changes.has ("halves", offset) ? 2 : width, value);
        }
    }
    void write (uint32_t offset, int width, uint32_t value) override
    {
        bool starts = offset == 0x11A40 && (value & 0x30) == 0x20;
        if (starts) {
            if (!changes.places["defer"].empty ()) {
                write_what_waits ();
            }
            write_at ("ready");
            spoil_bytes ();
        }
        bool waits = changes.has ("late", offset) || changes.has ("defer", offset);
        if (in_transfer && !started && waits) {
            waiting.push_back ({offset, width, value, true});
        } else if (!changes.has ("drop", offset) &&
                   !(in_transfer && changes.has ("skip", offset))) {
            for (int i = changes.has ("twice", offset) ? 2 : 1; i > 0; i--) {
                pass_on (offset, width, value);
            }
        }
        if (offset == 0x11A40 && (value & 0x10) && !std::exchange (started, true)) {
            write_what_waits ();
            spoil_bytes ();
            write_at ("started");
        }
    }
};

// Whether the driver's requests for commands do not reach it.
bool sends_no_command;

extern "C" int __real_ioctl (int fd, unsigned long request, uintptr_t argument);
extern "C" int __wrap_ioctl (int fd, unsigned long request, uintptr_t argument)
{
    bool is_dropped = sends_no_command && request == SCANP_DO_CPCR_COMMAND;
    return is_dropped ? 0 : __real_ioctl (fd, request, argument);
}

constexpr std::pair<const char *, board_t::fill_t> fills[] = {
    {"zeros", board_t::fill_t::zeros},    {"ones", board_t::fill_t::ones},
    {"noise", board_t::fill_t::noise},    {"noise 2", board_t::fill_t::noise2},
    {"noise 3", board_t::fill_t::noise3},
};

class daemons : public board_test {
  protected:
    uint8_t rx[4096];
    std::unique_ptr<meddler_t> meddler;
    std::set<std::string> said;

    void SetUp () override
    {
        may_stop = true;
    }
    void start (const std::string &row)
    {
        power_up ();
        meddler = std::make_unique<meddler_t> (*chassis, row);
        chassis->front = meddler.get ();
        log->on_command = [this] (uint32_t) { meddler->flip_once (); };
        sends_no_command = meddler->changes.has ("drop", 0x119C0);
        for (uint32_t left = meddler->changes.value_of ("init", 1); left > 0; left--) {
            scan_port_init ();
        }
        if (meddler->changes.value_of ("cached", 0)) {
            scanp_map_phys_mem (0x01F40000, 8192, 0);
        }
    }
    std::string ask (uint32_t slot, int32_t txlen)
    {
        bytes_t tx (4094);
        std::iota (tx.begin (), tx.end (), 1);
        meddler->begin_transfer ();
        int32_t result = scan_port_transfer (slot, 0x93, txlen, tx.data (), sizeof (rx), rx);
        bool echoed = result == txlen && std::equal (rx, rx + std::max (txlen, 0), tx.begin ());
        return std::to_string (result) + (result < 0 || echoed ? "" : " not the echo");
    }
    void end ()
    {
        sends_no_command = false;
        chassis.reset ();
        meddler.reset ();
    }

    // "stopped: PPARD"; why goes to `said`, without its numbers.
    std::string remarks ()
    {
        std::string text;
        for (const std::string &remark : log->remarks) {
            static const std::regex line ("(.*) is 0x\\w+: (.*) \\(.*\\)"), bits ("0x\\w+");
            std::smatch parts;
            std::regex_match (remark, parts, line);
            text += " " + parts[1].str ();
            said.insert (std::regex_replace (parts[2].str (), bits, "0x..."));
        }
        return text;
    }
    // Of a day's work: good and bad cards, and a good one after each bad one.
    std::string day (const std::string &row, board_t::fill_t fill)
    {
        settings = {};
        settings.card (3).echoes (0x93).pauses (50);
        settings.card (4).echoes (0x93).fails (fault_t::noise);
        settings.card (5).echoes (0x93).from (0xA5);
        settings.card (6).echoes (0x93).fails (fault_t::line_break, 1);
        settings.card (7).fails (fault_t::line_low);
        settings.card (23).echoes (0x93);
        settings.board.fill = fill;
        start (row);
        std::string results;
        static const int turns[][2] = {{3, 2}, {4, 2}, {3, 40}, {23, 2}, {5, 2}, {3, 0},
                                       {6, 3}, {3, 2}, {8, 2},  {7, 2},  {3, 2}};
        for (auto [slot, txlen] : turns) {
            if (!log->stopped) {
                results += (results.empty () ? "" : " ") + ask (slot, txlen);
            }
        }
        std::string said_by_it = remarks ();
        bool stopped = log->stopped;
        end ();
        bool right = results == "2 -1 40 2 -4 0 -1 2 -3 -2 2";
        return stopped ? said_by_it.substr (1) : (right ? "right" : results) + said_by_it;
    }
    // Over every fill: "right; ones, noise: stopped: PPARD".
    std::string days (const std::string &row)
    {
        std::map<std::string, std::string> verdicts; // and the fills that gave it
        for (auto [name, fill] : fills) {
            std::string &names = verdicts[day (row, fill)];
            names += (names.empty () ? "" : ", ") + std::string (name);
        }
        std::string text;
        for (const auto &[verdict, names] : verdicts) {
            text += verdicts.size () == 1 ? verdict
                                          : (text.empty () ? "" : "; ") + names + ": " + verdict;
        }
        return text;
    }
};

TEST_F (daemons, wrong_ones_are_noticed_and_right_ones_work)
{
    std::ifstream table (Q5_EXPECTED "/chassis/daemons.txt");
    std::string text;
    for (std::string line; std::getline (table, line) && line != "Remarks";) {
        if (line.empty () || line[0] == '#') {
            text += line + "\n";
            continue;
        }
        std::string list = line.substr (0, line.find (" => ")), kind = list.substr (0, 6), last;
        std::istringstream rows (list.substr (6));
        for (std::string row; std::getline (rows >> std::ws, row, ';');) {
            std::string verdict = days (row);
            text += verdict == last ? "; " : last.empty () ? "" : " => " + last + "\n";
            text += (verdict != last ? kind : "") + row;
            last = verdict;
            EXPECT_EQ (verdict == "right", kind == "right ") << row << verdict;
        }
        text += " => " + last + "\n";
    }
    text += "Remarks\n" + in_rows ({said.begin (), said.end ()}, "; ");
    expect_file ("chassis/daemons.txt", text);
}

} // namespace

#include "tools/command/snapshot.h"

#include "client/result.h"
#include "tools/show/answer_text.h"
#include "tools/show/progress.h"

#include <algorithm>
#include <map>
#include <optional>

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::steady_clock;

constexpr int32_t no_slot = 21;         // refused at once: the time of the way alone
constexpr int32_t most_polls = 11;      // of one request, then it failed
constexpr microseconds poll (10000);    // between two looks of the daemon at the controller
constexpr microseconds usual (100);     // delay of a card that says none
constexpr microseconds real (poll / 2); // a daemon that polls faster than this skips the waiting

std::vector<taken_t> take_snapshot (const q5_scan_settings_t &settings,
                                    const std::vector<int32_t> &slots,
                                    const std::vector<int32_t> &commands)
{
    std::vector<q5_scan_request_t> all;
    for (int32_t slot : slots) {
        for (int32_t command : commands) {
            all.push_back ({slot, command});
        }
    }
    progress_t progress;
    std::vector<taken_t> taken;
    for (size_t at = 0; at < all.size (); at += MAX_REQUESTS - 1) {
        std::vector<q5_scan_request_t> batch = {{no_slot, commands.front ()}};
        size_t end = std::min<size_t> (at + MAX_REQUESTS - 1, all.size ());
        batch.insert (batch.end (), all.begin () + at, all.begin () + end);
        steady_clock::time_point before = steady_clock::now ();
        size_t num_replies = 0;
        auto note = [&] (const q5_scan_request_t &reply) {
            steady_clock::time_point now = steady_clock::now ();
            if (num_replies++ > 0) {
                taken.push_back ({reply, duration_cast<microseconds> (now - before)});
                progress.show (taken.size (), all.size ());
            }
            before = now;
        };
        q5_scan_outcome_t outcome = q5_scan_exchange (settings, batch, note);
        if (!outcome.answered ()) {
            throw failure_of (outcome);
        }
    }
    return taken;
}

// How long the daemon really sleeps between two looks, as the silent slots tell; nothing without
// one, or when it does not sleep at all.
static std::optional<microseconds> poll_time (const std::vector<taken_t> &taken)
{
    std::vector<microseconds> times;
    for (const taken_t &t : taken) {
        if (t.request.result == Q5_SCAN_NO_ANSWER) {
            times.push_back (t.time / most_polls);
        }
    }
    if (times.empty ()) {
        return std::nullopt;
    }
    auto middle = times.begin () + times.size () / 2;
    std::nth_element (times.begin (), middle, times.end ());
    return *middle < real ? std::nullopt : std::optional (*middle);
}

// Request and answer on the line: the command three times, and addresses around the data.
static microseconds frames_time (const q5_scan_request_t &request)
{
    int64_t characters = 4 + 2 + request.result;
    int64_t rate = request.slot == 23 || request.slot == 24 ? 165000 : 825000;
    return microseconds (characters * 11 * 1000000 / rate);
}

// A look finds the answer that came since the one before; its delay is such that it comes in the
// middle between the two.
static std::optional<microseconds> delay_of (const taken_t &t, std::optional<microseconds> one)
{
    if (!one || t.request.result < 0) {
        return std::nullopt;
    }
    int64_t polls = std::min<int64_t> ((t.time + *one / 2) / *one, most_polls - 1);
    microseconds frames = frames_time (t.request);
    int64_t without = (frames + usual) / poll + 1;
    if (polls <= without) {
        return std::nullopt;
    }
    return polls * poll - poll / 2 - frames;
}

static std::string answer_lines (const taken_t &t, std::optional<microseconds> one)
{
    const q5_scan_request_t &request = t.request;
    std::string lines =
        "\n[[card.answer]]\ncommand = " + std::to_string (request.command & 0xFF) + "\n";
    if (request.result >= 0) {
        lines += content_of (request.rx, request.command == Q5_SCAN_GET_TYPED);
    } else if (request.result == Q5_SCAN_BAD_ADDRESS) {
        lines += "hex = \"\"\naddress = 0xA5\n";
    } else {
        lines += "hex = \"00\"\nfault = \"framing\"\n";
    }
    if (std::optional<microseconds> delay = delay_of (t, one)) {
        lines += "delay = " + std::to_string (delay->count ()) + "\n";
    }
    return lines;
}

// A fault of the card as a whole, which a chassis file cannot tell of one answer alone.
static std::string card_fault (const std::vector<taken_t> &answers)
{
    const std::map<int32_t, const char *> faults = {{Q5_SCAN_NO_SLOT, "line low"},
                                                    {Q5_SCAN_NOT_SENT, "endless transmitter"}};
    for (const taken_t &t : answers) {
        auto found = faults.find (t.request.result);
        if (found != faults.end ()) {
            return found->second;
        }
    }
    return "";
}

static std::string card_lines (int32_t slot, const std::vector<taken_t> &answers,
                               std::optional<microseconds> one)
{
    std::string lines = "\n[[card]]\nslot = " + std::to_string (slot) + "\n";
    std::string fault = card_fault (answers);
    if (!fault.empty ()) {
        lines += "fault = \"" + fault + "\"\n";
    }
    for (const taken_t &t : answers) {
        bool is_answer = t.request.result >= 0 || t.request.result == Q5_SCAN_LINE_ERROR ||
                         t.request.result == Q5_SCAN_BAD_ADDRESS;
        lines += is_answer ? answer_lines (t, one) : "";
    }
    return lines;
}

std::string chassis_file_of (const std::vector<taken_t> &taken)
{
    std::map<int32_t, std::vector<taken_t>> cards;
    for (const taken_t &t : taken) {
        bool is_nothing =
            t.request.result == Q5_SCAN_NO_ANSWER || !q5_scan_slot_exists (t.request.slot);
        if (!is_nothing) {
            cards[t.request.slot].push_back (t);
        }
    }
    std::string text;
    for (const auto &[slot, answers] : cards) {
        text += card_lines (slot, answers, poll_time (taken));
    }
    return text;
}

report_t snapshot (const globals_t &globals, const std::vector<int32_t> &slots,
                   const std::vector<int32_t> &commands)
{
    interrupt_t interrupt;
    q5_scan_settings_t settings = globals.settings;
    settings.cancel_fd = interrupt.fd ();
    std::vector<taken_t> taken = take_snapshot (settings, slots, commands);
    report_t report;
    report.text = "# What the cards of " + printable (settings.host) + " port " +
                  std::to_string (settings.port) + " answered, " + time_text () +
                  ".\n# To play it: q5_chassis --file chassis.toml -- q5_scand\n" +
                  chassis_file_of (taken);
    report.json["chassis"] = report.text;
    return report;
}

// The command line up to the network: what it reads, how it takes messages apart, how it ends.
#include "tests/fake_server.h"
#include "tests/shell.h"
#include "tools/batch.h"
#include "tools/parse.h"
#include "tools/watch.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

// What a failure says; "" when `call` throws none.
template <typename call_t> static std::string complaint (call_t call)
{
    try {
        call ();
    } catch (failure_t &failure) {
        EXPECT_EQ (failure.status, status_usage);
        EXPECT_NE (failure.advice, "");
        return failure.what;
    }
    return "";
}

TEST (numbers, are_decimal_or_hex_and_never_wrap)
{
    const std::vector<std::pair<const char *, int32_t>> good = {
        {"0", 0},
        {"010", 10},
        {"0x10", 16},
        {"0XfF", 255},
        {"-5", -5},
        {"-0x80000000", INT32_MIN},
        {"2147483647", INT32_MAX},
    };
    for (auto &[text, value] : good) {
        EXPECT_EQ (parse_word ("n", text), value) << text;
    }
    for (const char *text : {"", "-", "--1", "+1", " 1", "1 ", "0x", "0x-1", "1.5", "ten", "0xg"}) {
        EXPECT_EQ (complaint ([&] { parse_word ("n", text); }),
                   "n '"s + text + "' is not a number");
    }
    for (const char *text : {"2147483648", "-2147483649", "0x100000000", "4294967297",
                             "18446744073709551616", "99999999999999999999999"}) {
        EXPECT_EQ (complaint ([&] { parse_word ("n", text); }),
                   "n '"s + text + "' is out of range");
    }
    EXPECT_EQ (parse_slot ("31"), 31);
    EXPECT_EQ (parse_slots ({"23,3-5", "4", "31-31"}), (std::vector<int32_t>{3, 4, 5, 23, 31}));
    EXPECT_EQ (parse_slots ({}).size (), 32u);
    for (const char *text : {"3-", "-3", "5-4", "3,,4", "3-32", "", "1-2-3"}) {
        EXPECT_NE (complaint ([&] { parse_slots ({text}); }), "") << text;
    }
    EXPECT_EQ (parse_seconds ("s", "0.0001", 9).count (), 1);
    EXPECT_EQ (parse_seconds ("s", "9", 9).count (), 9000);
    for (const char *text : {"", "-1", "9.1", "nan", "1s"}) {
        EXPECT_EQ (complaint ([&] { parse_seconds ("s", text, 9); }),
                   "s '"s + text + "' is no number of seconds");
    }
    EXPECT_EQ (complaint ([] { parse_slot ("-1"); }), "slot '-1' is out of range");
}

TEST (bytes, are_pairs_of_hex_digits)
{
    EXPECT_EQ (parse_bytes ("b", "01a0FF", 3), (bytes_t{0x01, 0xA0, 0xFF}));
    EXPECT_EQ (parse_bytes ("b", " 01  a0\t0xffFE ", 4), (bytes_t{0x01, 0xA0, 0xFF, 0xFE}));
    EXPECT_EQ (parse_bytes ("b", "", 0), bytes_t ());
    const std::vector<std::pair<const char *, const char *>> bad = {
        {"01 234", "b '234' has an odd number of hex digits"},
        {"0g", "b '0g' is not hex at character 2"},
        {"\x10\xB0", "b '\\x10\\xb0' is not hex at character 1"},
        {"010203", "b has 3 bytes"},
    };
    for (auto &[text, message] : bad) {
        EXPECT_EQ (complaint ([t = text] { parse_bytes ("b", t, 2); }), message);
    }
}

static std::string times (int count, const std::string &text)
{
    std::string all;
    for (; count > 0; count--) {
        all += text;
    }
    return all;
}

// The requests of a batch as the command line would have them; or what is wrong with it.
static std::string batch_of (const std::string &text)
{
    std::ostringstream shown;
    std::string message = complaint ([&] {
        std::istringstream stream (text);
        for (const q5_scan_request_t &r : read_batch (stream, "f")) {
            shown << r.slot << ' ' << r.command << ' ' << r.rxlen << " [" << hex (r.tx) << "]; ";
        }
    });
    return message.empty () ? shown.str () : message;
}

TEST (batch_text, gives_requests_or_names_the_line_that_is_wrong)
{
    const std::string half = "3 5 --tx " + times (2047, "00") + "\n", short_27 = times (27, " 00");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"# comment\n\n 3 0x33\r\n", "3 51 4096 []; "},
        {"4 51 --tx 01 02 0a --rx 5 # more", "4 51 5 [01 02 0a]; "},
        {"4 51 --rx=0 --tx=ff\n0 2", "4 51 0 [ff]; 0 2 0 []; "},
        {"4 51 --tx \"01 02\"\nsend 7 1 2 '03'", "4 51 4096 [01 02]; 7 147 0 [01 02 03]; "},
        {"4 51 --tx \"01 --rx 2", "f:1: --tx '\"01' is not hex at character 1"},
        {"4 51 --tx=01 --tx 02", "f:1: --tx is given twice"},
        {"claim\nsend 7 1 0xff 0a 0b", "0 1 0 []; 7 147 0 [01 ff 0a 0b]; "},
        {" # nothing\n", "f holds no request"},
        {"\n32 51", "f:2: slot '32' is out of range"},
        {"x", "f:1: slot 'x' is not a number"},
        {"3", "f:1: a command is missing behind the slot"},
        {"3 --rx 4", "f:1: a command is missing behind the slot"},
        {"3 51 4", "f:1: '4' is not expected here"},
        {"3 51 --rx=", "f:1: --rx has no value"},
        {"3 51 --rx 4097", "f:1: --rx '4097' is out of range"},
        {"3 51 --rx 1 2", "f:1: --rx '1 2' is not a number"},
        {"3 51 --to 1", "f:1: '--to' is not expected here"},
        {"claim 3", "f:1: '3' is not expected behind claim"},
        {"send 3 1", "f:1: send needs SLOT, FIRST and SECOND"},
        {"send 3 1 256", "f:1: SECOND '256' is out of range"},
        {"send 3 10 2", "f:1: FIRST '10' could be meant as decimal or as hex"},
        {"send 3 1 2 --rx 4", "f:1: '--rx' is not expected here"},
        {times (100, "3 5\n"), times (100, "3 5 4096 []; ")},
        {times (101, "3 5\n"), "f:101: this is the 101st request"},
        {half + half + "3 5 --tx 00", "f:3: up to here the requests transmit 4095 bytes"},
        {half + half, times (2, "3 5 4096 [00" + times (2046, " 00") + "]; ")},
        {"send 3 1 2" + short_27, "3 147 0 [01 02" + short_27 + "]; "},
        {"send 3 1 2 00" + short_27, "f:1: BYTES has 28 bytes"},
    };
    for (auto &[text, shown] : cases) {
        EXPECT_EQ (batch_of (text), shown);
    }
}

TEST (json, holds_any_bytes)
{
    report_t report;
    report.json["type"] = "\xFF\"\\\n\x01"s;
    json_t back = json_t::parse (json_line ({"identity"}, report));
    EXPECT_EQ (back["type"], "\xEF\xBF\xBD\"\\\n\x01");
    EXPECT_EQ (back["exit_status"], 0);
}

TEST (watch, marks_the_rows_that_changed)
{
    std::vector<row_t> before = {{"SLOT", "STATE"}, {"3", "ok"}, {"4", "ok"}};
    std::vector<row_t> now = {{"SLOT", "STATE"}, {"3", "ok"}, {"4", "line error"}};
    EXPECT_EQ (marked_lines ({}, now)[2], "   4     line error");
    EXPECT_EQ (marked_lines (before, now),
               (std::vector<std::string>{"   SLOT  STATE", "   3     ok", "*  4     line error"}));
}

TEST (program, ends_with_the_right_status)
{
    shell_t shell;
    std::string identity = "Type: ABC\0Compiled on:\0Jan 12 2004\00010:22:33\0"s;
    shell.write ("old", "\x7F\0junk"s + identity);
    shell.write ("new", "\0\0Type: ABC\0Compiled on:\0Feb 1 2004\00000:00:00"s);
    shell.write ("typed", "Type: ABC");
    shell.write ("dated", "Type: ABC\0Compiled on:\0soon\0"s);
    shell.write ("monthless", "Type: ABC\0Compiled on:\0Jen 12 2004\00010:22:33\0"s);
    shell.write ("printing", "Type: %s\0x\0Type: %s\0"s + identity);
    shell.write ("endless", "Type: " + std::string (100000, 'A') + "\0Compiled on:\0Jan"s);
    shell.write ("empty", "");
    shell.write ("five", "A\xFF z\0"s);
    shell.run ("mkdir folder; truncate -s 268435457 large; truncate -s 268435456 zeros");
    struct run_t {
        const char *line;
        int status;
        const char *text; // somewhere in what it says
    };
    const std::vector<run_t> runs = {
        {"q5_scan", 2, "a command is missing"},
        {"q5_scan nonsense", 2, "'nonsense' is no command"},
        {"q5_scan claim now", 2, "now"},
        {"q5_scan run 3", 2, "COMMAND is required"},
        {"q5_scan run 3 51 --rx ''", 2, "--rx '' is not a number"},
        {"q5_scan run 3 51 --tx 0", 2, "--tx '0' has an odd number"},
        {"q5_scan send 3 1 2 $(printf '00%.0s' $(seq 28))", 2, "BYTES has 28 bytes"},
        {"q5_scan --port 0 claim", 2, "--port '0' is out of range"},
        {"q5_scan --host $(printf 'a%.0s' $(seq 300)) claim", 2, "300 characters"},
        {"q5_scan --json run 3", 2,
         "{\"command\":\"run\",\"ok\":false,\"exit_status\":2,\"time\":\"2"},
        {"q5_scan watch --interval nan", 2, "--interval 'nan'"},
        {"q5_scan batch missing", 2, "'missing' cannot be read: No such file"},
        {"q5_scan batch zeros", 2, "zeros has more than 1048576 bytes"},
        {"echo 3 51 4 | q5_scan batch", 2, "standard input:1: '4' is not expected here"},
        {"q5_scan claim --port 1", 3, "no connection to 127.0.0.1 port 1: Connection refused"},
        {"q5_scan --host no.such.host.invalid claim", 3, "'no.such.host.invalid' is not known"},
        {"q5_scan watch --port 1 --json", 3, "\"kind\":\"no connection\""},
        {"q5_scan identity old", 0, "type: ABC\nbuilt: Jan 12 2004 10:22:33\n"},
        {"cat new | q5_scan identity --json -", 0, "\"date\":\"Feb 1 2004 00:00:00\""},
        {"q5_scan identity five", 1, "five carries no build identity"},
        {"q5_scan identity zeros", 1, "zeros carries no build identity"},
        {"q5_scan identity typed", 1, "no build date"},
        {"q5_scan identity endless", 1, "but no build identity behind it"},
        {"q5_scan identity empty", 2, "empty is empty"},
        {"q5_scan identity dated", 1, "dated carries a build date that is none: soon"},
        {"q5_scan identity printing", 0, "type: ABC\nbuilt: Jan 12 2004 10:22:33\n"},
        {"q5_scan identity folder", 2, "'folder' cannot be read: Is a directory"},
        {"q5_scan identity large", 2, "large has more than 268435456 bytes"},
        {"q5_scan newer old new", 0, "new is newer: built Feb 1 2004 00:00:00"},
        {"q5_scan newer --json new old", 0, "\"newer\":\"first\""},
        {"q5_scan newer old old", 0, "same build date"},
        {"q5_scan newer old monthless", 1, "none: Jen 12 2004 10:22:33"},
        {"q5_scan newer - -", 2, "both images"},
        {"q5_scan dump five", 0,
         "41 ff 20 7a 00                                      A . . z . \n"},
        {"q5_scan dump five --json", 0, "\"size\":5,\"data_hex\":\"41ff207a00\"}"},
        {"q5_scan dump old > /dev/full", 1, "cannot be written: No space left"},
        {"{ q5_scan dump zeros; echo $? >&2; } | head -n 1", 0, "\n0\n"},
    };
    for (const run_t &run : runs) {
        outcome_t outcome = shell.run (run.line);
        EXPECT_EQ (outcome.status, run.status) << run.line << "\n" << outcome.errors;
        EXPECT_TRUE (has (outcome.output + outcome.errors, run.text))
            << run.line << "\n"
            << outcome.output << outcome.errors;
        EXPECT_TRUE (outcome.output.empty () || outcome.output.back () == '\n') << run.line;
    }
}

// Runs the command against a server that answers with these bytes alone.
static outcome_t served (const std::string &command, const bytes_t &reply, bytes_t *sent)
{
    fake_server_t server (reply);
    outcome_t outcome =
        shell_t ().run ("q5_scan --port " + std::to_string (server.port) + " " + command);
    *sent = server.received ();
    return outcome;
}

TEST (program, sends_one_batch_and_tells_what_became_of_it)
{
    struct case_t {
        const char *command;
        bytes_t reply;
        int status;
        bytes_t sent;
        std::vector<const char *> texts; // somewhere in what it says
    };
    const bytes_t run = words ({9, 1, 3, 51, 4096, 0}), two_bytes = {0xFF, '"'};
    const bytes_t fetch = words ({2, 1, 31, 51, 4096, 0});
    const std::vector<case_t> cases = {
        {"run 3 51 --id 9", {}, 4, run, {"another id holds the bus (this batch went out as id 9)"}},
        {"--json fetch 31", {}, 4, fetch, {"\"error\":{\"kind\":\"dropped\""}},
        {"fetch 31", {0, 0}, 3, fetch, {"closed the connection after 0 of 1 replies"}},
        {"fetch 30 31",
         words ({-1}),
         3,
         words ({2, 2, 30, 51, 4096, 0, 31, 51, 4096, 0}),
         {"30    line error", "31    not answered", "after 1 of 2 replies"}},
        {"run 3 51 --id 9", words ({8, 3}), 3, run, {"after 0 of 1 replies"}},
        {"--json --timeout 0.3 fetch 31",
         words ({INT32_MAX}) + bytes_t (4096, 1),
         3,
         fetch,
         {"\"result\":2147483647", "\"length\":4094", "\"raw_state\":\"not asked\""}},
        {"--id -7 batch - <<E\n3 5 --tx 0a --rx 2\n4 -6 --tx 0b0c --rx 0\nclaim\nE",
         words ({3}) + two_bytes + words ({-2, -1}),
         1,
         words ({-7, 3, 3, 5, 2, 1, 4, -6, 0, 2, 0, 1, 0, 0}) + bytes_t{10, 11, 12},
         {"slot 3 command 5: 3 bytes received, 2 fetched\n    0000  ff 22 ",
          "slot 4 command -6: failed (-2)", "claim: refused (-1), another id holds the bus"}},
        {"--id 0 claim", words ({1}), 0, words ({0, 1, 0, 1, 0, 0}), {"id 0 holds nothing"}},
        {"fetch 0 2-5 --types A=byte",
         words ({-1, -2, -3, -4, -10}),
         1,
         words ({2,  5,    0, 51, 4096, 0,    2, 51, 4096, 0,    3,
                 51, 4096, 0, 4,  51,   4096, 0, 5,  51,   4096, 0}),
         {"line error", "no such slot, or line low", "no card, or silent", "wrong address",
          "not sent"}},
        {"fetch 31", words ({-3}), 1, fetch, {"no card"}},
    };
    for (const case_t &c : cases) {
        bytes_t sent;
        outcome_t outcome = served (c.command, c.reply, &sent);
        EXPECT_EQ (outcome.status, c.status) << c.command;
        EXPECT_EQ (sent, c.sent) << c.command;
        for (const char *text : c.texts) {
            EXPECT_TRUE (has (outcome.output + outcome.errors, text)) << text << outcome.output;
        }
    }
}

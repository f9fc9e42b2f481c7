#include "scan/q5_scan_result.h"
#include "tests/cases.h"
#include "tests/support.h"
#include "tools/fetch.h"
#include "tools/types.h"

static bytes_t bytes_of (const std::string &text)
{
    return bytes_t (text.begin (), text.end ());
}

// What the command line shows of a message; its bytes have nothing behind them.
static std::string fields_of (const std::string &line)
{
    std::string names = line.substr (0, line.find (' '));
    bytes_t message = bytes_of (line.substr (names.size () + 1));
    try {
        q5_scan_types_t types = names == "-" ? q5_scan_usual_types () : parse_types (names);
        slot_report_t slot = {
            3, 1, 0, q5_scan_decode (message.data (), message.size (), types), {}};
        return row_of (slot, false)[4];
    } catch (failure_t &failure) {
        return failure.what + "; " + failure.advice;
    }
}

TEST (message, is_taken_apart_as_far_as_it_is_sound)
{
    expect_cases ("messages.txt", fields_of);
    std::string longest = "- \1s" + std::string (4094, 'A');
    EXPECT_NE (fields_of (longest).find ("has no end"), std::string::npos);
    // Whatever the bytes, all of them are letters, fields or left.
    uint32_t random = 1;
    for (int i = 0; i < 20000; i++) {
        bytes_t bytes (random >> 8 & 15);
        for (uint8_t &byte : bytes) {
            random = random * 1664525 + 1013904223;
            byte = random >> 24 & 1 ? "\3bhisxq\377"[random >> 25 & 7] : random >> 25 & 3;
        }
        random = random * 1664525 + 1013904223;
        q5_scan_message_t m = q5_scan_decode (bytes.data (), bytes.size (), q5_scan_usual_types ());
        EXPECT_EQ (m.length + m.letters.size () + !bytes.empty (), bytes.size ());
        EXPECT_LE (m.left.size (), m.length);
        EXPECT_EQ (m.problem.empty (), m.fields.size () == size_t (bytes.empty () ? 0 : bytes[0]));
    }
}

TEST (result, is_described_in_words)
{
    expect_cases ("results.txt", [] (const std::string &line) {
        q5_scan_request_t request = {3, line[0] == 'c' ? Q5_SCAN_CLAIM : Q5_SCAN_RELEASE};
        request.result = std::stoi (line.substr (line.rfind (' ') + 1));
        q5_scan_meaning_t m = line.find (' ') == line.npos ? q5_scan_describe (request.result)
                                                           : q5_scan_describe (request);
        return m.state + " | " + m.meaning + " | " + m.look_at;
    });
}

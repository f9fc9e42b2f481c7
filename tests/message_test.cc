#include "scan/q5_scan_message.h"
#include "scan/q5_scan_result.h"
#include "tests/cases.h"

TEST (message, is_letters_fields_and_what_is_left_whatever_its_bytes)
{
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

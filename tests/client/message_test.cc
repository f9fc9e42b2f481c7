#include "client/result.h"
#include "tests/cases.h"

TEST (result, is_described_in_words)
{
    expect_cases ("client/results.txt", [] (const std::string &line) {
        q5_scan_request_t request = {3, line[0] == 'c' ? Q5_SCAN_CLAIM : Q5_SCAN_RELEASE};
        request.answered = line.find ("unanswered") == line.npos;
        request.result = std::stoi (line.substr (line.rfind (' ') + 1));
        q5_scan_meaning_t m = line.find (' ') == line.npos ? q5_scan_describe (request.result)
                                                           : q5_scan_describe (request);
        return m.state + " | " + m.meaning + " | " + m.look_at;
    });
}

#include "scan/q5_scan_client.h"
#include "tests/support.h"

#include <gtest/gtest.h>
#include <string.h>

using namespace std::string_literals;

static q5_scan_client_t client ("", 1);

TEST (image, finds_the_identity_and_joins_its_lines_in_place)
{
    struct case_t {
        std::string image;
        std::string after; // the image, its spare byte and the NUL behind it
        std::string version;
    };
    const std::string a = "Type: A\nCompiled on:\n", none = "untouched";
    const std::vector<case_t> cases = {
        {"\0E\0Type: A\0Compiled on:\0Jan\00010:22\0more\0"s,
         "\0E\0Type: A\nCompiled on:\nJan\n10:22\0more\0\0\0"s, a + "Jan\n10:22"},
        {"Type: A\0Compiled on:\0"s, a + "\n\0"s, a + "\n"},
        {"Type: A\0Compiled on:\0Jan"s, a + "Jan\n\0"s, a + "Jan\n"},
        {"Type: "s, "Type: \n\0"s, "Type: \n"},
        {"Type: 1\0Type: 2\0\0\0\0"s, "Type: 1\nType: 2\n\n\0\0\0\0"s, "Type: 1\nType: 2\n\n"},
        {"type: A\0Type:\0 "s, "type: A\0Type:\0 \0\0"s, none},
        {"T", "T\0\0"s, none},
    };
    for (const case_t &c : cases) {
        std::vector<char> image (c.image.begin (), c.image.end ());
        image.resize (image.size () + 2);
        char version[80] = "untouched";
        EXPECT_EQ (client.find_version (image.data (), c.image.size (), version), 1);
        EXPECT_EQ (std::string (image.begin (), image.end ()), c.after);
        EXPECT_EQ (version, c.version);
    }
    char whole[] = "xType: ", version[80] = "untouched";
    EXPECT_EQ (client.find_version (whole, 6, version), 1);
    EXPECT_EQ (version, none) << "the mark is looked for in no byte behind the image";
}

TEST (image, checks_its_arguments)
{
    char a[8] = "", b[8] = "";
    q5_scan_client_t *null = null_object<q5_scan_client_t> ();
    const std::string find = "q5_scan_server.cc:417 (this && image && length > 0 && version)";
    EXPECT_ASSERTION (null->find_version (a, 1, b), find);
    EXPECT_ASSERTION (client.find_version (nullptr, 1, b), find);
    EXPECT_ASSERTION (client.find_version (a, 0, b), find);
    EXPECT_ASSERTION (client.find_version (a, -1, b), find);
    EXPECT_ASSERTION (client.find_version (a, 1, nullptr), find);
    for (bool first : {false, true}) {
        char *from = first ? nullptr : a, *to = first ? b : nullptr;
        EXPECT_ASSERTION (client.version_type (from, to),
                          "q5_scan_server.cc:307 (version && type)");
        EXPECT_ASSERTION (client.version_date (from, to),
                          "q5_scan_server.cc:280 (version && date)");
        EXPECT_ASSERTION (client.compare_dates (from, to),
                          "q5_scan_server.cc:326 (date1 && date2)");
    }
    for (int missing = 0; missing < 7; missing++) {
        int32_t n = 0;
        auto p = [&] (int i) { return i == missing ? nullptr : &n; };
        EXPECT_ASSERTION (
            client.parse_date (missing ? a : nullptr, p (1), p (2), p (3), p (4), p (5), p (6)),
            "q5_scan_server.cc:377 (date && month && day && year && hour && minute && second)");
    }
}

TEST (image, takes_type_and_date_out_of_the_identity)
{
    struct case_t {
        std::string version;
        std::string type; // or the message
        std::string date;
    };
    const std::string no_date = "couldn't find date in ", no_type = "couldn't find Type in ";
    const std::string x = "Compiled on:" + std::string (300, 'x');
    const std::vector<case_t> cases = {
        {"Type: AB\nCompiled on:\nJan 12 2004\n10:22:33", "AB", "Jan 12 2004 10:22:33"},
        {"x Type:  A \t\nCompiled on:\nJan 12 \n10:22  \nType: B\n", " A \t", "Jan 12  10:22  "},
        {"Type: AB Compiled on:\nJan 12 2004", "AB Compiled on:", "Jan 12 2004"},
        {"Type: \nCompiled on:\n\n\nx", "", " "},
        {"Type: A", "A", no_date + "Type: A\n"},
        {"type: A\nCompiled on:\n", no_type + "type: A\nCompiled on:\n\n", ""},
        {x, (no_type + x).substr (0, 199), (no_date + x).substr (0, 199)},
    };
    for (const case_t &c : cases) {
        auto result = [&] (auto operation) {
            char buffer[400] = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";
            std::string message = message_of (
                [&] { EXPECT_EQ ((client.*operation) (c.version.c_str (), buffer), buffer); });
            return message.empty () ? std::string (buffer) : message;
        };
        EXPECT_EQ (result (&q5_scan_client_t::version_type), c.type);
        EXPECT_EQ (result (&q5_scan_client_t::version_date), c.date);
    }
}

// The six numbers of a date, or where and why it was refused.
static std::string parsed (const char *date)
{
    int32_t n[6] = {-1, -1, -1, -1, -1, -1};
    std::string message =
        message_of ([&] { client.parse_date (date, n, n + 1, n + 2, n + 3, n + 4, n + 5); });
    std::string numbers;
    for (int32_t number : n) {
        numbers += std::to_string (number) + " ";
    }
    return message.empty () ? numbers : message.substr (message.find (':') + 1);
}

TEST (image, splits_a_build_date)
{
    const std::vector<std::pair<const char *, const char *>> cases = {
        {"Sep  5 2004 07:08:09", "9 5 2004 7 8 9 "},
        {"\n: Dec:45\n99999 99::77 88 Jan", "12 45 99999 99 77 88 "},
        {"jan 5x 2004y 0 z0 -1", "0 5 2004 0 0 0 "},
        {"Janu 2147483647 2147483648 99999999999999999999 1\t2 3",
         "0 2147483647 2147483647 2147483647 1 3 "},
        {" :\n", "382 (s)"},
        {"Jan", "391 (s)"},
        {"Jan 0 2004 00:00:00", "393 (*day)"},
        {"Jan +5 2004", "393 (*day)"},
        {"Jan 5", "396 (s)"},
        {"Jan 5 x", "398 (*year)"},
        {"Jan 5 2004", "401 (s)"},
        {"Jan 5 2004 10", "405 (s)"},
        {"Jan 5 2004 10:20:", "409 (s)"},
    };
    for (auto [date, expected] : cases) {
        EXPECT_EQ (parsed (date), expected);
    }
}

TEST (image, compares_dates_from_the_year_down)
{
    const char *const rising[] = {"Dec 31 2003 23:59:59", "xxx 31 2004 23:59:59",
                                  "Jan 31 2004 23:59:59", "Apr 1 2004 00:00:00",
                                  "Apr 2 2004 00:00:00",  "Apr 2 2004 00:00:01",
                                  "Apr 2 2004 00:01:00",  "Apr 2 2004 01:00:00"};
    for (int i = 0; i < 8; i++) {
        for (int j = 0; j < 8; j++) {
            EXPECT_EQ (client.compare_dates (rising[i], rising[j]), i < j ? -1 : i > j);
        }
    }
}

TEST (image, dumps_whole_lines_and_a_blank_one_for_the_rest)
{
    uint8_t bytes[40];
    const char *edges = "/09:@AZ[`az{\xe9\xff\0\x7f"; // of letters, digits and ASCII
    for (int i = 0; i < 40; i++) {
        bytes[i] = i < 16 ? edges[i] : 0xec + i;
    }
    const std::string first = "2f 30 39 3a 40 41 5a 5b 60 61 7a 7b e9 ff 00 7f "
                              "    . 0 9 . . A Z . . a z . . . . . \n";
    const std::string second = "fc fd fe ff 00 01 02 03 04 05 06 07 08 09 0a 0b "
                               "    . . . . . . . . . . . . . . . . \n";
    const std::vector<std::pair<int, std::string>> cases = {
        {20, first + "    \n"}, {16, first}, {32, first + second}, {1, "    \n"}, {0, ""}, {-1, ""},
    };
    for (const auto &[n, expected] : cases) {
        testing::internal::CaptureStdout ();
        client.dump (bytes, n);
        EXPECT_EQ (testing::internal::GetCapturedStdout (), expected);
    }
}

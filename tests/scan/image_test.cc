#include "scan/q5_scan_client.h"
#include "tests/cases.h"

#include <string.h>

static q5_scan_client_t client ("", 1);

static std::string found (std::string image)
{
    int32_t size = image.size ();
    image.resize (size + 2);
    char version[80] = "untouched";
    EXPECT_EQ (client.find_version (image.data (), size, version), 1);
    return image + " | " + version;
}

static std::string taken (char *(q5_scan_client_t::*part) (const char *, char *) const,
                          const std::string &version)
{
    char text[400] = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";
    std::string message =
        message_of ([&] { EXPECT_EQ ((client.*part) (version.c_str (), text), text); });
    return message.empty () ? text : message;
}

static std::string parsed (const std::string &date)
{
    int32_t n[6] = {-1, -1, -1, -1, -1, -1};
    std::string text = message_of (
        [&] { client.parse_date (date.c_str (), n, n + 1, n + 2, n + 3, n + 4, n + 5); });
    for (int32_t number : n) {
        text += " " + std::to_string (number);
    }
    return text;
}

static std::string compared (const std::string &a, const std::string &b)
{
    return std::to_string (client.compare_dates (a.c_str (), b.c_str ())) + " " +
           std::to_string (client.compare_dates (b.c_str (), a.c_str ()));
}

static std::string dumped (int32_t size)
{
    uint8_t bytes[40] = "/09:@AZ[`az{\xe9\xff\0"; // the edges of letters, digits and ASCII
    std::generate (bytes + 15, bytes + 40, [c = 0x7e] () mutable { return ++c; });
    testing::internal::CaptureStdout ();
    client.dump (bytes, size);
    return testing::internal::GetCapturedStdout ();
}

TEST (image, does_with_each_text_what_the_file_says)
{
    expect_cases ("scan/images.txt", [] (const std::string &line) {
        std::string what = line.substr (0, line.find (' ')), text = line.substr (what.size () + 1);
        return what == "find"      ? found (text)
               : what == "type"    ? taken (&q5_scan_client_t::version_type, text)
               : what == "date"    ? taken (&q5_scan_client_t::version_date, text)
               : what == "parse"   ? parsed (text)
               : what == "compare" ? compared (text.substr (0, 20), text.substr (21))
                                   : dumped (std::stoi (text));
    });
    char whole[] = "xType: ", version[80] = "untouched";
    EXPECT_EQ (client.find_version (whole, 6, version), 1);
    EXPECT_STREQ (version, "untouched") << "the search for the mark stops at the end of the image";
}

TEST (image, checks_its_arguments)
{
    char a[8] = "", b[8] = "";
    const std::string at = "q5_scan_server.cc:";
    for (int bad = 0; bad < 7; bad++) {
        q5_scan_client_t *object = bad == 0 ? null_object<q5_scan_client_t> () : &client;
        char *from = bad == 1 ? nullptr : a, *to = bad == 2 ? nullptr : b;
        int32_t n = 0;
        if (bad < 5) {
            EXPECT_ASSERTION (object->find_version (from, bad < 3 ? 1 : 3 - bad, to),
                              at + "417 (this && image && length > 0 && version)");
        }
        if (bad == 1 || bad == 2) {
            EXPECT_ASSERTION (client.version_type (from, to), at + "307 (version && type)");
            EXPECT_ASSERTION (client.version_date (from, to), at + "280 (version && date)");
            EXPECT_ASSERTION (client.compare_dates (from, to), at + "326 (date1 && date2)");
        }
        auto p = [&] (int i) { return i == bad ? nullptr : &n; };
        EXPECT_ASSERTION (
            client.parse_date (bad == 0 ? nullptr : a, p (1), p (2), p (3), p (4), p (5), p (6)),
            at + "377 (date && month && day && year && hour && minute && second)");
    }
}

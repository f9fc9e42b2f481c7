// The build identity of a firmware image.
#include "net/assertion.h"
#include "scan/q5_scan_client.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdio.h>
#include <string.h>
#include <string>
#include <string_view>

#define MODULE "q5_scan_server.cc"

constexpr std::string_view type_mark = "Type: ";
constexpr std::string_view date_mark = "Compiled on:\n";

static const char *const month_names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

TESTS_ITS_OBJECT int32_t q5_scan_client_t::find_version (char *image, int32_t length,
                                                         char *version) const
{
    ASSERT (417, this && image && length > 0 && version);

    // The mark holds no NUL, so this finds what a walk from string to string would.
    size_t start = std::string_view (image, length).find (type_mark);
    if (start == std::string_view::npos) {
        return 1;
    }
    char *end = image + length;
    char *p = image + start;
    for (int line = 0; line < 3; line++) {
        // At the end of the image this deliberately writes the spare byte after it.
        p = std::find (p, end, '\0');
        *p = '\n';
    }
    strcpy (version, image + start);
    return 1;
}

char *q5_scan_client_t::version_type (const char *version, char *type) const
{
    ASSERT (307, version && type);

    const char *mark = strstr (version, type_mark.data ());
    if (!mark) {
        throw exception_t ("couldn't find Type in %s\n", version);
    }
    // Blanks at the end of the line are deliberately kept.
    const char *p = mark + type_mark.size ();
    size_t size = strcspn (p, "\n");
    memmove (type, p, size);
    type[size] = '\0';
    return type;
}

char *q5_scan_client_t::version_date (const char *version, char *date) const
{
    ASSERT (280, version && date);

    const char *mark = strstr (version, date_mark.data ());
    if (!mark) {
        throw exception_t ("couldn't find date in %s\n", version);
    }
    // Two lines become one; blanks at its end are deliberately kept.
    const char *p = mark + date_mark.size ();
    size_t day_size = strcspn (p, "\n");
    bool has_time = p[day_size] == '\n';
    size_t size = has_time ? day_size + 1 + strcspn (p + day_size + 1, "\n") : day_size;
    memmove (date, p, size);
    date[size] = '\0';
    if (has_time) {
        date[day_size] = ' ';
    }
    return date;
}

// Takes the next token, empty when there is none, off the front of `rest`.
static std::string_view next_token (const char *&rest)
{
    const char *const separators = " :\n";
    rest += strspn (rest, separators);
    std::string_view token (rest, strcspn (rest, separators));
    rest += token.size ();
    return token;
}

static int32_t next_number (const char *&rest, int line)
{
    std::string_view s = next_token (rest);
    ASSERT_AS (line, !s.empty (), "s");

    int64_t value = 0;
    for (char c : s) {
        if (c < '0' || c > '9') {
            break;
        }
        value = std::min<int64_t> (value * 10 + (c - '0'), std::numeric_limits<int32_t>::max ());
    }
    return value;
}

static int32_t next_month (const char *&rest)
{
    std::string_view s = next_token (rest);
    ASSERT_AS (382, !s.empty (), "s");

    const char *const *found = std::find (std::begin (month_names), std::end (month_names), s);
    return found == std::end (month_names) ? 0 : found - month_names + 1;
}

int32_t q5_scan_client_t::parse_date (const char *date, int32_t *month, int32_t *day, int32_t *year,
                                      int32_t *hour, int32_t *minute, int32_t *second) const
{
    ASSERT (377, date && month && day && year && hour && minute && second);

    const char *rest = date;
    *month = next_month (rest);
    *day = next_number (rest, 391);
    ASSERT (393, *day);
    *year = next_number (rest, 396);
    ASSERT (398, *year);
    *hour = next_number (rest, 401);
    *minute = next_number (rest, 405);
    *second = next_number (rest, 409);
    return 1;
}

int32_t q5_scan_client_t::compare_dates (const char *date1, const char *date2) const
{
    ASSERT (326, date1 && date2);

    auto parse = [this] (const char *date) {
        int32_t month, day, year, hour, minute, second;
        parse_date (date, &month, &day, &year, &hour, &minute, &second);
        return std::array<int32_t, 6>{year, month, day, hour, minute, second};
    };
    auto a = parse (date1);
    auto b = parse (date2);
    return a < b ? -1 : b < a;
}

static bool is_letter_or_digit (uint8_t c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

void q5_scan_client_t::dump (const void *p, int32_t n) const
{
    std::string hex, text;
    for (int32_t i = 0; i < n; i++) {
        const uint8_t byte = static_cast<const uint8_t *> (p)[i];
        char digits[4];
        snprintf (digits, sizeof (digits), "%2.2x ", byte);
        hex += digits;
        text += {is_letter_or_digit (byte) ? static_cast<char> (byte) : '.', ' '};
        if (i % 16 == 15) {
            printf ("%s    %s\n", hex.c_str (), text.c_str ());
            hex.clear ();
            text.clear ();
        }
    }
    if (!hex.empty ()) {
        // An incomplete last line is deliberately left blank.
        printf ("    \n");
    }
}

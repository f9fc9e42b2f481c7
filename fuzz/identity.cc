// The build identity of a file of any bytes, read through a window that moves over it, is that of
// the same bytes as a whole; and the order of two builds does not depend on who asks.
#include "client/identity.h"
#include "fuzz/fuzz.h"
#include "scan/q5_scan_client.h"

#include <sys/mman.h>

static const q5_scan_client_t client ("", 0);

// Puts the bytes into the file, and reads it; a date that is printed and read again is the same.
static q5_scan_identity_t read_file_of (int fd, const std::string &bytes)
{
    std::string path = "/proc/self/fd/" + std::to_string (fd);
    REQUIRE (ftruncate (fd, 0) == 0 && pwrite (fd, bytes.data (), bytes.size (), 0) >= 0);
    int32_t n[6];
    char date[80];
    q5_scan_identity_t found = q5_scan_find_identity (bytes), read = q5_scan_read_identity (path);
    REQUIRE (read.type == found.type && read.date == found.date && read.problem == found.problem);
    if (read.found ()) {
        client.parse_date (read.date.c_str (), n, n + 1, n + 2, n + 3, n + 4, n + 5);
        const char *month = &"JanFebMarAprMayJunJulAugSepOctNovDec"[3 * n[0] - 3];
        snprintf (date, sizeof (date), "%.3s %d %d %d %d %d", month, n[1], n[2], n[3], n[4], n[5]);
        REQUIRE (q5_scan_compare_builds (read, {"", date, ""}) == 0);
    }
    return read;
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    static const int fds[] = {memfd_create ("a", 0), memfd_create ("b", 0)};
    input_t input (data, size);
    std::string first (uint32_t (input.word ()) % (1 << 19), '\0'); // before its own bytes
    size_t own = input.byte () * 8;
    const bytes_t rest = input.rest ();
    const auto second = rest.begin () + std::min (own, rest.size ());
    q5_scan_identity_t a = read_file_of (fds[0], first.append (rest.begin (), second));
    q5_scan_identity_t b = read_file_of (fds[1], {second, rest.end ()});
    if (a.found () && b.found ()) {
        REQUIRE (q5_scan_compare_builds (a, b) == -q5_scan_compare_builds (b, a));
    }
    return 0;
}

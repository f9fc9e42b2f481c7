// The build identity of a file of any bytes, read through a window that moves over it, is that of
// the same bytes as a whole; and the order of two builds does not depend on who asks.
#include "tools/identity.h"
#include "fuzz/printed.h"
#include "scan/q5_scan_client.h"
#include "tools/images.h"

#include <sys/mman.h>
#include <unistd.h>

// A date says the same when it is printed anew.
static void require_date (const identity_t &build)
{
    static const q5_scan_client_t client ("", 0);
    int32_t n[6];
    client.parse_date (build.date.c_str (), n, n + 1, n + 2, n + 3, n + 4, n + 5);
    std::string date =
        std::string ("JanFebMarAprMayJunJulAugSepOctNovDec", 3 * n[0]).substr (3 * n[0] - 3);
    for (int i = 1; i < 6; i++) {
        date += " " + std::to_string (n[i]);
    }
    REQUIRE_SHOWING (compare_builds (build, {"", date}) == 0, date);
}

// Puts the bytes into the file, and reads it. Returns its name.
static std::string read_file_of (int fd, const std::string &bytes)
{
    std::string path = "/proc/self/fd/" + std::to_string (fd);
    REQUIRE (ftruncate (fd, 0) == 0 && pwrite (fd, bytes.data (), bytes.size (), 0) >= 0);
    identity_t found, read;
    std::string problem = find_identity (bytes, &found);
    try {
        read = read_identity (path);
        REQUIRE (problem.empty () && read.type == found.type && read.date == found.date);
        require_date (read);
    } catch (failure_t &failure) {
        REQUIRE (bytes.empty () || failure.what == path + " " + problem);
    }
    return path;
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    static const int fds[] = {memfd_create ("a", 0), memfd_create ("b", 0)};
    input_t input (data, size);
    std::string first (uint32_t (input.word ()) % (1 << 19), '\0'); // before its own bytes
    for (int own = input.byte () * 8; own > 0; own--) {
        first += static_cast<char> (input.byte ());
    }
    bytes_t second = input.rest ();
    std::string a = read_file_of (fds[0], first);
    std::string b = read_file_of (fds[1], {second.begin (), second.end ()});
    try {
        report_t ab = newer (a, b), ba = newer (b, a);
        require_lines (ab);
        REQUIRE ((ab.json["newer"] == "first") == (ba.json["newer"] == "second"));
        REQUIRE ((ab.json["newer"] == "same") == (ba.json["newer"] == "same"));
    } catch (failure_t &failure) {
        require_lines (report_of (failure));
    }
    return 0;
}

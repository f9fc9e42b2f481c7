// What a snapshot makes of the times that the answers took. All else about it is in the
// transcripts.
#include "tools/command/snapshot.h"

#include <gtest/gtest.h>
#include <sstream>

// The delays in the file of a chassis whose slots took so many microseconds: slot 3 for an answer
// of 62 bytes, slot 4 for one of 4096; the silent slot 9 tells how long a look takes.
static std::string delays_of (int silent, int small, int large)
{
    using std::chrono::microseconds;
    q5_scan_request_t of_3 = {3, 51}, of_4 = {4, 83}, of_9 = {9, 51};
    of_3.rx.resize (of_3.result = 62);
    of_4.rx.resize (of_4.result = 4096);
    of_9.result = Q5_SCAN_NO_ANSWER;
    std::istringstream file (chassis_file_of ({{of_3, microseconds (small)},
                                               {of_4, microseconds (large)},
                                               {of_9, microseconds (silent)}}));
    std::string delays;
    for (std::string line; std::getline (file, line);) {
        delays += line.rfind ("delay = ", 0) == 0 ? line.substr (8) + " " : "";
    }
    return delays;
}

TEST (snapshot, tells_delays_by_the_looks_that_they_took)
{
    EXPECT_EQ (delays_of (111000, 10100, 60500), "");
    EXPECT_EQ (delays_of (111000, 20300, 70600), "14094 10307 ");
    EXPECT_EQ (delays_of (220000, 41000, 120000), "14094 ") << "a board that sleeps twice as long";
    EXPECT_EQ (delays_of (111000, 300000, 60500), "94094 ") << "it did answer in time";
    EXPECT_EQ (delays_of (500, 20, 4000), "") << "a chassis that does not wait";
}

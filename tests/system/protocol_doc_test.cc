// Plays the bytes that docs/protocol.md shows against the daemon.
#include "tests/system/daemon.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

// The bytes of each block of the page under this title, up to the comments.
static std::vector<bytes_t> blocks (const std::string &title)
{
    std::vector<bytes_t> all;
    std::ifstream page (Q5_PROTOCOL_PAGE);
    bool inside = false;
    for (std::string line; std::getline (page, line);) {
        if (line.compare (0, 3, "```") == 0) {
            inside = line == "```hex " + title;
            all.resize (all.size () + inside);
        } else if (inside) {
            std::istringstream digits (line.substr (0, line.find ('#')));
            for (std::string byte; digits >> byte;) {
                EXPECT_EQ (byte.size (), 2u) << line;
                all.back ().push_back (std::stoi (byte, nullptr, 16));
            }
        }
    }
    return all;
}

TEST (protocol_page, shows_what_the_daemon_answers)
{
    std::vector<bytes_t> batches = blocks ("client to daemon");
    std::vector<bytes_t> replies = blocks ("daemon to client");
    ASSERT_EQ (batches.size (), replies.size ());
    ASSERT_EQ (batches.size (), 5u);
    daemon_t daemon;
    for (size_t i = 0; i < batches.size (); i++) {
        EXPECT_EQ (play (batches[i]), replies[i]) << "block " << i + 1 << " of the page";
    }
    EXPECT_EQ (daemon.line (0), std::nullopt) << "no check failed";
}

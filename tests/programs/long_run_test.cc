// Clients by the million against the daemon on the emulated chassis: none gets a wrong reply, and
// nothing grows. tests/programs/long_run plays it at full length.
#include "scan/q5_scan_client.h"
#include "tests/shell.h"
#include "tests/support.h"

#include <array>
#include <fstream>
#include <gtest/gtest.h>
#include <random>

// Sends the first bytes of a batch, reads the first of the replies, and goes: closes (c), resets
// (r), or closes its sending half before it reads (h).
static bytes_t talk (const bytes_t &batch, size_t sent, size_t wanted, char way = 'r')
{
    kp_client_t client ("", 0);
    int fd = client.connect_to ("127.0.0.1", Q5_SCAN_PORT);
    send (fd, batch.data (), sent, MSG_NOSIGNAL);
    if (way == 'h') {
        shutdown (fd, SHUT_WR);
    }
    timeval limit = {20, 0};
    setsockopt (fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof (limit));
    bytes_t replies (wanted);
    ssize_t size = wanted == 0 ? 0 : recv (fd, replies.data (), wanted, MSG_WAITALL);
    replies.resize (std::max<ssize_t> (size, 0));
    linger at_once = {way == 'r', 0};
    setsockopt (fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof (at_once));
    close (fd);
    return replies;
}

// Resident kB and descriptors of a process.
using figures_t = std::array<int, 2>;

static figures_t figures_of (const std::string &pid)
{
    namespace fs = std::filesystem;
    const std::string name = "\nRss:", text = text_of ("/proc/" + pid + "/smaps_rollup");
    fs::directory_iterator descriptors ("/proc/" + pid + "/fd");
    return {atoi (text.c_str () + text.find (name) + name.size ()),
            int (std::distance (descriptors, {}))};
}

// A station that polls every ten seconds makes three million batches in a year. Every reply is
// right, whatever other clients and edits come between. Each quarter has a daemon of its own.
class long_run : public testing::TestWithParam<int> {
  protected:
    shell_t shell;
    background_t daemon{shell};
    std::mt19937 random{static_cast<unsigned> (GetParam ())};
    bytes_t known = {11, 12, 13, 14}; // what the card in slot 3 answers; command 0x93 echoes

    int below (int bound)
    {
        return random () % bound;
    }
    void plug (const std::string &hex)
    {
        shell.write ("new", "[[card]]\nslot = 3\n[[card.answer]]\ncommand = 0x93\necho = true\n"
                            "[[card.answer]]\ncommand = 0x33\nhex = \"" +
                                hex + "\"\n");
        rename ((shell.folder + "/work/new").c_str (),
                (shell.folder + "/work/cards.toml").c_str ());
    }
    // Whether a client gets what it has to get.
    bool is_right (int round)
    {
        if (round % 100 == 99) {
            bool is_refused = round % 500 == 299;
            char hex[9];
            snprintf (hex, sizeof (hex), "%08X", round);
            plug (is_refused ? "broken" : hex);
            known = is_refused ? known : words ({round});
        }
        int id = below (9), count = below (200) == 0 ? 98 : 1 + below (4);
        bytes_t batch = words ({id, count + 2, 3, 1, 0, 0}), data, replies = words ({1});
        for (int i = 0; i < count; i++) {
            bytes_t tx (below (2) * below (40));
            std::generate (tx.begin (), tx.end (), std::ref (random));
            bytes_t answer = tx.empty () ? known : tx;
            int32_t size = answer.size (), rxlen = below (60);
            batch = batch + words ({3, tx.empty () ? 0x33 : 0x93, rxlen, int64_t (tx.size ())});
            data = data + tx;
            answer.resize (std::min (size, rxlen));
            replies = replies + words ({size}) + answer;
        }
        batch = batch + words ({3, 2, 0, 0}) + data;
        replies = replies + words ({1});
        switch (char way = "crh"[below (3)]; below (20)) {
        case 0: // goes while it sends
            return talk (batch, below (24 + 16 * count), way == 'h', way).empty ();
        case 1: // goes while it reads
            talk (batch, batch.size (), below (20), way);
            return talk (words ({id, 1, 3, 2, 0, 0}), 24, 4) == words ({1});
        case 2: // is refused
            batch[8 + 16 * below (count + 2)] = 1;
            return talk (batch, batch.size (), 1).empty ();
        default:
            return talk (batch, batch.size (), 1 << 16) == replies;
        }
    }
};

TEST_P (long_run, of_a_quarter)
{
    plug ("0B0C0D0E");
    ASSERT_TRUE (daemon.start ("q5_chassis --fast --file cards.toml -- q5_scand"));
    const std::string pid = shell.read ("pid");
    const char *year = getenv ("Q5_YEAR");
    const int rounds = (year ? atoi (year) : 3000) / 4;
    int num_wrong = 0;
    figures_t first = {}, last;
    for (int i = 0; i < rounds && num_wrong < 5; i++) {
        num_wrong += !is_right (i);
        first = i == rounds * 3 / 5 ? figures_of (pid) : first;
    }
    auto has_grown = [&] {
        last = figures_of (pid);
        return last[0] > first[0] || last[1] > first[1];
    };
    for (int i = 0; i < 1000 && has_grown (); i++) {
        usleep (10000); // it may just be at a connection
    }
    printf ("| %7d %7d %9d %9d %5d %5d\n", rounds, num_wrong, first[0], last[0], first[1], last[1]);
    EXPECT_EQ (num_wrong, 0);
    EXPECT_FALSE (has_grown ());
}
INSTANTIATE_TEST_SUITE_P (, long_run, testing::Range (1, 5));

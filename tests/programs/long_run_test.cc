// Clients by the million against the daemon on the emulated chassis: none gets a wrong reply, and
// nothing grows. tests/programs/long_run plays it at full length.
#include "scan/q5_scan_client.h"
#include "tests/session_model.h"
#include "tests/shell.h"

#include <array>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <set>

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

// Resident kB, descriptors and threads of a process.
using figures_t = std::array<int, 3>;

static figures_t figures_of (const std::string &pid)
{
    namespace fs = std::filesystem;
    auto number = [&] (const char *file, const std::string &name) {
        const std::string text = text_of ("/proc/" + pid + file);
        return atoi (text.c_str () + text.find (name) + name.size ());
    };
    fs::directory_iterator descriptors ("/proc/" + pid + "/fd");
    return {number ("/smaps_rollup", "\nRss:"), int (std::distance (descriptors, {})),
            number ("/status", "\nThreads:")};
}

// What the card in slot 3 and the empty slots do.
struct cards_t {
    bytes_t known;

    int32_t operator() (const bytes_t &header, const bytes_t &tx, uint8_t *rxbuf) const
    {
        static const std::set<int> no_slot = {21, 22, 25, 26, 31};
        if (header[3] != 3) {
            return no_slot.count (header[3]) ? -2 : -3;
        }
        const bytes_t &answer = header[7] == 0x93 ? tx : known;
        std::copy (answer.begin (), answer.end (), rxbuf);
        return answer.size ();
    }
};

// Batches of a site's clients, drawn from a seed.
struct clients_t {
    std::mt19937 random;

    int below (int bound)
    {
        return random () % bound;
    }

    bytes_t draw (bool claims)
    {
        int64_t id = std::array{2, 2, 7, 9}[below (4)],
                count = below (200) == 0 ? 100 : 1 + below (4);
        bytes_t headers, data;
        for (int i = 0; i < count; i++) {
            int kind = below (100);
            bytes_t tx (kind < 30 ? 1 + below (40) : 0);
            std::generate (tx.begin (), tx.end (), std::ref (random));
            headers = headers + (kind < 30 ? words ({3, 0x93, 1 + below (60), int64_t (tx.size ())})
                                 : kind < 85            ? words ({3, 0x33, 1 + below (6), 0})
                                 : kind < 92 || !claims ? words ({below (32), 0x33, 4, 0})
                                 : kind < 95            ? words ({below (32), 1, below (2), 0})
                                                        : words ({below (32), 2, below (2), 0}));
            data = data + tx;
        }
        return words ({id, count}) + headers + data;
    }
    // Makes the daemon refuse it.
    void damage (bytes_t &batch)
    {
        static const std::pair<size_t, int64_t> places[] = {{1, 0},  {1, -1},   {1, 101}, {2, 32},
                                                            {2, -1}, {4, 4097}, {5, 4095}};
        auto [word, value] = places[below (std::size (places))];
        const bytes_t bytes = words ({value});
        std::copy (bytes.begin (), bytes.end (), batch.begin () + 4 * word);
    }
};

// A station that polls every ten seconds makes three million batches in a year. Every reply is the
// model's, whatever other clients and edits come between. Each quarter has a daemon of its own.
class long_run : public testing::TestWithParam<int> {
  protected:
    shell_t shell;
    background_t daemon{shell};
    cards_t cards{{11, 12, 13, 14}};
    clients_t clients{std::mt19937 (GetParam ())};
    session_model_t model;

    void plug (const std::string &hex)
    {
        shell.write ("new", "[[card]]\nslot = 3\n[[card.answer]]\ncommand = 0x93\necho = true\n"
                            "[[card.answer]]\ncommand = 0x33\nhex = \"" +
                                hex + "\"\n");
        rename ((shell.folder + "/work/new").c_str (),
                (shell.folder + "/work/cards.toml").c_str ());
    }
    // Whether the daemon does what the model does.
    bool plays (int round)
    {
        if (round % 100 == 99) {
            bool is_refused = round % 500 == 299;
            char hex[9];
            snprintf (hex, sizeof (hex), "%08X", round);
            plug (is_refused ? "broken" : hex);
            cards.known = is_refused ? cards.known : words ({round});
        }
        int kind = clients.below (100);
        bytes_t batch = clients.draw (kind >= 3);
        char way = "crh"[clients.below (3)];
        if (kind < 3) { // goes while it reads; what ran then is not known
            bool sends = clients.below (2);
            talk (batch, sends * batch.size (), sends * clients.below (20), way);
            batch = words ({model.owner ? model.owner : 2, 1, 3, 0x33, 4, 0});
        } else if (kind < 6) {
            clients.damage (batch);
        } else if (kind < 10) { // goes while it sends
            batch.resize (clients.below (batch.size ()));
            bool refused = model.serve (batch, cards).check != nullptr;
            return refused && talk (batch, batch.size (), way == 'h', way).empty ();
        }
        return talk (batch, batch.size (), 1 << 16) == model.serve (batch, cards).reply;
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
        num_wrong += !plays (i);
        first = i == rounds * 3 / 5 ? figures_of (pid) : first;
    }
    auto has_grown = [&] {
        last = figures_of (pid);
        return last[0] > first[0] || last[1] > first[1] || last[2] > first[2];
    };
    for (int i = 0; i < 1000 && has_grown (); i++) {
        usleep (10000); // it may just be at a connection
    }
    printf ("| %7d %7d %9d %9d %5d %5d %5d %5d\n", rounds, num_wrong, first[0], last[0], first[1],
            last[1], first[2], last[2]);
    EXPECT_EQ (num_wrong, 0);
    EXPECT_FALSE (has_grown ());
}
INSTANTIATE_TEST_SUITE_P (, long_run, testing::Range (1, 5));

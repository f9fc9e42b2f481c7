// Claims: who holds the bus, and until when, whatever happens to the program and the daemon.
#include "client/claim.h"
#include "client/fetch.h"
#include "tests/fake_server.h"

#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <random>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using state_t = q5_scan_state_t;

// The system's random numbers: from 0 up, in such steps.
static uint32_t random_number, random_step;

std::random_device::result_type std::random_device::_M_getval ()
{
    return std::exchange (random_number, random_number + random_step);
}

static bool has_pipes = true;

extern "C" int pipe2 (int *fds, int flags) noexcept
{
    errno = EMFILE;
    return has_pipes ? syscall (SYS_pipe2, fds, flags) : -1;
}

static q5_scan_settings_t settings_for (int port)
{
    q5_scan_settings_t settings;
    settings.port = port;
    settings.connect_timeout = settings.reply_timeout = 700ms;
    return settings;
}

static const session_t granting = {words ({1})}, silent = {{}, session_t::holds},
                       dropping = {{}, session_t::drops};

static bytes_t claim_by (int32_t id)
{
    return words ({id, 1, 0, 1, 0, 0});
}

static bytes_t release_by (int32_t id)
{
    return words ({id, 1, 0, 2, 0, 0});
}

TEST (claim, lasts_as_long_as_the_object_and_is_given_back_whatever_happens)
{
    random_number = 0;
    random_step = 1;
    EXPECT_EQ (q5_scan_fresh_id (), 3) << "the lowest: 0 holds nothing, 2 is everybody's";
    random_step = 1 << 28;
    auto claimed = [] (const std::vector<session_t> &sessions, bool is_held, bool is_released) {
        fake_server_t server (sessions);
        int32_t id = 0;
        int ends[2];
        EXPECT_EQ (pipe (ends), 0);
        try {
            q5_scan_settings_t settings = settings_for (server.port);
            settings.cancel_fd = ends[0];
            q5_scan_claim_t claim (settings);
            id = claim.settings.id;
            EXPECT_EQ (claim.held, is_held) << claim.outcome.text;
            close (ends[1]); // Ctrl-C does not keep it
            EXPECT_TRUE (!is_held || claim.release ()) << claim.problem;
            throw 5;
        } catch (int) {
        }
        close (ends[0]);
        EXPECT_GT (id, 2);
        bytes_t sent = server.received ();
        EXPECT_EQ (sent.size () > 24 && bytes_t (sent.end () - 24, sent.end ()) == release_by (id),
                   is_released);
        EXPECT_EQ (bytes_t (sent.begin (), sent.begin () + 4), words ({id}));
        return id;
    };
    EXPECT_NE (claimed ({granting, granting}, true, true),
               claimed ({granting, granting}, true, true));
    claimed ({{words ({-1})}}, false, false);
    claimed ({dropping, granting}, false, true);
    claimed ({silent, granting}, false, true);
    claimed ({granting, {{0}}, granting}, true, true);
}

// At its exit a child that was forked while threads ran may wait forever for a lock of the leak
// checker.
extern "C" const char *__asan_default_options ()
{
    return "detect_leaks=0";
}

static void throw_five ()
{
    throw 5;
}

TEST (claim, ends_with_its_program_however_that_ends)
{
    void (*const ends[]) () = {[] { exit (0); }, [] { raise (SIGTERM); },
                               [] () noexcept { throw_five (); }, [] { raise (SIGKILL); }};
    for (auto end : ends) {
        fake_server_t server ({granting, granting});
        pid_t program = fork ();
        if (program == 0) {
            rlimit no_core = {};
            setrlimit (RLIMIT_CORE, &no_core);
            freopen ("/dev/null", "w", stderr);
            q5_scan_claim_t claim (settings_for (server.port), 77);
            end ();
        }
        int how;
        EXPECT_EQ (waitpid (program, &how, 0), program);
        EXPECT_EQ (server.received (2), claim_by (77) + release_by (77));
    }
}

// Processes whose descriptor 0 is a pipe that this process writes.
static std::vector<fs::path> guardians ()
{
    std::error_code error;
    std::vector<fs::path> found, pipes;
    for (const fs::directory_entry &fd : fs::directory_iterator ("/proc/self/fd")) {
        pipes.push_back (fs::read_symlink (fd, error));
    }
    for (const fs::directory_entry &process : fs::directory_iterator ("/proc")) {
        fs::path input = fs::read_symlink (process.path () / "fd/0", error);
        std::string name;
        std::ifstream (process.path () / "comm") >> name;
        if (name == "q5_scan_guard" && !input.empty () &&
            std::find (pipes.begin (), pipes.end (), input) != pipes.end ()) {
            found.push_back (process.path ());
        }
    }
    return found;
}

TEST (claim, has_a_guardian_that_keeps_nothing_of_the_program)
{
#ifdef Q5_EMULATED
    GTEST_SKIP () << "the descriptors of an emulated process are the emulator's too";
#endif
    fake_server_t server ({granting, granting, granting});
    int before = num_descriptors ();
    {
        q5_scan_claim_t claim (settings_for (server.port), 7);
        EXPECT_TRUE (claim.held && claim.problem.empty ()) << claim.problem;
        std::vector<fs::path> found = guardians ();
        for (int i = 0; i < 100 && found.empty (); i++, found = guardians ()) {
            usleep (10000); // until it has its name
        }
        ASSERT_EQ (found.size (), 1u);
        pid_t guardian = std::stoi (found[0].filename ());
        EXPECT_EQ (std::distance (fs::directory_iterator (found[0] / "fd"), {}), 1);
        EXPECT_NE (getsid (guardian), getsid (0));
        EXPECT_EQ (fs::read_symlink (found[0] / "cwd"), "/");
        EXPECT_EQ (waitpid (-1, nullptr, WNOHANG), -1) << "no child, and no zombie";
        kill (guardian, SIGTERM);
        if (fork () == 0) {
            _exit ((claim.~q5_scan_claim_t (), 0)); // a copy of the claim releases nothing
        }
        wait (nullptr);
        EXPECT_EQ (guardians ().size (), 1u) << "nor does a signal end the guardian";
        EXPECT_TRUE (claim.release ());
        auto has_input = [&] { // nor may an ordinary user look at a process that is ending
            std::error_code error;
            return fs::exists (fs::symlink_status (found[0] / "fd/0", error));
        };
        for (int i = 0; i < 100 && has_input (); i++) {
            usleep (10000);
        }
        EXPECT_FALSE (has_input ()) << "it has ended";
    }
    EXPECT_EQ (server.received (), claim_by (7) + release_by (7)) << "and nothing more";
    EXPECT_EQ (num_descriptors (), before - 1) << "the server's";
}

TEST (claim, is_not_taken_without_a_guardian)
{
    fake_server_t server (granting.reply);
    has_pipes = false;
    q5_scan_claim_t claim (settings_for (server.port), 7);
    has_pipes = true;
    EXPECT_FALSE (claim.held);
    EXPECT_EQ (claim.problem,
               "no claim by id 7: cannot start the guardian process: Too many open files");
    EXPECT_EQ (server.received (), bytes_t ());
}

TEST (claim, is_proved_by_every_batch_of_the_conversation)
{
    const bytes_t claim_word = words ({0, 1, 0, 0});
    // The daemon is killed after the first chunk; the next one does not know of a claim.
    fake_server_t server ({dropping,
                           granting,
                           {words ({1, 0})},
                           {words ({1})},
                           {words ({1, 0})},
                           {words ({-1, 0})},
                           dropping,
                           {words ({1}) + 99 * words ({0})},
                           {words ({1, 0})},
                           granting});
    q5_scan_settings_t settings = settings_for (server.port);
    settings.wait = 5000ms;
    q5_scan_claim_t claim (settings, 7);
    ASSERT_TRUE (claim.held) << claim.problem;
    std::vector<q5_scan_request_t> requests = {q5_scan_short_request (12, 1, 2, {})};
    auto state = [&] {
        q5_scan_outcome_t outcome = q5_scan_exchange (claim.settings, requests);
        EXPECT_EQ (requests[0].answered, outcome.answered ());
        EXPECT_EQ (outcome.num_replies, outcome.answered ());
        return outcome.state;
    };
    EXPECT_EQ (state (), state_t::answered);
    EXPECT_EQ (state (), state_t::broken_off);
    EXPECT_EQ (state (), state_t::answered) << "claimed again";
    EXPECT_EQ (state (), state_t::broken_off) << "a claim that is refused";
    EXPECT_EQ (state (), state_t::dropped) << "lost to another client, and not tried again";
    std::vector<q5_scan_request_t> replies;
    EXPECT_TRUE (q5_scan_fetch (claim.settings, {std::vector<int32_t> (50)}, replies).answered ());
    EXPECT_TRUE (claim.release ());
    const bytes_t sent = server.received ();
    const bytes_t batch = words ({7, 2}) + claim_word + words ({12, 147, 0, 2}) + bytes_t{1, 2};
    const bytes_t begin = words ({7}) + claim_by (7) + 4 * batch + words ({7});
    EXPECT_EQ (bytes_t (sent.begin (), sent.begin () + begin.size ()), begin);
    const bytes_t fetch = words ({7, 100}) + claim_word;
    EXPECT_TRUE (std::equal (fetch.begin (), fetch.end (), sent.begin () + begin.size ()));
    EXPECT_EQ (bytes_t (sent.end () - 24, sent.end ()), release_by (7));
}

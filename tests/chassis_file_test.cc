#include "chassis/file/chassis_file.h"
#include "chassis/file/chassis_watch.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

using bytes_t = std::vector<uint8_t>;

// An answer to command 7 of a card in slot 3; its own lines begin at line 5.
static std::string answering (const std::string &lines)
{
    return "[[card]]\nslot = 3\n[[card.answer]]\ncommand = 7\n" + lines;
}

static bytes_t answer_of (const std::string &lines)
{
    return parse_chassis (answering (lines), "c.toml").card (3).answer.at (7).bytes;
}

TEST (ChassisFile, BuildsTheBytesOfAnswers)
{
    const std::vector<std::pair<std::string, bytes_t>> cases = {
        {"types = 'bhisx'\nfields = [1, 0x0203, 0x04050607, 'ab', '0A ff']",
         {5, 'b', 'h', 'i', 's', 'x', 1, 2, 3, 4, 5, 6, 7, 'a', 'b', 0, 0x0A, 0xFF}},
        {"types = 'bhi'\nfields = [-128, -2, -2147483648]",
         {3, 'b', 'h', 'i', 0x80, 0xFF, 0xFE, 0x80, 0, 0, 0}},
        {"types = ''", {0}},
        {"types = 's'\nfields = ['\\u0']", {1, 's', '\\', 'u', '0', 0}},
        {"text = \"a\\u0000\\u0000b\"", {'a', 0, 0, 'b'}},
        {"hex = \"01\\n 0203\"\nrepeat = 2", {1, 2, 3, 1, 2, 3}},
        {"echo = true", {}},
    };
    for (const auto &[lines, bytes] : cases) {
        EXPECT_EQ (answer_of (lines), bytes) << lines;
    }
    EXPECT_EQ (answer_of ("hex = '01'\nrepeat = 65536").size (), 65536u);
    const std::string holds = "\n[[card]]\nslot = 3\ngap = 9\nfault = 'endless transmitter'";
    EXPECT_EQ (parse_chassis (holds, "c.toml").card (3).gap, 9u);
    EXPECT_TRUE (parse_chassis (holds, "c.toml").board.cts3);
    EXPECT_FALSE (parse_chassis ("[board]\ncts3 = false" + holds, "c.toml").board.cts3);
    EXPECT_FALSE (parse_chassis (answering ("hex = ''"), "c.toml").board.cts3);
    const std::string own = "delay = 5\naddress = 6\nfault = 'noise'\nfault_at = 8\n";
    card_t card = parse_chassis ("[[card]]\nslot = 3\n" + own, "c.toml").card (3);
    answer_t answer =
        parse_chassis (answering ("hex = ''\n" + own), "c.toml").card (3).answer.at (7);
    EXPECT_EQ (std::tie (card.delay, card.address, card.fault, card.fault_at),
               std::make_tuple (5u, 6, fault_t::noise, 8u));
    EXPECT_EQ (std::tie (answer.delay, answer.address, answer.fault, answer.fault_at),
               std::make_tuple (5u, 6, fault_t::noise, 8u));
}

TEST (ChassisWatch, ReportsOnceWhatIsWrongAndKeepsTheOldChassis)
{
    std::string folder = testing::TempDir () + "q5_watch_XXXXXX";
    ASSERT_NE (mkdtemp (folder.data ()), nullptr);
    const std::string path = folder + "/c.toml";
    auto write = [&] (const std::string &text) { std::ofstream (path) << text; };
    auto reported = [] {
        std::string text = testing::internal::GetCapturedStderr ();
        testing::internal::CaptureStderr ();
        return text;
    };
    testing::internal::CaptureStderr ();
    write ("[[card]]\nslot = 1");
    int fd = open (path.c_str (), O_RDWR);
    auto *text = static_cast<char *> (mmap (nullptr, 17, PROT_WRITE, MAP_SHARED, fd, 0));
    ASSERT_NE (text, MAP_FAILED);
    text[16] = '2'; // the first store to a mapped page moves the stamp, those that follow do not
    chassis_watch_t watch (path);
    EXPECT_FALSE (watch.changed ());
    text[16] = '3';
    EXPECT_EQ (watch.changed ().value ().cards.begin ()->first, 3);
    EXPECT_FALSE (watch.changed ());
    munmap (text, 17);
    close (fd);

    write ("[[card]]\nslot = 99");
    EXPECT_FALSE (watch.changed ());
    EXPECT_FALSE (watch.changed ());
    EXPECT_EQ (reported (), "q5_chassis: " + path +
                                ":2: card.slot: found 99, expected a number from 0 to 31; the old "
                                "chassis stays\n");
    write ("[[card]]\nslot = 9");
    ASSERT_TRUE (watch.changed ());

    std::filesystem::rename (path, path + "~");
    EXPECT_FALSE (watch.changed ());
    EXPECT_FALSE (watch.changed ());
    EXPECT_EQ (reported (),
               "q5_chassis: " + path + ": No such file or directory; the old chassis stays\n");
    std::filesystem::rename (path + "~", path);
    EXPECT_FALSE (watch.changed ()) << "it is as it was";
    write ("");
    EXPECT_TRUE (watch.changed ()) << "all cards are pulled";

    for (const char *comment : {"", "# again"}) {
        write (std::string ("[board]\nbrgclk = 2000000\n[[card]]\nslot = 1\n") + comment);
        auto settings = watch.changed ();
        ASSERT_TRUE (settings);
        EXPECT_EQ (settings->board.brgclk, 66000000u) << "a board stays as it is";
        EXPECT_EQ (settings->cards.size (), 1u);
        EXPECT_EQ (reported ().empty (), *comment != '\0');
    }
    testing::internal::GetCapturedStderr ();
    std::filesystem::remove_all (folder);
}

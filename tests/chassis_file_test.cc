#include "chassis/file/chassis_file.h"
#include "chassis/file/chassis_watch.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

using bytes_t = std::vector<uint8_t>;

static std::string error_of (const std::string &text)
{
    try {
        parse_chassis (text, "c.toml");
    } catch (const chassis_file_error_t &error) {
        return error.what ();
    }
    return "";
}

// An answer to command 7 of a card in slot 3; its own lines begin at line 5.
static std::string answering (const std::string &lines)
{
    return "[[card]]\nslot = 3\n[[card.answer]]\ncommand = 7\n" + lines;
}

static bytes_t answer_of (const std::string &lines)
{
    return parse_chassis (answering (lines), "c.toml").card (3).answer.at (7).bytes;
}

TEST (ChassisFile, NamesFileLineAndKeyOfWhatIsWrong)
{
    const std::string long_types = "types = '" + std::string (128, 'b') + "'";
    std::string deep_key = "a";
    for (int i = 0; i < 200000; i++) {
        deep_key += ".'a'";
    }
    // What the message begins with.
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"\n[board]\nbrgclk = 1", "3: board.brgclk: found 1, expected a number from 100000 to "},
        {"[board]\nbuffer = 0xEFFFE001", "2: board.buffer: found two buffers"},
        {"[board]\ndevice = 1", "2: board.device: found 1, expected true or false"},
        {"[board]\nmemory = 'ram'", "2: board.memory: found \"ram\", expected one of: zeros, "},
        {"[[board]]", "1: board: found an array, expected one [board] section"},
        {"[card]\nslot = 1", "1: card: found a table, expected [[card]] sections"},
        {"card = [5]", "1: card: found 5, expected [[card]] sections"},
        {"\n[[card]]\ndelay = 5", "2: card.slot: missing, expected a number from 0 to 31"},
        {"[[card]]\nslot = 21", "2: card.slot: found 21, expected a slot that the chassis has"},
        {"[[card]]\nslot = 4\n[[card]]\nslot = 4", "4: card.slot: found 4 a second time"},
        {"[[card]]\nslot = 4\nspeed = 5", "3: card.speed: unknown key, expected one of: slot, "},
        {"[[card]]\nslot = \n", "2: TOML:"},
        {"\na = " + std::string (200000, '['), "2: TOML: found more than 16 levels"},
        {"a = [{b=\"\"\"\"\"\"\"\", " + deep_key + " = 1}]", "1: TOML: found more than 16 levels"},
        {"a = \"\"\"\n[[[[[[[[[[[[[[[[[\\\"\"\"\"\"\n[b] # [[[[[[[[[[[[[[[[", "1: a: unknown key"},
        {"\"\\u001B[1m\\n\u009B\u00E4\" = 1", "1: \\x1B[1m\\n\\xC2\\x9B\u00E4: unknown"},
        {answering (""), "3: card.answer: found no content, expected hex"},
        {answering ("hex = ''\n[[card.answer]]\ncommand = 7"), "7: card.answer.command: found 7 a"},
        {answering ("text = ''\nhex = ''"), "5: card.answer.text: found beside hex"},
        {answering ("hex = ''\nfields = []"), "6: card.answer.fields: found without types"},
        {answering ("hex = '0x10'"), "5: card.answer.hex: found \"0x\" at character 1"},
        {answering ("hex = '01 2'"), "5: card.answer.hex: found \"2\" at character 4"},
        {answering ("types = 'bz'"), "5: card.answer.types: found the type letter \"z\""},
        {answering (long_types), "5: card.answer.types: found 128 type letters, expected at most"},
        {answering ("types = 'bb'\nfields = [1]"), "6: card.answer.fields: found 1 fields for 2"},
        {answering ("types = 'bs'\nfields = [\n1,\n5]"), "8: card.answer.fields: found 5"},
        {answering ("types = 's'\nfields = [\"a\\u0000b\"]"), "6: card.answer.fields: found a NUL"},
        {answering ("types = 'b'\nfields = [1.5]"), "6: card.answer.fields: found 1.5, expected a"},
        {answering ("hex = '01 02'\nrepeat = 32769"), "6: card.answer.repeat: found 65538 bytes"},
        {answering ("hex = ''\nfault = 'line low'"), "6: card.answer.fault: found \"line low\""},
    };
    for (const auto &[text, beginning] : cases) {
        std::string expected = "c.toml:" + beginning;
        EXPECT_EQ (error_of (text).substr (0, expected.size ()), expected) << text;
    }
    EXPECT_THROW (load_chassis_file ("/"), chassis_file_error_t);
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

TEST (ChassisFile, TakesNumbersUpToBothEndsOfTheirRanges)
{
    const std::vector<std::tuple<std::string, std::string, int64_t, int64_t>> cases = {
        {"[board]\n", "brgclk", 100000, 1000000000},
        {"[board]\n", "buffer", 0, 0xFFFFFFFF},
        {"[board]\n", "dpram", 0, 0xFFFFFFFF},
        {"[board]\n", "cpcr", INT32_MIN, INT32_MAX},
        {"[[card]]\n", "slot", 0, 30},
        {"[[card]]\nslot = 0\n", "delay", 0, 60000000},
        {"[[card]]\nslot = 0\n", "gap", 0, 60000000},
        {"[[card]]\nslot = 0\n", "address", 0, 255},
        {"[[card]]\nslot = 0\n", "bit_rate", 100, 100000000},
        {answering ("hex = ''\n"), "fault_at", 0, 65535},
        {answering ("types = 'b'\n"), "fields", -128, 255},
        {answering ("types = 'h'\n"), "fields", -32768, 65535},
        {answering ("types = 'i'\n"), "fields", INT32_MIN, UINT32_MAX},
    };
    for (const auto &[before, key, low, high] : cases) {
        auto line = [&, &before = before, &key = key] (int64_t value) {
            std::string number = std::to_string (value);
            return before + key + " = " + (key == "fields" ? "[" + number + "]" : number);
        };
        EXPECT_EQ (error_of (line (low)) + error_of (line (high)), "");
        EXPECT_NE (error_of (line (low - 1)), "") << line (low - 1);
        EXPECT_NE (error_of (line (high + 1)), "") << line (high + 1);
    }
}

// While it stands still, no stamp of a file is old enough to tell two edits apart.
static bool clock_stands_still;

extern "C" int clock_gettime (clockid_t, timespec *now) noexcept
{
    timeval t = {0, 0};
    if (!clock_stands_still) {
        gettimeofday (&t, nullptr);
    }
    *now = {t.tv_sec, static_cast<long> (t.tv_usec * 1000)};
    return 0;
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
    clock_stands_still = true;
    chassis_watch_t watch (path);
    EXPECT_FALSE (watch.changed ());
    text[16] = '3';
    EXPECT_EQ (watch.changed ().value ().cards.begin ()->first, 3);
    clock_stands_still = false;
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

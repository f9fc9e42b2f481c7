#include "chassis/chassis_file.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
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
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"[borad]", "1: borad: unknown key, expected one of: board, card"},
        {"\n[board]\nbrgclk = 99999",
         "3: board.brgclk: found 99999, expected a number from 100000 to 1000000000"},
        {"[board]\nbuffer = 0xF003FFFF", "2: board.buffer: found two buffers of 4096 bytes in the "
                                         "internal memory map, expected them outside 0xF0000000 "
                                         "to 0xF003FFFF"},
        {"[board]\ndevice = 1", "2: board.device: found 1, expected true or false"},
        {"[board]\nmemory = \"ram\"",
         "2: board.memory: found \"ram\", expected one of: zeros, ones, noise"},
        {"[[board]]", "1: board: found an array, expected one [board] section"},
        {"[card]\nslot = 1", "1: card: found a table, expected [[card]] sections"},
        {"card = [5]", "1: card: found 5, expected [[card]] sections"},
        {"\n[[card]]\ndelay = 5", "2: card.slot: missing, expected a number from 0 to 31"},
        {"[[card]]\nslot = 32", "2: card.slot: found 32, expected a number from 0 to 31"},
        {"[[card]]\nslot = 21", "2: card.slot: found 21, expected a slot that the chassis has (not "
                                "21, 22, 25, 26, 31)"},
        {"[[card]]\nslot = 4\n[[card]]\nslot = 4",
         "4: card.slot: found 4 a second time, expected one card for each slot"},
        {"[[card]]\nslot = 4\nspeed = 5", "3: card.speed: unknown key, expected one of: slot, "
                                          "delay, address, bit_rate, fault, fault_at, answer"},
        {answering (""), "3: card.answer: found no content, expected hex (\"\" for an empty "
                         "answer), text, types with fields, or echo = true"},
        {answering ("hex = ''\n[[card.answer]]\ncommand = 7\nhex = ''"),
         "7: card.answer.command: found 7 a second time, expected one answer for each command"},
        {answering ("text = ''\nhex = ''"),
         "5: card.answer.text: found beside hex, expected only one of them"},
        {answering ("hex = ''\nfields = []"),
         "6: card.answer.fields: found without types, expected both or none"},
        {answering ("hex = '01 2'"), "5: card.answer.hex: found \"2\" at character 4, expected two "
                                     "hexadecimal digits for each byte"},
        {answering ("hex = '0x10'"), "5: card.answer.hex: found \"0x\" at character 1, expected "
                                     "two hexadecimal digits for each byte"},
        {answering ("types = 'bz'"),
         "5: card.answer.types: found the type letter \"z\", expected b, h, i, s or x"},
        {answering ("types = '" + std::string (128, 'b') + "'"),
         "5: card.answer.types: found 128 type letters, expected at most 127"},
        {answering ("types = 'bb'\nfields = [1]"),
         "6: card.answer.fields: found 1 fields for 2 letters, expected one for each"},
        {answering ("types = 'bs'\nfields = [\n1,\n5]"),
         "8: card.answer.fields: found 5, expected a text for type s"},
        {answering ("types = 's'\nfields = ['a\\u0000b']"), ""},
        {answering ("types = 's'\nfields = [\"a\\u0000b\"]"),
         "6: card.answer.fields: found a NUL inside \"a.b\", expected a text without one for type "
         "s"},
        {answering ("types = 'b'\nfields = [1.5]"),
         "6: card.answer.fields: found 1.5, expected a number or a text"},
        {answering ("hex = '01 02'\nrepeat = 32769"),
         "6: card.answer.repeat: found 65538 bytes in all, expected at most 65536"},
        {answering ("hex = ''\nfault = 'line low'"),
         "6: card.answer.fault: found \"line low\", expected it on the card: it begins before any "
         "command"},
    };
    for (const auto &[text, error] : cases) {
        EXPECT_EQ (error_of (text), error.empty () ? "" : "c.toml:" + error) << text;
    }
    EXPECT_EQ (error_of ("[[card]]\nslot = \n").substr (0, 15), "c.toml:2: TOML:");
}

TEST (ChassisFile, BuildsTheBytesOfAnswers)
{
    const std::vector<std::pair<std::string, bytes_t>> cases = {
        {"types = 'bhisx'\nfields = [1, 0x0203, 0x04050607, 'ab', '0A ff']",
         {5, 'b', 'h', 'i', 's', 'x', 1, 2, 3, 4, 5, 6, 7, 'a', 'b', 0, 0x0A, 0xFF}},
        {"types = 'bhi'\nfields = [-128, -2, -2147483648]",
         {3, 'b', 'h', 'i', 0x80, 0xFF, 0xFE, 0x80, 0, 0, 0}},
        {"types = ''", {0}},
        {"text = \"a\\u0000\\u0000b\"", {'a', 0, 0, 'b'}},
        {"hex = \"01\\n 0203\"\nrepeat = 2", {1, 2, 3, 1, 2, 3}},
        {"echo = true", {}},
    };
    for (const auto &[lines, bytes] : cases) {
        EXPECT_EQ (answer_of (lines), bytes) << lines;
    }
    EXPECT_EQ (answer_of ("hex = '01'\nrepeat = 65536").size (), 65536u);
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
        EXPECT_EQ (error_of (line (low)), "");
        EXPECT_EQ (error_of (line (high)), "");
        EXPECT_NE (error_of (line (low - 1)), "") << line (low - 1);
        EXPECT_NE (error_of (line (high + 1)), "") << line (high + 1);
    }
}

TEST (ChassisFile, KeepsTheBuiltInChassisWithinWhatTheTransferTakes)
{
    for (const auto &[slot, card] : builtin_chassis ().cards) {
        for (const auto &[command, answer] : card.answer) {
            size_t most = slot == 23 || slot == 24 ? 1600 : 4096;
            EXPECT_LE (answer.bytes.size (), most) << slot << " " << command;
        }
    }
}

TEST (ChassisFile, NamesAFileThatCannotBeRead)
{
    EXPECT_THROW (load_chassis_file ("/nowhere/c.toml"), chassis_file_error_t);
    EXPECT_THROW (load_chassis_file ("/"), chassis_file_error_t);
}

struct ChassisWatch : testing::Test {
    std::string folder = testing::TempDir () + "q5_watch_XXXXXX";
    std::string path;

    void SetUp () override
    {
        ASSERT_NE (mkdtemp (folder.data ()), nullptr);
        path = folder + "/c.toml";
        testing::internal::CaptureStderr ();
    }
    void TearDown () override
    {
        testing::internal::GetCapturedStderr ();
        std::filesystem::remove_all (folder);
    }
    void write (const std::string &text)
    {
        std::ofstream (path) << text;
    }
    std::string reported ()
    {
        std::string text = testing::internal::GetCapturedStderr ();
        testing::internal::CaptureStderr ();
        return text;
    }
};

TEST_F (ChassisWatch, SeesAnEditThatItsStampDoesNotTell)
{
    write ("[[card]]\nslot = 1");
    int fd = open (path.c_str (), O_RDWR);
    auto *text = static_cast<char *> (mmap (nullptr, 17, PROT_WRITE, MAP_SHARED, fd, 0));
    close (fd);
    ASSERT_NE (text, MAP_FAILED);
    // The first store to a mapped page moves the stamp, those that follow do not.
    text[16] = '2';
    chassis_watch_t watch (path);
    EXPECT_FALSE (watch.changed ());
    text[16] = '3';
    auto settings = watch.changed ();
    ASSERT_TRUE (settings);
    EXPECT_EQ (settings->cards.begin ()->first, 3);
    EXPECT_FALSE (watch.changed ());
    munmap (text, 17);
}

TEST_F (ChassisWatch, KeepsTheOldChassisOverABrokenEditAndReportsItOnce)
{
    write ("[[card]]\nslot = 1");
    chassis_watch_t watch (path);
    write ("[[card]]\nslot = 99");
    EXPECT_FALSE (watch.changed ());
    EXPECT_FALSE (watch.changed ());
    EXPECT_EQ (reported (), "q5_chassis: " + path +
                                ":2: card.slot: found 99, expected a number from 0 to 31; the old "
                                "chassis stays\n");
    write ("[[card]]\nslot = 9");
    ASSERT_TRUE (watch.changed ());
    EXPECT_EQ (reported (), "");
}

TEST_F (ChassisWatch, OutlivesAFileThatVanishesForAMoment)
{
    write ("[[card]]\nslot = 1");
    chassis_watch_t watch (path);
    std::filesystem::rename (path, path + "~");
    EXPECT_FALSE (watch.changed ());
    EXPECT_FALSE (watch.changed ());
    EXPECT_EQ (reported (),
               "q5_chassis: " + path + ": No such file or directory; the old chassis stays\n");
    std::filesystem::rename (path + "~", path);
    EXPECT_FALSE (watch.changed ()) << "it is as it was";
    write ("");
    EXPECT_TRUE (watch.changed ()) << "all cards are pulled";
    EXPECT_EQ (reported (), "");
}

TEST_F (ChassisWatch, KeepsTheBoardAndSaysSoOnce)
{
    write ("");
    chassis_watch_t watch (path);
    for (const char *comment : {"", "# again"}) {
        write (std::string ("[board]\nbrgclk = 2000000\n[[card]]\nslot = 1\n") + comment);
        auto settings = watch.changed ();
        ASSERT_TRUE (settings);
        EXPECT_EQ (settings->board.brgclk, 66000000u);
        EXPECT_EQ (settings->cards.size (), 1u);
        EXPECT_EQ (reported ().empty (), *comment != '\0');
    }
}

#include "chassis/file/chassis_watch.h"

#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

// The clock is stopped: no stamp of a file is old enough to distinguish two edits.
extern "C" int clock_gettime (clockid_t, timespec *now) noexcept
{
    *now = {0, 0};
    return 0;
}

TEST (chassis_watch, sees_an_edit_that_does_not_move_the_stamp)
{
    std::string path = testing::TempDir () + "q5_watch_XXXXXX";
    int fd = mkstemp (path.data ());
    const std::string card = "[[card]]\nslot = 1";
    ASSERT_EQ (write (fd, card.data (), card.size ()), static_cast<ssize_t> (card.size ()));
    auto *text = static_cast<char *> (mmap (nullptr, card.size (), PROT_WRITE, MAP_SHARED, fd, 0));
    ASSERT_NE (text, MAP_FAILED);
    text[16] = '2'; // the first store to a mapped page moves the stamp, those that follow do not
    chassis_watch_t watch (path);
    EXPECT_FALSE (watch.changed ());
    text[16] = '3';
    EXPECT_EQ (watch.changed ().value ().cards.begin ()->first, 3);
    EXPECT_FALSE (watch.changed ());
    std::ofstream (path) << "[board]\ndpram = 8\n" + card;
    EXPECT_EQ (watch.changed ().value ().board.dpram, board_t ().dpram) << "a board stays";
    munmap (text, card.size ());
    close (fd);
    unlink (path.c_str ());
}

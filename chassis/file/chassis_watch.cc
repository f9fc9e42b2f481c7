#include "chassis/file/chassis_file.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <tuple>

static void report (const std::string &message)
{
    fputs (("q5_chassis: " + message + "\n").c_str (), stderr);
}

static auto identity (const struct stat &s)
{
    return std::make_tuple (s.st_dev, s.st_ino, s.st_size, s.st_mtim.tv_sec, s.st_mtim.tv_nsec,
                            s.st_ctim.tv_sec, s.st_ctim.tv_nsec);
}

static auto values (const board_t &b)
{
    return std::make_tuple (b.brgclk, b.device, b.buffer, b.dpram, b.cpcr, b.fill);
}

// Two edits in one tick of the file system's clock have the same stamp: it tells edits apart only
// once the clock has moved well past it.
static bool is_settled (const struct stat &s)
{
    struct timespec now;
    clock_gettime (CLOCK_REALTIME, &now);
    return now.tv_sec > s.st_ctim.tv_sec + 1 ||
           (now.tv_sec == s.st_ctim.tv_sec + 1 && now.tv_nsec >= s.st_ctim.tv_nsec);
}

chassis_watch_t::chassis_watch_t (std::string path) : path (std::move (path))
{
    try {
        if (may_have_changed () && read_new_text ()) {
            board = parse_chassis (*text, this->path).board;
        }
    } catch (const chassis_file_error_t &) {
        // Whoever loads the file reports it.
    }
}

void chassis_watch_t::report_missing (const std::string &why)
{
    if (!missing) {
        report (why + "; the old chassis stays");
    }
    missing = true;
}

// The stamp is taken before the text, so that an edit in between shows at the next call.
bool chassis_watch_t::may_have_changed ()
{
    struct stat now;
    if (stat (path.c_str (), &now) != 0) {
        report_missing (path + ": " + strerror (errno));
        return false;
    }
    bool same = identity (now) == identity (stamp);
    if (same && settled && !missing) {
        return false;
    }
    stamp = now;
    settled = is_settled (now);
    return true;
}

bool chassis_watch_t::read_new_text ()
{
    std::string now = read_chassis_text (path);
    missing = false;
    if (now == text) {
        return false;
    }
    text = std::move (now);
    return true;
}

void chassis_watch_t::keep_board (chassis_settings_t &settings)
{
    if (!board) {
        board = settings.board;
    }
    bool differs = values (*board) != values (settings.board);
    if (differs && !board_reported) {
        report (path + ": board: changed, but a running board stays as it is; start the program "
                       "again to change it");
    }
    board_reported = differs;
    settings.board = *board;
}

std::optional<chassis_settings_t> chassis_watch_t::changed ()
{
    if (!may_have_changed ()) {
        return std::nullopt;
    }
    try {
        if (!read_new_text ()) {
            return std::nullopt;
        }
    } catch (const chassis_file_error_t &error) {
        report_missing (error.what ());
        return std::nullopt;
    }
    try {
        chassis_settings_t settings = parse_chassis (*text, path);
        keep_board (settings);
        return settings;
    } catch (const chassis_file_error_t &error) {
        report (std::string (error.what ()) + "; the old chassis stays");
        return std::nullopt;
    }
}

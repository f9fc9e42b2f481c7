#include "chassis/file/chassis_watch.h"

#include "chassis/file/chassis_file.h"

#include <errno.h>
#include <string.h>
#include <time.h>
#include <tuple>

static auto identity (const struct stat &s)
{
    return std::make_tuple (s.st_dev, s.st_ino, s.st_size, s.st_mtim.tv_sec, s.st_mtim.tv_nsec,
                            s.st_ctim.tv_sec, s.st_ctim.tv_nsec);
}

static auto values (const board_t &b)
{
    return std::make_tuple (b.brgclk, b.device, b.cts3, b.buffer, b.dpram, b.cpcr, b.fill);
}

// Two edits in one tick of the file system's clock have the same stamp, so a stamp identifies an
// edit only once the clock has moved well past it.
static bool is_settled (const struct stat &s)
{
    struct timespec now;
    clock_gettime (CLOCK_REALTIME, &now);
    return now.tv_sec > s.st_ctim.tv_sec + 1 ||
           (now.tv_sec == s.st_ctim.tv_sec + 1 && now.tv_nsec >= s.st_ctim.tv_nsec);
}

chassis_watch_t::chassis_watch_t (std::string path) : path_ (std::move (path))
{
    try {
        if (may_have_changed () && read_new_text ()) {
            board_ = parse_chassis (*text_, path_).board;
        }
    } catch (const chassis_file_error_t &) {
        // Whoever loads the file reports it.
    }
}

void chassis_watch_t::report_missing (const std::string &why)
{
    if (!missing_) {
        complain (why + "; the old chassis stays");
    }
    missing_ = true;
}

// The stamp is taken before the text, so that an edit in between shows at the next call.
bool chassis_watch_t::may_have_changed ()
{
    struct stat now;
    if (stat (path_.c_str (), &now) != 0) {
        report_missing (path_ + ": " + strerror (errno));
        return false;
    }
    bool same = identity (now) == identity (stamp_);
    if (same && settled_ && !missing_) {
        return false;
    }
    stamp_ = now;
    settled_ = is_settled (now);
    return true;
}

bool chassis_watch_t::read_new_text ()
{
    std::string now = read_chassis_text (path_);
    missing_ = false;
    if (now == text_) {
        return false;
    }
    text_ = std::move (now);
    return true;
}

void chassis_watch_t::keep_board (chassis_settings_t &settings)
{
    if (!board_) {
        board_ = settings.board;
    }
    bool differs = values (*board_) != values (settings.board);
    if (differs && !board_reported_) {
        complain (path_ + ": board: changed, but a running board stays as it is; start the program "
                          "again to change it");
    }
    board_reported_ = differs;
    settings.board = *board_;
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
        chassis_settings_t settings = parse_chassis (*text_, path_);
        keep_board (settings);
        return settings;
    } catch (const chassis_file_error_t &error) {
        complain (std::string (error.what ()) + "; the old chassis stays");
        return std::nullopt;
    }
}

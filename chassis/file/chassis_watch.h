// Edits of a chassis file while it is in use.
#pragma once

#include "chassis/bus/settings.h"

#include <optional>
#include <string>
#include <sys/stat.h>

// Notices edits of a chassis file. A check costs one stat while nothing has changed.
// Construct it before the file is loaded, so that no edit falls between the two.
class chassis_watch_t {
  public:
    // Never throws: a file that is missing or broken now is taken up once it is good.
    explicit chassis_watch_t (std::string path);

    // The new settings after an edit, with the board as it was at the start: a board cannot change
    // while the program runs. Nothing if the text is the same as before, or is broken or
    // missing: that is reported on standard error once, and the old chassis stays.
    std::optional<chassis_settings_t> changed ();

  private:
    bool may_have_changed ();
    bool read_new_text ();
    void keep_board (chassis_settings_t &settings);
    void report_missing (const std::string &why);

    std::string path_;
    std::optional<std::string> text_;
    std::optional<board_t> board_;
    struct stat stamp_ = {};
    bool settled_ = false; // the stamp is old enough for a further edit to give a different one
    bool missing_ = false;
    bool board_reported_ = false;
};

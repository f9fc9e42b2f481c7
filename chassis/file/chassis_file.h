// The chassis file: TOML text to chassis settings. docs/chassis.md describes every key.
#pragma once

#include "chassis/bus/settings.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

// what() is one line: "FILE:LINE: KEY: what was found and what was expected", with "TOML" for the
// key when the text is not TOML at all, and "FILE: why" when there is no text to read.
class chassis_file_error_t : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// All three throw chassis_file_error_t. `name` stands for the file in messages.
std::string read_chassis_text (const std::string &path);
chassis_settings_t parse_chassis (const std::string &text, const std::string &name);
chassis_settings_t load_chassis_file (const std::string &path);

// The chassis that is played without a file.
const char *builtin_chassis_text ();
chassis_settings_t builtin_chassis ();

// The name that a fault has in the file.
const char *fault_name (fault_t fault);

// Notices edits of a chassis file. Asking costs one stat as long as nothing happens.
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

    std::string path;
    std::optional<std::string> text;
    std::optional<board_t> board;
    struct stat stamp = {};
    bool settled = false; // the stamp is old enough for a further edit to give a different one
    bool missing = false;
    bool board_reported = false;
};

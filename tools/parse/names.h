// A file that names the fields of typed messages.
//
//   SLOT INDEX NAME [SCALE] [signed|unsigned]
//
// one a line: the field with that index, counted from 1, of the slot's typed message is NAME, and
// its number as the card sends it is multiplied by SCALE. Without a sign the letter's own applies.
// Everything after a # is a comment.
#pragma once

#include "client/message.h"

#include <istream>
#include <map>
#include <optional>
#include <stdint.h>
#include <string>
#include <utility>

struct name_t {
    std::string name;
    double scale = 1;
    std::optional<bool> is_signed;
};

using names_t = std::map<std::pair<int32_t, int32_t>, name_t>; // by slot and index

// Throws failure_t with `file` and the line for the first thing that is wrong.
names_t read_names (std::istream &text, const std::string &file);
// The same from a file; "" is none.
names_t read_names_file (const std::string &path);

// The value of a number field under its name; as it was sent without one.
double value_of (const q5_scan_field_t &field, const name_t *name);

// What the letters of a typed message stand for, as a person types it, and fields as they are
// shown.
#pragma once

#include "client/message.h"
#include "tools/show/report.h"

#include <string>

// Reads "LETTER[N]=TYPE[*SCALE][:NAME],...", TYPE being byte, sbyte, short, sshort, int, uint,
// string, rest or bytes:COUNT, COUNT from 0 to 4096. With a number N from 1 on it is the type of
// the letter's Nth field in a message, and of those behind it that have none. Blanks around an
// entry do not count. The letters that it does not name have no meaning. Throws failure_t.
q5_scan_types_t parse_types (const std::string &text);

// For a person; and for a program: a number, a text, or bytes in hex.
std::string text_of (const q5_scan_field_t &field);
json_t json_of (const q5_scan_field_t &field);

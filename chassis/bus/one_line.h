// Messages for a terminal or a log: always one line, whatever a file or its name contains.
#pragma once

#include <string>

// The text with \n, \t and \xNN for control characters, of Unicode's second block too, and for
// bytes that are not UTF-8.
std::string one_line (const std::string &text);

// Writes "q5_chassis: ", the message as one line, and an end of line to standard error.
void complain (const std::string &message);

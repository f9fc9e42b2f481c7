// The linked daemon's machine code on PowerPC (objdump -d -C): the device accesses of a transfer,
// their order and width, and what orders them, are those that docs/board.md lists. Each device
// access is followed by an eieio; which registers they reach is seen by the emulated board.
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <stdio.h>
#include <string>

// The instructions that an eieio orders, the syncs and the calls that act on the device, in the
// order of the session's code, of which a transfer is a part.
static std::string events_of_session ()
{
    const std::regex call ("\\bbl .*[<.](ioctl|usleep|mem\\w+)[@>]");
    std::ifstream code (Q5_CODE);
    std::string events, access;
    bool inside = false;
    for (std::string line; std::getline (code, line);) {
        char name[16], operands[64] = "";
        std::smatch callee;
        if (line.find (">:") != std::string::npos) {
            inside = line.find ("<q5_scan_server_t::handle(") != std::string::npos;
        } else if (!inside || sscanf (line.c_str (), " %*x: %15s %63s", name, operands) < 1) {
            continue;
        } else if (std::regex_search (line, callee, call)) {
            events += callee[1].str () + " ";
        } else if (name == std::string ("hwsync")) {
            events += "sync ";
        } else if (name == std::string ("eieio")) {
            events += access + " ";
            access = "eieio without an access";
        } else if (std::string (operands).find ('(') != std::string::npos) {
            access = name;
        }
    }
    return events;
}

// The list of the page: a line begins with its instructions and calls.
static std::string events_of_page ()
{
    const std::regex event ("[ls](wz|tw|hz|th)|sync|ioctl|usleep");
    std::ifstream page (Q5_PAGE);
    std::string events;
    for (std::string line; std::getline (page, line) && line.find ("## 32 bits") != 0;) {
        std::istringstream words (line);
        for (std::string word; words >> word && std::regex_match (word, event);) {
            events += word + " ";
        }
    }
    return events;
}

// Where the compiler places the polls of the loop is its own affair.
static std::string with_one_poll (const std::string &events)
{
    return std::regex_replace (events, std::regex ("(lhz )+usleep (lhz |usleep )*"), "poll ");
}

TEST (device_order, one_transfer_makes_every_access_whole_in_order_and_once)
{
    EXPECT_EQ (with_one_poll (events_of_session ()), with_one_poll (events_of_page ()));
}

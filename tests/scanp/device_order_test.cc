// The linked daemon's machine code on PowerPC (objdump -d -C): which device accesses a transfer
// makes, in which order and width, and what orders them. Each device access is followed by an
// eieio; which registers they reach is seen by the emulated board.
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
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

TEST (device_order, one_transfer_makes_every_access_whole_in_order_and_once)
{
    const std::regex transfer ("stw sth sth stw lwz stw lwz stw lwz stw "     // slot
                               "stw sth stw sth sth stw sth sth stw sth sth " // descriptors
                               "lwz "                                         // line
                               "sync ioctl sync ioctl sync lwz stw lwz stw "  // start
                               "(lhz |usleep )+stw lhz lhz lhz lhz sync "     // answer
                               "lwz stw lhz ");                               // strobe, length
    std::string events = events_of_session ();
    EXPECT_TRUE (std::regex_match (events, transfer)) << events;
}

// The machine code of one transfer on PowerPC (objdump -d -r -C): which device accesses it makes,
// in which order and width, and what orders them. Each device access is followed by an eieio; which
// registers they reach is seen by the emulated board.
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <stdio.h>
#include <string>

// The instructions that an eieio orders, the syncs and the calls of a function, in their order.
static std::string events_of (const std::string &function)
{
    std::ifstream code (Q5_CODE);
    std::string events, access;
    bool inside = false;
    for (std::string line; std::getline (code, line);) {
        char name[16], operands[64] = "", callee[64];
        if (line.find (">:") != std::string::npos) {
            inside = line.find ('<' + function + '(') != std::string::npos;
        } else if (!inside) {
            continue;
        } else if (sscanf (line.c_str (), " %*x: R_PPC_%*s %63[a-z_]", callee) == 1) {
            events += callee[0] == '_' ? "" : callee + std::string (" ");
        } else if (sscanf (line.c_str (), " %*x: %15s %63s", name, operands) < 1) {
            continue;
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
    const std::regex transfer (
        "stw sth sth stw scan_strobe_high scan_set_slot_code scan_strobe_low " // slot
        "stw sth stw sth sth stw sth sth stw sth sth lwz "                     // descriptors, line
        "scan_cp_command scan_cp_command sync lwz stw lwz stw "                // start
        "(lhz |usleep )+stw lhz lhz lhz lhz sync scan_strobe_high lhz ");
    std::string events = events_of ("scan_port_transfer");
    EXPECT_TRUE (std::regex_match (events, transfer)) << events;
    for (const char *pins : {"scan_strobe_high", "scan_set_slot_code", "scan_strobe_low"}) {
        EXPECT_EQ (events_of (pins), "lwz stw ") << pins;
    }
    EXPECT_EQ (events_of ("scan_cp_command"), "sync scanp_do_cpcr_command ");
}

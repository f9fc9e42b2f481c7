// The machine code of one transfer on PowerPC (objdump -d -r -C): which device accesses it makes,
// in which order and width, and what orders them.
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>
#include <stdio.h>
#include <string>
#include <vector>

using events_t = std::vector<std::string>;

// Follows the base addresses that come from scan_port_state through the instructions of a function.
// An access to the device ends in '!' until an eieio follows it.
class code_reader_t {
  public:
    events_t events;

    void read (const std::string &line)
    {
        char name[16], operands[64] = "", callee[64];
        int data, address, offset;
        if (sscanf (line.c_str (), " %*x: R_PPC_%*s %63[a-z_]", callee) == 1 && callee[0] != '_') {
            events.push_back (callee);
            places.erase (places.lower_bound (3), places.upper_bound (12)); // lost in the call
        } else if (sscanf (line.c_str (), " %*x: %15s %63s", name, operands) < 1) {
            return;
        } else if (name == std::string ("hwsync")) {
            events.push_back ("sync");
        } else if (name == std::string ("eieio")) {
            order ();
        } else if (sscanf (operands, "r%d,%d(r%d)", &data, &offset, &address) == 3) {
            access (name, data, offset, address);
        } else if (sscanf (operands, "r%d,r%d,%d", &data, &address, &offset) == 3 &&
                   std::string (name, 4) == "addi") {
            places[data] = places[address];
            places[data].offset += offset * (name[4] == 's' ? 0x10000 : 1);
        } else if (sscanf (operands, "r%d", &data) == 1 && name[0] != 's' && name[0] != 'c') {
            places.erase (data); // no store, no comparison
        }
    }

  private:
    struct place_t {
        std::string base; // "state", or the field of it that was loaded
        int offset = 0;
    };
    std::map<int, place_t> places; // by register

    void order ()
    {
        if (events.empty () || events.back ().back () != '!') {
            events.push_back ("eieio without an access");
        } else {
            events.back ().pop_back ();
        }
    }

    void access (const char *name, int data, int offset, int address)
    {
        std::map<int, std::string> fields = {{0, "immr"}, {24, "rx_bds"}, {28, "tx_bds"}};
        place_t place = places[address];
        bool from_offset_table = address == 30 && offset < 0;
        if (place.base == "state" || from_offset_table) {
            places[data] = {from_offset_table ? "state" : fields[offset]};
        } else if (!place.base.empty ()) {
            std::ostringstream event;
            event << name << ' ' << place.base << '+' << std::hex << place.offset + offset << '!';
            events.push_back (event.str ());
        }
    }
};

static events_t events_of (const std::string &function)
{
    std::ifstream code (Q5_CODE);
    code_reader_t reader;
    bool inside = false;
    for (std::string line; std::getline (code, line);) {
        if (line.find (">:") != std::string::npos) {
            inside = line.find ('<' + function + '(') != std::string::npos;
        } else if (inside) {
            reader.read (line);
        }
    }
    return reader.events;
}

TEST (device_order, one_transfer_makes_every_access_whole_in_order_and_once)
{
    // clang-format off: a step a line
    const events_t start = {"stw immr+11a40",   "sth immr+11a50",
                            "sth immr+8242",    "stw immr+119fc",
                            "scan_strobe_high", "scan_set_slot_code",
                            "scan_strobe_low",  "stw rx_bds+4",
                            "sth rx_bds+0",     "stw tx_bds+4",
                            "sth tx_bds+2",     "sth tx_bds+0",
                            "stw tx_bds+c",     "sth tx_bds+a",
                            "sth tx_bds+8",     "stw tx_bds+14",
                            "sth tx_bds+12",    "sth tx_bds+10",
                            "lwz immr+10d70",   "scan_cp_command",
                            "scan_cp_command",  "sync",
                            "lwz immr+11a40",   "stw immr+11a40",
                            "lwz immr+11a40",   "stw immr+11a40"};
    const events_t end = {"stw immr+11a40", "lhz rx_bds+0", "lhz rx_bds+0",     "lhz rx_bds+0",
                          "lhz immr+8242",  "sync",         "scan_strobe_high", "lhz rx_bds+2"};
    // clang-format on
    const std::set<std::string> polls = {"lhz tx_bds+10", "lhz rx_bds+0", "usleep"};
    events_t events = events_of ("scan_port_transfer");
    ASSERT_GT (events.size (), start.size () + end.size ());
    auto wait = events.begin () + start.size ();
    auto stop = events.end () - end.size ();
    EXPECT_EQ (events_t (events.begin (), wait), start);
    EXPECT_EQ (std::set<std::string> (wait, stop), polls);
    EXPECT_EQ (events_t (stop, events.end ()), end);

    for (const char *pins : {"scan_strobe_high", "scan_set_slot_code", "scan_strobe_low"}) {
        EXPECT_EQ (events_of (pins), (events_t{"lwz immr+10d50", "stw immr+10d50"})) << pins;
    }
    EXPECT_EQ (events_of ("scan_cp_command"), (events_t{"sync", "scanp_do_cpcr_command"}));
}

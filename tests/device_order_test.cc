// The machine code of one transfer on PowerPC (objdump -d -r -C): which device accesses it makes,
// in which order and width, and what orders them.
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using events_t = std::vector<std::string>;

// Where a register points, as far as it came from scan_port_state.
struct place_t {
    std::string base; // "state", or the field of it that was loaded
    int offset = 0;
};

// Follows the base addresses through the instructions of one function, in the order of the text.
class reader_t {
  public:
    events_t events;

    void read (const std::string &line)
    {
        static const std::regex call (R"(R_PPC_\w*24\w*\s+([a-z]\w+))");
        static const std::regex instruction (R"(\s*[0-9a-f]+:\s+(\S+)\s*(.*))");
        static const std::regex memory (R"((r\d+),(-?\d+)\((r\d+)\).*)");
        static const std::regex add (R"((r\d+),(r\d+),(-?\d+))");
        std::smatch m, operands;
        if (std::regex_search (line, m, call)) {
            events.push_back (m[1]);
            for (const char *lost :
                 {"r3", "r4", "r5", "r6", "r7", "r8", "r9", "r10", "r11", "r12"}) {
                places.erase (lost);
            }
        } else if (!std::regex_match (line, m, instruction)) {
            return;
        } else if (std::string name = m[1], rest = m[2]; name == "eieio" || name == "hwsync") {
            order (name);
        } else if (std::regex_match (rest, operands, memory)) {
            access (name, operands[1], std::stoi (operands[2]), operands[3]);
        } else if (std::regex_match (rest, operands, add) && name.substr (0, 4) == "addi") {
            place_t sum = places[operands[2]];
            sum.offset += std::stoi (operands[3]) * (name == "addis" ? 0x10000 : 1);
            places[operands[1]] = sum;
        } else if (name.substr (0, 2) != "st" && name.substr (0, 3) != "cmp") {
            places.erase (rest.substr (0, rest.find (',')));
        }
    }

  private:
    std::map<std::string, place_t> places;

    // An access to the device stands as unordered until an eieio follows it.
    void order (const std::string &name)
    {
        if (name == "hwsync") {
            events.push_back ("sync");
        } else if (!events.empty () && events.back ().back () == '!') {
            events.back ().pop_back ();
        } else {
            events.push_back ("eieio without an access");
        }
    }

    void access (const std::string &name, const std::string &data, int offset,
                 const std::string &address)
    {
        static const std::map<int, std::string> fields = {
            {0, "immr"}, {24, "rx_bds"}, {28, "tx_bds"}};
        place_t place = places[address];
        places.erase (data);
        if (address == "r30" && offset < 0) { // the global offset table
            places[data].base = "state";
        } else if (place.base == "state") {
            auto field = fields.find (offset);
            places[data].base = field == fields.end () ? "" : field->second;
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
    reader_t reader;
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
    const std::set<std::string> polls = {"lhz tx_bds+10", "lhz rx_bds+0", "usleep"};
    events_t events = events_of ("scan_port_transfer");
    ASSERT_GT (events.size (), start.size () + end.size ());
    auto wait = events.begin () + start.size ();
    auto stop = events.end () - end.size ();
    EXPECT_EQ (events_t (events.begin (), wait), start);
    EXPECT_EQ (std::set<std::string> (wait, stop), polls);
    EXPECT_EQ (events_t (stop, events.end ()), end);
}

TEST (device_order, pins_are_one_read_and_one_write)
{
    for (const char *name : {"scan_strobe_high", "scan_set_slot_code", "scan_strobe_low"}) {
        EXPECT_EQ (events_of (name), (events_t{"lwz immr+10d50", "stw immr+10d50"})) << name;
    }
}

TEST (device_order, a_command_goes_to_the_driver_behind_all_accesses)
{
    EXPECT_EQ (events_of ("scan_cp_command"), (events_t{"sync", "scanp_do_cpcr_command"}));
}

// Writes a capture of connections to port 1971, raw IPv4 packets a millisecond apart, from a
// script: capture <SCRIPT >FILE. Steps are separated by semicolons or newlines, comments start with
// #. A step is connect, close, or > (client) or < (daemon) followed by what that side sends in one
// segment: decimal words, xHH for a byte, "characters", each repeated by a prefix N*; or fin; rst;
// or lost N, which leaves N bytes out of the capture.
#include "tests/support.h"

#include <iostream>
#include <sstream>

static const int fin = 0x11, syn = 0x02, rst = 0x14, push = 0x18;

static int port = 40000;
static int64_t sequence[2], num_packets;

static void put (const bytes_t &bytes)
{
    std::cout.write (reinterpret_cast<const char *> (bytes.data ()), bytes.size ());
}

static void packet (bool by_daemon, int flags, const bytes_t &data = {})
{
    int64_t size = 40 + data.size (), localhost = 0x7F000001;
    int64_t ports = by_daemon ? 1971 << 16 | port : port << 16 | 1971;
    put (words ({1000000000, ++num_packets * 1000, size, size}));
    put (words ({0x45000000 + size, 0, 0x40060000, localhost, localhost, ports, sequence[by_daemon],
                 sequence[!by_daemon], 0x5000FFFF + (flags << 16), 0}));
    put (data);
    sequence[by_daemon] += data.size () + (flags & 3 ? 1 : 0);
}

static bytes_t data_of (const std::string &text)
{
    bytes_t data;
    std::istringstream tokens (text);
    for (std::string token; tokens >> token;) {
        size_t star = token.find ('*') + 1;
        bytes_t part = words ({std::atoll (token.c_str () + star)});
        if (token[star] == 'x') {
            part = {static_cast<uint8_t> (std::stoi (token.substr (star + 1), nullptr, 16))};
        } else if (token[star] == '"') {
            part.assign (token.begin () + star + 1, token.end () - 1);
        }
        data = data + (star ? std::stoi (token) : 1) * part;
    }
    return data;
}

static void play (const std::string &step)
{
    if (step == "connect") {
        port++;
        sequence[0] = sequence[1] = 1000;
        packet (false, syn);
        packet (true, syn | push);
    } else if (step == "close") {
        packet (true, fin);
        packet (false, fin);
    } else if (step.find ("lost") == 1) {
        sequence[step[0] == '<'] += std::stoi (step.substr (5));
    } else if (!step.empty ()) {
        std::string sent = step.substr (1);
        int flags = sent == "fin" ? fin : sent == "rst" ? rst : push;
        packet (step[0] == '<', flags, flags == push ? data_of (sent) : bytes_t ());
    }
}

int main ()
{
    put (words ({0xA1B2C3D4, 0x00020004, 0, 0, 65535, 101}));
    for (std::string line; std::getline (std::cin, line);) {
        std::istringstream steps (line.substr (0, line.find ('#')));
        for (std::string step; std::getline (steps >> std::ws, step, ';');) {
            play (step);
        }
    }
}

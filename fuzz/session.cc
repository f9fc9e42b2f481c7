// One session on a stubbed transfer, against a model: which check refuses a batch, what runs with
// which bytes, who holds the bus afterwards, and each byte of the reply.
#include "fuzz/wire.h"
#include "net/exception.h"
#include "scan/q5_scan_server.h"

struct call_t {
    uint32_t slot;
    int32_t command;
    int32_t rxlen;
    bytes_t tx;

    bool operator== (const call_t &other) const
    {
        return slot == other.slot && command == other.command && rxlen == other.rxlen &&
               tx == other.tx;
    }
};
static std::vector<call_t> calls;

static int32_t result_of (int32_t command)
{
    static constexpr int32_t results[] = {-1, -2, -3,   -4,   -10,  0,    1,
                                          5,  10, 4095, 4096, 4097, 65535};
    return results[static_cast<uint32_t> (command) % std::size (results)];
}

static uint8_t received_byte (size_t call, size_t i)
{
    return static_cast<uint8_t> (call * 37 + i % 253);
}

int32_t scan_port_transfer (uint32_t slot, int32_t command, int32_t txlen, const uint8_t *txbuf,
                            int32_t rxlen, uint8_t *rxbuf)
{
    calls.push_back ({slot, command, rxlen, bytes_t (txbuf, txbuf + txlen)});
    for (int32_t i = 0; i < rxlen; i++) {
        rxbuf[i] = received_byte (calls.size (), i);
    }
    return result_of (command);
}

// What a session should do.
struct model_t {
    const bytes_t &sent;
    int32_t owner;
    uint8_t stale; // what the receive buffer begins with
    size_t room;
    std::string where = {}; // the check that ends it
    bytes_t reply = {};
    std::vector<call_t> calls = {};

    bool refuses (bool refused, const char *check)
    {
        where = refused ? check : "";
        return refused;
    }
    int64_t word (size_t i) const
    {
        uint32_t value = 0;
        for (size_t at = 4 * i; at < 4 * i + 4; at++) {
            value = value << 8 | sent[at];
        }
        return static_cast<int32_t> (value);
    }
    void run ()
    {
        size_t size = sent.size ();
        if (refuses (size < 4, "q5_scan_server.cc:61") || (owner != 0 && word (0) != owner) ||
            refuses (size < 8, "q5_scan_server.cc:68") ||
            refuses (word (1) > 100, "q5_scan_server.cc:72") ||
            refuses (word (1) < 1, "kp_literate.cc:12") ||
            refuses (size < 8 + 16 * size_t (word (1)), "q5_scan_server.cc:75")) {
            return;
        }
        int64_t sum = 0, past_headers = 8 + 16 * word (1);
        for (int64_t header = 2; header < past_headers / 4; header += 4) {
            int64_t rxlen = word (header + 2), txlen = word (header + 3);
            if (refuses (word (header) < 0 || word (header) > 31, "q5_scan_server.cc:46") ||
                refuses (txlen < 0 || txlen > 4094, "q5_scan_server.cc:47") ||
                refuses (rxlen < 0 || rxlen > 4096, "q5_scan_server.cc:48") ||
                refuses (sum + txlen > 4094, "q5_scan_server.cc:82") ||
                refuses (txlen > 0 && size < size_t (past_headers + sum + txlen),
                         "q5_scan_server.cc:85")) {
                return;
            }
            sum += txlen;
        }
        auto tx = sent.begin () + past_headers;
        for (int64_t header = 2; header < past_headers / 4 && where.empty (); header += 4) {
            execute (header, bytes_t (tx, tx + word (header + 3)));
            tx += word (header + 3);
        }
    }
    void execute (int64_t header, const bytes_t &tx)
    {
        int32_t command = word (header + 1), rxlen = word (header + 2), result = 1;
        bool is_own = command == 1 || command == 2;
        if (is_own) {
            owner = command == 1 ? word (0) : 0;
        } else {
            calls.push_back ({uint32_t (word (header)), command, rxlen, tx});
            result = result_of (command);
            stale = rxlen > 0 ? received_byte (calls.size (), 0) : stale;
        }
        append_word (reply, result);
        if (refuses (reply.size () > room, "q5_scan_server.cc:121")) {
            return;
        }
        for (int32_t i = 0; i < std::min (result, rxlen); i++) {
            reply.push_back (is_own ? stale : received_byte (calls.size (), i));
        }
        refuses (reply.size () > room, "q5_scan_server.cc:129");
    }
};

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
    static q5_scan_server_t server;
    input_t input (data, size);
    uint8_t how = input.byte ();
    server.owner_id = how & 1 ? input.word () : 0;
    wire = {};
    wire.chunk = how & 2 ? 1 + input.byte () * 16 : SIZE_MAX;
    wire.room = how & 4 ? uint16_t (input.word ()) : SIZE_MAX;
    wire.sent = read_batch (input);
    calls.clear ();
    model_t model{wire.sent, server.owner_id, server.rxbuf[0], wire.room};
    model.run ();
    const bytes_t rxbuf (server.rxbuf, std::end (server.rxbuf));

    std::string message;
    try {
        server.handle (wire_fd);
    } catch (exception_t &e) {
        message = e.message;
    }
    std::string expected = model.where.empty () ? "" : "assertion failed. " + model.where + " (";
    REQUIRE_SHOWING (message.substr (0, expected.size ()) == expected, message + "\n" + expected);
    REQUIRE (message.empty () == expected.empty () && is_one_line (message));
    REQUIRE (server.owner_id == model.owner);
    REQUIRE (calls == model.calls);
    model.reply.resize (std::min (model.reply.size (), wire.room));
    REQUIRE (wire.received == model.reply);
    REQUIRE (!calls.empty () || std::equal (rxbuf.begin (), rxbuf.end (), server.rxbuf));
    return 0;
}

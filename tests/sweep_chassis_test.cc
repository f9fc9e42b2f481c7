// Sessions on the emulated chassis: every way to cut a batch in two, every slot with every fault.
#include "chassis/file/chassis_file.h"
#include "scan/q5_scan_server.h"
#include "tests/board.h"
#include "tests/expected.h"

#include <sys/syscall.h>

static socket_pair_t *wire;
static bytes_t second_piece;

// What has not come yet comes when it is waited for.
extern "C" ssize_t read (int fd, void *bytes, size_t size)
{
    char first;
    if (!second_piece.empty () && recv (fd, &first, 1, MSG_PEEK | MSG_DONTWAIT) < 0) {
        wire->send (second_piece);
        second_piece.clear ();
    }
    return syscall (SYS_read, fd, bytes, size);
}

class chassis_sweep : public board_test {
  protected:
    q5_scan_server_t server;

    void start ()
    {
        power_up ();
        scan_port_init ();
    }
    bytes_t serve (const bytes_t &batch, size_t split = 0)
    {
        socket_pair_t pair;
        wire = &pair;
        pair.send (bytes_t (batch.begin (), batch.begin () + split));
        second_piece = bytes_t (batch.begin () + split, batch.end ());
        EXPECT_EQ (message_of ([&] { server.handle (pair.there); }), "");
        return pair.received ();
    }
};

// The last block of docs/protocol.md that begins with this line.
static bytes_t block_of_page (const std::string &begin)
{
    std::ifstream page (Q5_SOURCES "/docs/protocol.md");
    bytes_t block;
    bool inside = false;
    for (std::string line; std::getline (page, line);) {
        if (line.rfind ("```", 0) == 0) {
            inside = line == begin;
            block = inside ? bytes_t () : block;
        } else if (inside) {
            block = block + bytes_of_hex (line.c_str ());
        }
    }
    return block;
}

TEST_F (chassis_sweep, a_batch_in_two_pieces_is_answered_as_in_one)
{
    settings = builtin_chassis ();
    start ();
    const bytes_t batch = block_of_page ("```hex client to daemon");
    const bytes_t replies = block_of_page ("```hex daemon to client");
    ASSERT_EQ (batch.size (), 125u);
    for (size_t split = 0; split <= batch.size (); split++) {
        ASSERT_EQ (serve (batch, split), replies) << split << " bytes in the first piece";
    }
}

// Each slot in turn has the fault. It is asked between its neighbours, which answer as ever.
TEST_F (chassis_sweep, a_fault_stays_in_its_slot)
{
    auto ask = [&] (int slot) {
        return serve (words ({2, 1, slot & 31, 0x93, 16, 30}) + bytes_t (30, 0xA0 + (slot & 31)));
    };
    std::vector<bytes_t> sound (32);
    std::string text = "The result of slots 0 to 31:\n";
    for (int fault = 0; fault <= static_cast<int> (fault_t::endless_transmitter); fault++) {
        text += fault_name (static_cast<fault_t> (fault));
        for (int slot = 0; slot < 32; slot++) {
            settings = {};
            settings.board.cts3 = true;
            for (int i = 0; i < 32; i++) {
                settings.card (i).echoes (0x93);
            }
            settings.card (slot).fails (static_cast<fault_t> (fault), 2);
            start ();
            for (int i = 0; fault == 0 && i < 32; i++) {
                sound[i] = ask (i);
            }
            EXPECT_EQ (ask (slot - 1), sound[(slot - 1) & 31]);
            const bytes_t reply = ask (slot);
            EXPECT_EQ (ask (slot + 1), sound[(slot + 1) & 31]);
            EXPECT_EQ (ask (slot), reply);
            EXPECT_EQ (ask (slot - 1), sound[(slot - 1) & 31]);
            EXPECT_TRUE (reply == sound[slot] || reply.size () == 4);
            text += " " + std::to_string (static_cast<int8_t> (reply[3]));
        }
        text += "\n";
    }
    expect_file ("expected/slots_by_faults.txt", text);
}

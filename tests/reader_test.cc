#include "scan/q5_scan_reader.h"
#include "tests/fake_server.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <memory>
#include <string.h>

using namespace std::string_literals;

struct field_t {
    char letter;
    const char *where; // it throws when its bound fails
    int (*call) (q5_scan_reader_t &);
};
static const std::vector<field_t> fields = {
    {'x', "44 (pos + count <= length)", [] (auto &r) { return +*r.get_bytes (1); }},
    {'s', "52 ((int) strlen (bytes + pos) <= length)", [] (auto &r) { return +*r.get_string (); }},
    {'b', "61 (pos < length)", [] (auto &r) { return +r.get_byte (); }},
    {'h', "68 (pos + (int) sizeof (short) <= length)", [] (auto &r) { return +r.get_short (); }},
    {'i', "77 (pos + (int) sizeof (int) <= length)", [] (auto &r) { return +r.get_int (); }},
    {'t', "85 (types_pos < types_length)", [] (auto &r) { return +r.get_type (); }},
};

class reader : public testing::Test {
  public:
    std::unique_ptr<q5_scan_reader_t> r = std::make_unique<q5_scan_reader_t> ("127.0.0.1", 1);

    int begin (const bytes_t &message)
    {
        r->typed_buffers[3].count = message.size ();
        std::copy (message.begin (), message.end (), r->typed_buffers[3].data);
        return r->begin_message (3);
    }
    // The letters of the operations that throw here; the cursor stays.
    std::string throwing ()
    {
        std::string letters;
        for (const field_t &field : fields) {
            std::pair cursor (r->pos, r->types_pos);
            std::string message = message_of ([&] { field.call (*r); });
            if (!message.empty ()) {
                EXPECT_EQ (message, "assertion failed. q5_scan_reader.cc:"s + field.where);
                EXPECT_EQ (std::pair (r->pos, r->types_pos), cursor);
                letters += field.letter;
            }
            std::tie (r->pos, r->types_pos) = cursor;
        }
        return letters;
    }
};

static const std::string bytes_where = "q5_scan_reader.cc:44 (pos + count <= length)";

TEST_F (reader, decodes_fields_in_order)
{
    EXPECT_EQ (throwing (), "xsbhit") << "nothing begun";
    EXPECT_EQ (r->get_bytes (0), nullptr);
    EXPECT_EQ (begin ({3, 'b', 0xff, 'r', 0xfe, 0xff, 0xfe, 0x80, 0, 0, 1, 'h', 'i', 0, 0, 7, 8}),
               13);
    EXPECT_EQ (r->get_type (), 'b');
    EXPECT_EQ (r->get_type (), 255);
    EXPECT_EQ (r->get_byte (), 254);
    EXPECT_EQ (r->get_short (), 65534);
    EXPECT_EQ (r->get_int (), -2147483647);
    EXPECT_STREQ (r->get_string (), "hi");
    EXPECT_STREQ (r->get_string (), "");
    EXPECT_EQ (throwing (), "i");
    EXPECT_ASSERTION (r->get_bytes (INT_MAX), bytes_where);
    const uint8_t *p = r->get_bytes (2);
    EXPECT_EQ (bytes_t (p, p + 2), (bytes_t{7, 8}));
    EXPECT_EQ (r->get_bytes (0), p + 2) << "none is left, none is taken";
    EXPECT_EQ (r->get_bytes (-1), p + 2);
    EXPECT_EQ (throwing (), "hi");
    r->get_type ();
    EXPECT_EQ (throwing (), "hit");
    EXPECT_EQ (r->begin_message (3), 13);
    EXPECT_EQ (r->get_type (), 'b') << "from the start again";
}

TEST_F (reader, takes_the_letter_count_as_signed_and_as_it_stands)
{
    EXPECT_EQ (begin ({0, 1, 2}), 2);
    EXPECT_EQ (begin ({0}), 0);
    r->typed_buffers[3].data[1] = 'x';
    EXPECT_EQ (throwing (), "xsbhit");
    EXPECT_EQ (begin ({9, 'x', 1}), -7);
    EXPECT_EQ (throwing (), "xsbhi");
    EXPECT_EQ (begin ({0xff, 5}), 2) << "-1: the payload begins at the count";
    EXPECT_EQ (r->get_short (), 0xff05);
    EXPECT_EQ (begin ({0x80, 5}), 129);
    EXPECT_EQ (r->typed_buffers[3].data - r->bytes, 127);
    r->typed_buffers[3].count = INT_MAX;
    EXPECT_EQ (r->begin_message (3), INT_MAX) << "not wrapped";
}

TEST_F (reader, bounds_a_string_by_its_own_length_only)
{
    begin ({0, 1, 2, 3, 'a', 'b', 'c', 0, 'd'});
    r->length = 5;
    r->pos = 3;
    EXPECT_STREQ (r->get_string (), "abc");
    EXPECT_EQ (r->pos, 7);
    EXPECT_EQ (throwing (), "xbhit");
    for (auto [length, letters] : {std::pair{3, "xbhit"}, {2, "xsbhit"}}) {
        r->length = length;
        r->pos = 3;
        EXPECT_EQ (throwing (), letters);
    }
}

TEST_F (reader, never_reads_outside_itself)
{
    r->raw_buffers[31].count = INT_MAX;
    memset (r->raw_buffers[31].data, 'x', Q5_SCAN_MAX_RX);
    memset (r->fetch_commands, 'x', sizeof (r->fetch_commands));
    EXPECT_EQ (r->begin_raw (31), INT_MAX);
    EXPECT_EQ (throwing (), "st") << "no NUL up to the object's end";
    int32_t rest = reinterpret_cast<uint8_t *> (r.get () + 1) - r->raw_buffers[31].data;
    for (int32_t count : {rest + 1, INT_MAX, INT_MIN}) {
        EXPECT_ASSERTION (r->get_bytes (count), bytes_where);
    }
    r->get_bytes (rest - 1);
    EXPECT_EQ (throwing (), "shit");
    r->get_byte ();
    EXPECT_EQ (throwing (), "xsbhit");
}

TEST_F (reader, leaves_the_cursor_for_an_empty_slot_and_the_letters_for_a_raw_block)
{
    begin ({2, 's', 't', 1, 2});
    r->get_type ();
    for (int count : {0, -1, INT_MIN}) {
        r->typed_buffers[4].count = r->raw_buffers[4].count = count;
        EXPECT_EQ (r->begin_message (4), 0);
        EXPECT_EQ (r->begin_raw (4), 0);
    }
    EXPECT_EQ (r->get_byte (), 1);
    r->raw_buffers[31].count = 1;
    r->raw_buffers[31].data[0] = 8;
    EXPECT_EQ (r->begin_raw (31), 1);
    EXPECT_EQ (r->get_byte (), 8);
    EXPECT_EQ (r->get_type (), 't');
}

TEST_F (reader, checks_its_arguments_and_fills_in_a_command)
{
    const std::string slot_text = " (slot >= 0 && slot < Q5_SCAN_NUM_SLOTS)";
    q5_scan_reader_t *null = null_object<q5_scan_reader_t> ();
    EXPECT_ASSERTION (null->begin_message (32), "q5_scan_reader.cc:13 (this)");
    EXPECT_ASSERTION (null->begin_raw (32), "q5_scan_reader.cc:30 (this)");
    for (int slot : {-1, 32}) {
        EXPECT_ASSERTION (r->begin_message (slot), "q5_scan_reader.cc:14" + slot_text);
        EXPECT_ASSERTION (r->begin_raw (slot), "q5_scan_reader.cc:31" + slot_text);
    }
    uint8_t tx, unused;
    q5_scan_command_t c = {9, 9, 9, 9, &tx, &unused, 9};
    r->init_command (&c, 7, 31, &unused);
    EXPECT_EQ (std::tuple (c.command, c.slot, c.txlen, c.rxlen, c.txbuf, c.rxbuf, c.result),
               std::tuple (7, 31, 0, 4096, &tx, r->raw_buffers[31].data, 9));
    r->init_command (&c, 51, 32, &unused);
    EXPECT_EQ (c.rxbuf, nullptr) << "no such slot";
    EXPECT_ASSERTION (null->init_command (&c, 51, 0, nullptr), "q5_scan_reader.cc:97 (this && c)");
    EXPECT_ASSERTION (r->init_command (nullptr, 51, 0, nullptr),
                      "q5_scan_reader.cc:97 (this && c)");
}

TEST_F (reader, fetches_both_replies_of_every_slot_in_one_batch)
{
    bytes_t batch = words ({2, 64}), reply;
    for (int i = 0; i < 64; i++) {
        batch = batch + words ({i % 32, i < 32 ? 51 : 83, 4096, 0});
        reply = reply + (i == 40 || i == 5 ? words ({-3}) : words ({2}) + bytes_t{0, uint8_t (i)});
    }
    fake_server_t server (reply);
    r->port = server.port;
    EXPECT_EQ (r->fetch_all (), 1);
    EXPECT_EQ (server.received (), batch);
    for (int slot = 0; slot < 32; slot++) {
        EXPECT_EQ (r->begin_message (slot), slot == 5 ? 0 : 1);
        EXPECT_EQ (r->typed_buffers[slot].count, slot == 5 ? -3 : 2);
        EXPECT_TRUE (slot == 5 || r->get_byte () == slot) << slot;
        EXPECT_EQ (r->begin_raw (slot), slot == 8 ? 0 : 2);
        EXPECT_EQ (r->raw_buffers[slot].count, slot == 8 ? -3 : 2);
    }
    reply[3] = 1;
    fake_server_t cut (reply);
    r->port = cut.port;
    EXPECT_EQ (r->fetch_all (), 0);
    EXPECT_EQ (r->typed_buffers[0].count, 2) << "counts stay from the last whole fetch";
    EXPECT_EQ (r->raw_buffers[8].count, -3);
}

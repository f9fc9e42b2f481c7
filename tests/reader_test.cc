#include "net/exception.h"
#include "scan/q5_scan_reader.h"
#include "tests/fake_server.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <memory>
#include <string.h>

static const std::string module = "q5_scan_reader.cc";
static const std::string slot_text = "slot >= 0 && slot < Q5_SCAN_NUM_SLOTS";

class reader : public testing::Test {
  public:
    std::unique_ptr<q5_scan_reader_t> r = std::make_unique<q5_scan_reader_t> ("127.0.0.1", 1);

    static void fill (q5_scan_buffer_t &buffer, const bytes_t &bytes)
    {
        buffer.count = bytes.size ();
        std::copy (bytes.begin (), bytes.end (), buffer.data);
    }
    int begin (const bytes_t &message)
    {
        fill (r->typed_buffers[3], message);
        return r->begin_message (3);
    }

    // Each field operation, with what it throws when its bound fails.
    struct operation_t {
        std::string message;
        std::function<void ()> call;
    };
    std::vector<operation_t> fields ()
    {
        return {
            {assertion (module, 44, "pos + count <= length"), [&] { r->get_bytes (1); }},
            {assertion (module, 61, "pos < length"), [&] { r->get_byte (); }},
            {assertion (module, 68, "pos + (int) sizeof (short) <= length"),
             [&] { r->get_short (); }},
            {assertion (module, 77, "pos + (int) sizeof (int) <= length"), [&] { r->get_int (); }},
            {assertion (module, 52, "(int) strlen (bytes + pos) <= length"),
             [&] { r->get_string (); }},
            {assertion (module, 85, "types_pos < types_length"), [&] { r->get_type (); }},
        };
    }
    void expect_throws (const std::vector<operation_t> &operations)
    {
        int pos = r->pos, types_pos = r->types_pos;
        for (const operation_t &operation : operations) {
            EXPECT_EQ (message_of (operation.call), operation.message);
        }
        EXPECT_EQ (r->pos, pos);
        EXPECT_EQ (r->types_pos, types_pos);
    }
    std::vector<operation_t> without (int index)
    {
        auto operations = fields ();
        operations.erase (operations.begin () + index);
        return operations;
    }
};

constexpr int get_string_index = 4, get_type_index = 5;

TEST_F (reader, decodes_fields_in_order)
{
    EXPECT_EQ (begin ({5, 'b', 0xff, 'i', 's', 'r', 0xfe, 0xff, 0xfe, 0x80, 0, 0, 1, 'h', 'i', 0, 0,
                       7, 8}),
               13);
    EXPECT_EQ (r->get_type (), 'b');
    EXPECT_EQ (r->get_type (), 255);
    EXPECT_EQ (r->get_byte (), 254);
    EXPECT_EQ (r->get_short (), 65534);
    EXPECT_EQ (uint32_t (r->get_int ()), 0x80000001u);
    EXPECT_STREQ (r->get_string (), "hi");
    EXPECT_STREQ (r->get_string (), "");
    const uint8_t *p = r->get_bytes (2);
    EXPECT_EQ (bytes_t (p, p + 2), (bytes_t{7, 8}));
    EXPECT_EQ (r->get_bytes (0), p + 2) << "none is left, none is taken";
    expect_throws ({fields ()[0], fields ()[1], fields ()[2], fields ()[3]});
    r->get_bytes (-2);
    EXPECT_EQ (r->get_short (), 0x0708);
    EXPECT_EQ (r->begin_message (3), 13);
    EXPECT_EQ (r->get_type (), 'b') << "from the start again";
}

TEST_F (reader, throws_on_each_field_that_does_not_fit)
{
    expect_throws (fields ()); // nothing begun
    EXPECT_EQ (begin ({0}), 0);
    r->typed_buffers[3].data[1] = 'x';
    expect_throws (fields ());
    EXPECT_EQ (begin ({1, 't', 1}), 1);
    expect_throws ({fields ()[2], fields ()[3]});
    EXPECT_EQ (begin ({0, 1, 2, 3}), 3);
    expect_throws ({fields ()[3]});
    r->get_byte ();
    EXPECT_EQ (message_of ([&] { r->get_bytes (INT_MAX); }), fields ()[0].message);
    EXPECT_EQ (r->get_short (), 0x0203);
}

TEST_F (reader, takes_the_letter_count_as_signed_and_as_it_stands)
{
    EXPECT_EQ (begin ({9, 'x', 1}), -7);
    expect_throws (without (get_type_index));
    EXPECT_EQ (r->get_type (), 'x');
    EXPECT_EQ (begin ({0xff, 5}), 2) << "a count of -1: the payload begins at the count";
    EXPECT_EQ (r->get_short (), 0xff05);
    expect_throws ({fields ()[get_type_index]});
    EXPECT_EQ (begin ({0x80, 5}), 129);
    EXPECT_EQ (r->typed_buffers[3].data - r->bytes, 127);
    r->typed_buffers[3].count = INT_MAX;
    EXPECT_EQ (r->begin_message (3), INT_MAX) << "not wrapped";
}

TEST_F (reader, bounds_a_string_by_its_own_length_only)
{
    begin ({0, 1, 2, 3, 'a', 'b', 'c', 0, 'd'});
    r->length = 5;
    r->get_bytes (3);
    EXPECT_STREQ (r->get_string (), "abc");
    EXPECT_EQ (r->pos, 7);
    expect_throws ({fields ()[1]});
    begin ({0, 'a', 'b', 'c', 'd', 0});
    r->length = 3;
    expect_throws ({fields ()[get_string_index]});
    r->length = 4;
    EXPECT_STREQ (r->get_string (), "abcd");
}

TEST_F (reader, never_reads_outside_itself)
{
    r->raw_buffers[31].count = INT_MAX;
    memset (r->raw_buffers[31].data, 'x', Q5_SCAN_MAX_RX);
    memset (r->fetch_commands, 'x', sizeof (r->fetch_commands));
    EXPECT_EQ (r->begin_raw (31), INT_MAX);
    expect_throws ({fields ()[get_string_index]}); // no NUL up to the object's end
    auto rest = int32_t (reinterpret_cast<uint8_t *> (r.get () + 1) - r->raw_buffers[31].data);
    EXPECT_EQ (message_of ([&] { r->get_bytes (rest + 1); }), fields ()[0].message);
    EXPECT_EQ (message_of ([&] { r->get_bytes (INT_MIN); }), fields ()[0].message);
    r->get_bytes (rest - 1);
    r->get_byte ();
    expect_throws (without (get_type_index));
}

TEST_F (reader, leaves_the_cursor_for_an_empty_slot_and_the_letters_for_a_raw_block)
{
    EXPECT_EQ (begin ({1, 't', 1, 2}), 2);
    for (int count : {0, -1, -10}) {
        r->typed_buffers[4].count = r->raw_buffers[4].count = count;
        EXPECT_EQ (r->begin_message (4), 0);
        EXPECT_EQ (r->begin_raw (4), 0);
    }
    EXPECT_EQ (r->get_byte (), 1);
    fill (r->raw_buffers[31], {8});
    EXPECT_EQ (r->begin_raw (31), 1);
    EXPECT_EQ (r->get_byte (), 8);
    EXPECT_EQ (r->get_type (), 't');
}

TEST_F (reader, checks_its_arguments)
{
    EXPECT_EQ (message_of ([] { null_object<q5_scan_reader_t> ()->begin_message (32); }),
               assertion (module, 13, "this"));
    EXPECT_EQ (message_of ([] { null_object<q5_scan_reader_t> ()->begin_raw (32); }),
               assertion (module, 30, "this"));
    EXPECT_EQ (message_of ([] {
                   null_object<q5_scan_reader_t> ()->init_command (nullptr, 51, 0, nullptr);
               }),
               assertion (module, 97, "this && c"));
    EXPECT_EQ (message_of ([&] { r->init_command (nullptr, 51, 0, nullptr); }),
               assertion (module, 97, "this && c"));
    for (int slot : {-1, 32}) {
        EXPECT_EQ (message_of ([&] { r->begin_message (slot); }),
                   assertion (module, 14, slot_text));
        EXPECT_EQ (message_of ([&] { r->begin_raw (slot); }), assertion (module, 31, slot_text));
    }
}

TEST_F (reader, a_fetch_command_goes_into_its_own_buffer)
{
    uint8_t tx, unused;
    for (auto [command, slot, rxbuf] :
         {std::tuple{51, 31, r->typed_buffers[31].data},
          std::tuple{83, 31, r->raw_buffers[31].data}, std::tuple{7, 0, r->raw_buffers[0].data},
          std::tuple{51, 32, static_cast<uint8_t *> (nullptr)}}) {
        q5_scan_command_t c = {9, 9, 9, 9, &tx, &unused, 9};
        r->init_command (&c, command, slot, &unused);
        EXPECT_EQ (std::tuple (c.command, c.slot, c.txlen, c.rxlen, c.txbuf, c.rxbuf, c.result),
                   std::tuple (command, slot, 0, 4096, &tx, rxbuf, 9));
    }
}

TEST_F (reader, fetches_both_replies_of_every_slot_in_one_batch)
{
    bytes_t batch = words ({2, 64}), reply;
    for (int i = 0; i < 64; i++) {
        batch = batch + words ({i % 32, i < 32 ? 51 : 83, 4096, 0});
        reply = reply + (i == 40 ? words ({-3}) : words ({2}) + bytes_t{0, uint8_t (i)});
    }
    fake_server_t server (reply);
    r->port = server.port;
    EXPECT_EQ (r->fetch_all (), 1);
    EXPECT_EQ (server.received (), batch);
    for (int slot = 0; slot < 32; slot++) {
        EXPECT_EQ (r->begin_message (slot), 1);
        EXPECT_EQ (r->get_byte (), slot);
        EXPECT_EQ (r->raw_buffers[slot].count, slot == 8 ? -3 : 2);
        EXPECT_EQ (r->begin_raw (slot), slot == 8 ? 0 : 2);
    }
    reply.pop_back ();
    reply[3] = 1;
    fake_server_t cut (reply);
    r->port = cut.port;
    EXPECT_EQ (r->fetch_all (), 0);
    EXPECT_EQ (r->typed_buffers[0].count, 2) << "counts stay from the last whole fetch";
}

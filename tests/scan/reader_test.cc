#include "scan/q5_scan_reader.h"
#include "tests/cases.h"
#include "tests/fake_server.h"

#include <limits.h>
#include <map>
#include <memory>
#include <string.h>

static const std::unique_ptr<q5_scan_reader_t> r =
    std::make_unique<q5_scan_reader_t> ("127.0.0.1", 1);
static const uint8_t own_bytes[] = "abc";

// What each operation of the reader returns.
static const std::map<char, std::function<std::string (int)>> operations = {
    {'m', [] (int n) { return std::to_string (r->begin_message (n)); }},
    {'r', [] (int n) { return std::to_string (r->begin_raw (n)); }},
    {'t', [] (int) { return std::to_string (r->get_type ()); }},
    {'b', [] (int) { return std::to_string (r->get_byte ()); }},
    {'h', [] (int) { return std::to_string (r->get_short ()); }},
    {'i', [] (int) { return std::to_string (r->get_int ()); }},
    {'s', [] (int) { return r->get_string (); }},
    {'x', [] (int n) { return std::to_string (r->get_bytes (n) - r->bytes); }},
    {'C', [] (int n) { return r->typed_buffers[3].count = r->raw_buffers[31].count = n, "count"; }},
    {'L', [] (int n) { return r->length = n, "length"; }},
    {'P', [] (int n) { return r->pos = n, "pos"; }},
    {'O', [] (int) { return r->bytes = own_bytes, "own bytes"; }},
};

// The same with where the cursor is then, or why it threw: the cursor stays.
static std::string step (const std::string &word)
{
    int n = word.size () > 1 ? std::stoi (word.substr (1)) : 0;
    std::pair before (r->pos, r->types_pos);
    std::string result;
    std::string message = message_of ([&] { result = operations.at (word[0]) (n); });
    if (!message.empty ()) {
        EXPECT_EQ (std::pair (r->pos, r->types_pos), before);
        return "throws " + message.substr (message.find (':') + 1);
    }
    return result + "@" + std::to_string (r->pos);
}

TEST (reader, decodes_as_the_file_says)
{
    expect_cases ("scan/reader.txt", [] (const std::string &line) {
        *r = q5_scan_reader_t ("127.0.0.1", 1);
        std::istringstream words (line);
        std::string hex, text;
        words >> hex;
        bytes_t message = bytes_of_hex (hex.c_str ());
        for (q5_scan_buffer_t *buffer : {&r->typed_buffers[3], &r->raw_buffers[31]}) {
            memset (buffer->data, 'x', sizeof (buffer->data));
            std::copy (message.begin (), message.end (), buffer->data);
            buffer->count = message.size ();
        }
        memset (r->fetch_commands, 'x', sizeof (r->fetch_commands));
        for (std::string word; words >> word;) {
            text += (text.empty () ? "" : "; ") + step (word);
        }
        return text;
    });
}

TEST (reader, never_reads_outside_itself)
{
    r->raw_buffers[31].count = INT_MAX;
    r->begin_raw (31);
    int32_t rest = reinterpret_cast<uint8_t *> (r.get () + 1) - r->raw_buffers[31].data;
    const std::string where = "q5_scan_reader.cc:44 (pos + count <= length)";
    EXPECT_ASSERTION (r->get_bytes (rest + 1), where);
    r->get_bytes (rest - 1);
    EXPECT_NE (message_of ([] { r->get_short (); }), "");
    EXPECT_EQ (message_of ([] { r->get_byte (); }), "");
    EXPECT_NE (message_of ([] { r->get_byte (); }), "");
}

TEST (reader, checks_its_arguments_and_fills_in_a_command)
{
    const std::string a = "q5_scan_reader.cc:", slot = " (slot >= 0 && slot < Q5_SCAN_NUM_SLOTS)";
    q5_scan_reader_t *null = null_object<q5_scan_reader_t> ();
    EXPECT_ASSERTION (null->begin_message (32), a + "13 (this)");
    EXPECT_ASSERTION (null->begin_raw (32), a + "30 (this)");
    for (int bad : {-1, 32}) {
        EXPECT_ASSERTION (r->begin_message (bad), a + "14" + slot);
        EXPECT_ASSERTION (r->begin_raw (bad), a + "31" + slot);
    }
    uint8_t tx, unused;
    q5_scan_command_t c = {9, 9, 9, 9, &tx, &unused, 9};
    r->init_command (&c, 7, 31, &unused);
    EXPECT_EQ (std::tuple (c.command, c.slot, c.txlen, c.rxlen, c.txbuf, c.rxbuf, c.result),
               std::tuple (7, 31, 0, 4096, &tx, r->raw_buffers[31].data, 9));
    r->init_command (&c, 51, 32, &unused);
    EXPECT_EQ (c.rxbuf, nullptr) << "no such slot";
    EXPECT_ASSERTION (null->init_command (&c, 51, 0, nullptr), a + "97 (this && c)");
    EXPECT_ASSERTION (r->init_command (nullptr, 51, 0, nullptr), a + "97 (this && c)");
}

TEST (reader, fetches_both_replies_of_every_slot_in_one_batch)
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

TEST (reader, keeps_its_cursor_through_a_fetch)
{
    fake_server_t server (64 * words ({0}));
    q5_scan_reader_t reader ("127.0.0.1", server.port);
    reader.typed_buffers[3] = {5, {2, 'b', 'h', 40, 41}};
    reader.begin_message (3);
    EXPECT_EQ (reader.get_type () + reader.get_byte (), 'b' + 40);
    EXPECT_EQ (reader.fetch_all (), 1);
    EXPECT_EQ (reader.begin_message (3), 0) << "empty now";
    EXPECT_EQ (reader.get_type () + reader.get_byte (), 'h' + 41);
}

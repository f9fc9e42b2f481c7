// Layout of the records on the 32-bit target.
#include "net/exception.h"
#include "scan/q5_scan_reader.h"
#include "scan/q5_scan_server.h"
#include "scanp/scanp.h"

#include <gtest/gtest.h>
#include <vector>

// Offsets of the fields, then the size of the whole.
template <typename object_t, typename... field_t> std::vector<size_t> layout_of (field_t... fields)
{
    alignas (object_t) static char storage[sizeof (object_t)];
    object_t *object = reinterpret_cast<object_t *> (storage);
    return {static_cast<size_t> (reinterpret_cast<char *> (&(object->*fields)) - storage)...,
            sizeof (object_t)};
}

TEST (target, lays_records_out_as_documented)
{
    using layout_t = std::vector<size_t>;
    using error = exception_t;
    EXPECT_EQ (layout_of<error> (&error::message, &error::code), (layout_t{0, 200, 204}));
    EXPECT_EQ (layout_of<kp_literate_t> (&kp_literate_t::puts_buffer), (layout_t{0, 1001}));
    using connector = kp_client_t;
    EXPECT_EQ (layout_of<connector> (&connector::puts_buffer, &connector::host, &connector::port),
               (layout_t{0, 1001, 1304, 1308}));
    using request = scan_request_t;
    EXPECT_EQ (
        layout_of<request> (&request::slot, &request::command, &request::rxlen, &request::txlen),
        (layout_t{0, 4, 8, 12, 16}));
    using server = q5_scan_server_t;
    EXPECT_EQ (layout_of<server> (&server::puts_buffer, &server::txbuf, &server::rxbuf,
                                  &server::requests, &server::owner_id),
               (layout_t{4, 1008, 5104, 9204, 10804, 10808}));
    using command = q5_scan_command_t;
    EXPECT_EQ (layout_of<command> (&command::command, &command::slot, &command::txlen,
                                   &command::rxlen, &command::txbuf, &command::rxbuf,
                                   &command::result),
               (layout_t{0, 4, 8, 12, 16, 20, 24, 28}));
    using client = q5_scan_client_t;
    EXPECT_EQ (layout_of<client> (&client::port, &client::client_id), (layout_t{1304, 1308, 1312}));
    using reader = q5_scan_reader_t;
    EXPECT_EQ (layout_of<reader> (&reader::length, &reader::types_length, &reader::pos,
                                  &reader::types_pos, &reader::bytes, &reader::types,
                                  &reader::typed_buffers, &reader::raw_buffers,
                                  &reader::fetch_commands),
               (layout_t{1312, 1316, 1320, 1324, 1328, 1332, 1336, 132536, 263736, 265528}));
    using bd = scc_bd_t;
    EXPECT_EQ (layout_of<bd> (&bd::status, &bd::length, &bd::pointer), (layout_t{0, 2, 4, 8}));
    using port = scan_port_state_t;
    EXPECT_EQ (layout_of<port> (&port::immr, &port::scanp_fd, &port::rx_buf, &port::tx_buf,
                                &port::rx_buf_phys, &port::tx_buf_phys, &port::rx_bds,
                                &port::tx_bds, &port::rx_bd_offset, &port::tx_bd_offset),
               (layout_t{0, 4, 8, 12, 16, 20, 24, 28, 32, 36, 40}));
}

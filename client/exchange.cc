#include "client/exchange.h"

#include "client/sentences.h"
#include "client/wire.h"

#include <algorithm>
#include <errno.h>
#include <linux/sockios.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#define MODULE "q5_scan_server.cc"

using step_t = q5_scan_step_t;

void q5_scan_check_record (const q5_scan_command_t *c)
{
    ASSERT (185, c->slot >= 0 && c->slot < Q5_SCAN_NUM_SLOTS);
    ASSERT (186, !c->txlen || c->txbuf);
    ASSERT (187, !c->rxlen || c->rxbuf);
}

void q5_scan_check_records (int32_t num_commands, const q5_scan_command_t *commands)
{
    ASSERT (161, num_commands && commands);
    ASSERT (201, num_commands > 0 && num_commands <= MAX_REQUESTS);
    int32_t tx_count = 0;
    for (const q5_scan_command_t *c = commands; c < commands + num_commands; c++) {
        q5_scan_check_record (c);
        ASSERT (206, c->txlen >= 0 && c->txlen <= Q5_SCAN_MAX_TX);
        ASSERT (207, c->rxlen >= 0 && c->rxlen <= Q5_SCAN_MAX_RX);
        ASSERT (208, c->txlen + tx_count <= Q5_SCAN_MAX_TX);
        tx_count += c->txlen;
    }
}

namespace {

struct batch_t {
    const q5_scan_settings_t &settings;
    int32_t num_commands;
    q5_scan_command_t *commands;
    const q5_scan_on_record_t &on_record;
    int32_t num_replies = 0;
};

// Closed whatever happens.
struct descriptor_t {
    int32_t fd;
    ~descriptor_t ()
    {
        if (fd >= 0) {
            close (fd);
        }
    }
};

} // namespace

template <typename value_t>
static void append (std::vector<uint8_t> &bytes, const value_t *values, size_t count)
{
    const uint8_t *p = reinterpret_cast<const uint8_t *> (values);
    bytes.insert (bytes.end (), p, p + count * sizeof (value_t));
}

// All headers, then all transmit bytes.
static std::vector<uint8_t> bytes_of (const batch_t &batch)
{
    std::vector<uint8_t> bytes;
    const q5_scan_command_t *end = batch.commands + batch.num_commands;
    be32_t head[] = {batch.settings.id, batch.num_commands};
    append (bytes, head, 2);
    for (const q5_scan_command_t *c = batch.commands; c < end; c++) {
        scan_request_t header = {c->slot, c->command, c->rxlen, c->txlen};
        append (bytes, &header, 1);
    }
    for (const q5_scan_command_t *c = batch.commands; c < end; c++) {
        if (c->txlen > 0) {
            append (bytes, c->txbuf, c->txlen);
        }
    }
    return bytes;
}

static step_t receive_reply (q5_scan_wire_t &wire, q5_scan_command_t *c)
{
    be32_t result;
    step_t step = wire.receive (&result, sizeof (result));
    if (step != step_t::done) {
        return step;
    }
    c->result = result;
    int32_t size = std::min (c->result, c->rxlen);
    return size > 0 ? wire.receive (c->rxbuf, size) : step_t::done;
}

static step_t receive_replies (q5_scan_wire_t &wire, batch_t &batch)
{
    while (batch.num_replies < batch.num_commands) {
        step_t step = receive_reply (wire, &batch.commands[batch.num_replies]);
        if (step != step_t::done) {
            return step;
        }
        batch.num_replies++;
        if (batch.on_record) {
            batch.on_record (batch.num_replies - 1);
        }
        wire.deadline = q5_scan_deadline_t (batch.settings.reply_timeout);
    }
    return step_t::done;
}

static bool is_taken (int32_t fd)
{
    int unacknowledged = 0;
    return ioctl (fd, SIOCOUTQ, &unacknowledged) < 0 || unacknowledged == 0;
}

static bool is_reset (int error)
{
    return error == ECONNRESET || error == EPIPE;
}

// What a step other than done means behind the connecting.
static q5_scan_outcome_t outcome_of (step_t step, const q5_scan_wire_t &wire, const batch_t &batch,
                                     bool is_sent)
{
    const q5_scan_settings_t &settings = batch.settings;
    int error = step == step_t::failed ? wire.error : 0;
    switch (step) {
    case step_t::done:
        return {q5_scan_state_t::answered, batch.num_replies, 0, ""};
    case step_t::cancelled:
        return q5_scan_cancelled (batch.num_replies);
    case step_t::timed_out:
        return is_sent ? q5_scan_late_reply (settings, batch.num_replies, batch.num_commands,
                                             is_taken (wire.fd))
                       : q5_scan_late_sending (settings);
    default:
        return !wire.has_begun && (error == 0 || is_reset (error))
                   ? q5_scan_dropped (settings, error)
                   : q5_scan_broken_off (settings, batch.num_replies, batch.num_commands, error);
    }
}

q5_scan_outcome_t q5_scan_exchange_on (int32_t fd, const q5_scan_settings_t &settings,
                                       int32_t num_commands, q5_scan_command_t *commands,
                                       const q5_scan_on_record_t &on_record)
{
    batch_t batch = {settings, num_commands, commands, on_record};
    q5_scan_wire_t wire = {fd, settings.cancel_fd, q5_scan_deadline_t (settings.reply_timeout)};
    std::vector<uint8_t> bytes = bytes_of (batch);
    step_t step = wire.send (bytes.data (), bytes.size ());
    bool is_sent = step == step_t::done;
    if (is_sent) {
        step = receive_replies (wire, batch);
    }
    return outcome_of (step, wire, batch, is_sent);
}

static q5_scan_outcome_t outcome_of_connecting (step_t step, int error,
                                                const q5_scan_settings_t &settings)
{
    switch (step) {
    case step_t::cancelled:
        return q5_scan_cancelled (0);
    case step_t::timed_out:
        return q5_scan_late_connection (settings);
    default:
        return q5_scan_no_connection (settings, error);
    }
}

q5_scan_outcome_t q5_scan_exchange_records (const q5_scan_settings_t &settings,
                                            int32_t num_commands, q5_scan_command_t *commands,
                                            const q5_scan_on_record_t &on_record)
{
    q5_scan_wire_t wire = {-1, settings.cancel_fd, q5_scan_deadline_t (settings.connect_timeout)};
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (static_cast<uint16_t> (settings.port));
    bool may_block = settings.connect_timeout.count () <= 0 && settings.cancel_fd < 0;
    int host_error = 0;
    step_t step =
        q5_scan_resolve (wire, settings.host.c_str (), may_block, &address.sin_addr, &host_error);
    if (host_error != 0) {
        return q5_scan_unknown_host (settings, host_error, wire.error);
    }
    if (step != step_t::done) {
        return step == step_t::timed_out ? q5_scan_late_name (settings)
                                         : outcome_of_connecting (step, wire.error, settings);
    }
    descriptor_t connection = {socket (AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    wire.fd = connection.fd;
    if (wire.fd < 0) {
        return q5_scan_no_connection (settings, errno);
    }
    step = wire.connect (address);
    if (step != step_t::done) {
        return outcome_of_connecting (step, wire.error, settings);
    }
    return q5_scan_exchange_on (wire.fd, settings, num_commands, commands, on_record);
}

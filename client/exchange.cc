#include "client/exchange.h"

#include "client/resolve.h"
#include "client/sentences.h"

#include <algorithm>
#include <errno.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

using requests_t = std::vector<q5_scan_request_t>;
using step_t = q5_scan_step_t;

template <typename value_t> static void append (std::vector<uint8_t> &bytes, const value_t &value)
{
    const uint8_t *p = reinterpret_cast<const uint8_t *> (&value);
    bytes.insert (bytes.end (), p, p + sizeof (value));
}

std::vector<uint8_t> q5_scan_bytes_of (const q5_scan_settings_t &settings,
                                       const requests_t &requests)
{
    std::vector<uint8_t> bytes;
    auto word = [] (size_t value) { return be32_t (static_cast<int32_t> (value)); };
    append (bytes, be32_t (settings.id));
    append (bytes, word (requests.size () + settings.claims));
    if (settings.claims) {
        append (bytes, scan_request_t{0, Q5_SCAN_CLAIM, 0, 0});
    }
    for (const q5_scan_request_t &r : requests) {
        append (bytes, scan_request_t{r.slot, r.command, r.rxlen, word (r.tx.size ())});
    }
    for (const q5_scan_request_t &r : requests) {
        bytes.insert (bytes.end (), r.tx.begin (), r.tx.end ());
    }
    return bytes;
}

namespace {

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

struct exchange_t {
    const q5_scan_settings_t &settings;
    requests_t &requests;
    const q5_scan_on_reply_t &on_reply;
    q5_scan_wire_t wire;
    size_t num_replies = 0;
    bool is_sent = false;
    bool is_refused = false; // the claim before the requests

    step_t run ();
    q5_scan_outcome_t outcome_of (step_t step) const;

  private:
    step_t receive_result (int32_t *result);
    step_t receive_claim ();
    step_t receive_reply (q5_scan_request_t &request);
};

} // namespace

step_t exchange_t::receive_result (int32_t *result)
{
    be32_t word = 0;
    step_t step = wire.receive (&word, sizeof (word));
    *result = word;
    return step;
}

step_t exchange_t::receive_claim ()
{
    int32_t result = 0;
    step_t step = receive_result (&result);
    is_refused = step == step_t::done && result <= 0;
    return is_refused ? step_t::failed : step;
}

// A reply that comes short leaves nothing in its request.
step_t exchange_t::receive_reply (q5_scan_request_t &request)
{
    int32_t result = 0;
    step_t step = receive_result (&result);
    std::vector<uint8_t> rx (std::clamp (result, 0, request.rxlen));
    if (step == step_t::done && !rx.empty ()) {
        step = wire.receive (rx.data (), rx.size ());
    }
    if (step == step_t::done) {
        request.answered = true;
        request.result = result;
        request.rx = std::move (rx);
    }
    return step;
}

step_t exchange_t::run ()
{
    std::vector<uint8_t> bytes = q5_scan_bytes_of (settings, requests);
    wire.deadline = q5_scan_deadline_t (settings.reply_timeout);
    step_t step = wire.send (bytes.data (), bytes.size ());
    is_sent = step == step_t::done;
    if (is_sent && settings.claims) {
        step = receive_claim ();
    }
    while (step == step_t::done && num_replies < requests.size ()) {
        step = receive_reply (requests[num_replies]);
        if (step == step_t::done && on_reply) {
            on_reply (requests[num_replies]);
        }
        num_replies += step == step_t::done;
        wire.deadline = q5_scan_deadline_t (settings.reply_timeout);
    }
    return step;
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

q5_scan_outcome_t exchange_t::outcome_of (step_t step) const
{
    q5_scan_place_t place = {settings, wire.total.has_passed ()};
    int error = step == step_t::failed ? wire.error : 0;
    switch (step) {
    case step_t::done:
        return {q5_scan_state_t::answered, static_cast<int32_t> (num_replies), 0, ""};
    case step_t::cancelled:
        return q5_scan_cancelled (num_replies);
    case step_t::timed_out:
        return is_sent
                   ? q5_scan_late_reply (place, num_replies, requests.size (), is_taken (wire.fd))
                   : q5_scan_late_sending (place);
    default:
        if (is_refused) {
            return q5_scan_refused (settings);
        }
        return !wire.has_begun && (error == 0 || is_reset (error))
                   ? q5_scan_dropped (settings, error)
                   : q5_scan_broken_off (settings, num_replies, requests.size (), error);
    }
}

// Why there is no connection.
static q5_scan_outcome_t outcome_of_connecting (step_t step, const q5_scan_settings_t &settings,
                                                const q5_scan_wire_t &wire, bool has_address)
{
    q5_scan_place_t place = {settings, wire.total.has_passed ()};
    switch (step) {
    case step_t::done:
        return {};
    case step_t::cancelled:
        return q5_scan_cancelled (0);
    case step_t::timed_out:
        return has_address ? q5_scan_late_connection (place) : q5_scan_late_name (place);
    default:
        return q5_scan_no_connection (settings, wire.error);
    }
}

static q5_scan_outcome_t find (const q5_scan_settings_t &settings, q5_scan_wire_t &wire,
                               sockaddr_in *address)
{
    *address = {};
    address->sin_family = AF_INET;
    address->sin_port = htons (static_cast<uint16_t> (settings.port));
    int host_error = 0;
    step_t step = q5_scan_resolve (wire, settings.host, &address->sin_addr, &host_error);
    return host_error != 0 ? q5_scan_unknown_host (settings, host_error, wire.error)
                           : outcome_of_connecting (step, settings, wire, false);
}

static q5_scan_wire_t wire_for (const q5_scan_settings_t &settings, q5_scan_deadline_t total)
{
    return {-1, settings.cancel_fd, total, q5_scan_deadline_t (settings.connect_timeout)};
}

q5_scan_outcome_t q5_scan_find (const q5_scan_settings_t &settings, q5_scan_deadline_t total,
                                sockaddr_in *address)
{
    q5_scan_wire_t wire = wire_for (settings, total);
    return find (settings, wire, address);
}

q5_scan_outcome_t q5_scan_exchange_once (const q5_scan_settings_t &settings,
                                         q5_scan_deadline_t total, requests_t &requests,
                                         const q5_scan_on_reply_t &on_reply)
{
    exchange_t exchange = {settings, requests, on_reply, wire_for (settings, total)};
    q5_scan_wire_t &wire = exchange.wire;
    sockaddr_in address;
    q5_scan_outcome_t outcome = find (settings, wire, &address);
    if (!outcome.answered ()) {
        return outcome;
    }
    if (wire.is_cancelled ()) { // only waits look at cancel_fd, and sending may need none
        return q5_scan_cancelled (0);
    }
    descriptor_t connection = {socket (AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    wire.fd = connection.fd;
    if (wire.fd < 0) {
        return q5_scan_no_connection (settings, errno);
    }
    step_t step = wire.connect (address);
    return step == step_t::done ? exchange.outcome_of (exchange.run ())
                                : outcome_of_connecting (step, settings, wire, true);
}

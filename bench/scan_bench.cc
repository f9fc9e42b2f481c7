// What the daemon's work costs on the emulated chassis: one transfer, by length and by the number
// of register accesses; one batch through the session; one batch refused. Ratios within one run
// count, not the times: perf stat or valgrind --tool=callgrind give instructions.
#include "chassis/board/chassis.h"
#include "chassis/launch/door.h"
#include "net/exception.h"
#include "scan/q5_scan_server.h"
#include "scanp/scan_port.h"

#include <benchmark/benchmark.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

constexpr int32_t echo = 0x93;

class access_counter_t final : public chassis_observer_t {
  public:
    int64_t count = 0;
    void access (const access_t &) override
    {
        count++;
    }
};

// A chassis with an echo in slot 3, under the device layer.
class scan_bench : public benchmark::Fixture {
  public:
    access_counter_t accesses;
    chassis_t *chassis;

    void SetUp (benchmark::State &) override
    {
        chassis_settings_t settings;
        settings.card (3).echoes (echo);
        chassis = new chassis_t (settings);
        chassis->observe (&accesses);
        door_attach (chassis);
        door_set_fast (true);
        scan_port_init ();
        accesses.count = 0;
    }
    void TearDown (benchmark::State &state) override
    {
        state.counters["accesses"] =
            benchmark::Counter (accesses.count, benchmark::Counter::kAvgIterations);
        door_attach (nullptr);
        delete chassis;
    }
};

BENCHMARK_DEFINE_F (scan_bench, transfer) (benchmark::State &state)
{
    uint8_t tx[Q5_SCAN_MAX_TX] = {};
    uint8_t rx[Q5_SCAN_MAX_RX];
    for (auto _ : state) {
        benchmark::DoNotOptimize (
            scan_port_transfer (3, echo, state.range (0), tx, sizeof (rx), rx));
    }
}
BENCHMARK_REGISTER_F (scan_bench, transfer)->Arg (0)->Arg (256)->Arg (Q5_SCAN_MAX_TX);

// A batch of 100 requests to `slot`, written, served and read back.
static void serve (benchmark::State &state, int32_t slot)
{
    static q5_scan_server_t server;
    struct {
        be32_t id, count;
        scan_request_t requests[MAX_REQUESTS];
    } batch;
    batch.id = 2;
    batch.count = MAX_REQUESTS;
    for (scan_request_t &request : batch.requests) {
        request = {slot, echo, 0, 0};
    }
    uint8_t replies[4 * MAX_REQUESTS];
    for (auto _ : state) {
        int fds[2];
        if (socketpair (AF_UNIX, SOCK_STREAM, 0, fds) != 0 ||
            write (fds[0], &batch, sizeof (batch)) < 0) {
            state.SkipWithError ("no sockets");
        }
        try {
            server.handle (fds[1]);
        } catch (exception_t &) {
        }
        benchmark::DoNotOptimize (recv (fds[0], replies, sizeof (replies), MSG_DONTWAIT));
        close (fds[0]);
        close (fds[1]);
    }
    state.SetItemsProcessed (state.iterations () * MAX_REQUESTS);
}

BENCHMARK_DEFINE_F (scan_bench, batch_of_100) (benchmark::State &state)
{
    serve (state, 3);
}
BENCHMARK_REGISTER_F (scan_bench, batch_of_100);

BENCHMARK_DEFINE_F (scan_bench, refused_batch_of_100) (benchmark::State &state)
{
    serve (state, 32);
}
BENCHMARK_REGISTER_F (scan_bench, refused_batch_of_100);

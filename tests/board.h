// The device layer in this process, on an emulated chassis, with a log of all that it does there.
#pragma once

#include "chassis/board/chassis.h"
#include "chassis/launch/door.h"
#include "scanp/scan_port.h"
#include "scanp/scanp.h"
#include "tests/support.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>

// Lines of the log: "r32 10D50 00000080" and "w16 11A50 FFFF" for the accesses, "command 08C10000".
class board_log_t final : public chassis_observer_t {
  public:
    std::vector<std::string> lines;
    std::vector<uint32_t> commands;
    std::vector<std::string> remarks; // "stopped: " before the last one
    bool stopped = false;
    std::function<void (uint32_t)> on_command;
    std::function<void (const access_t &)> on_access;

    void access (const access_t &a) override
    {
        char line[40];
        snprintf (line, sizeof (line), "%c%d %05X %0*X", a.is_write ? 'w' : 'r', a.width * 8,
                  a.offset, a.width * 2, a.value);
        lines.push_back (line);
        if (on_access) {
            on_access (a);
        }
    }
    void remark (uint64_t, const std::string &line, bool refused) override
    {
        stopped = stopped || refused;
        remarks.push_back ((refused ? "stopped: " : "note: ") + line);
    }
    void command (uint32_t word) override
    {
        char line[40];
        snprintf (line, sizeof (line), "command %08X", word);
        lines.push_back (line);
        commands.push_back (word);
        if (on_command) {
            on_command (word);
        }
    }
};

// What `act` prints on standard error where no file may be longer than `most` bytes.
inline std::string errors_of_full_disk (rlim_t most, const std::function<void ()> &act)
{
    const rlimit before = {RLIM_INFINITY, RLIM_INFINITY}, full = {most, RLIM_INFINITY};
    signal (SIGXFSZ, SIG_IGN);
    testing::internal::CaptureStderr ();
    setrlimit (RLIMIT_FSIZE, &full);
    act ();
    setrlimit (RLIMIT_FSIZE, &before);
    return testing::internal::GetCapturedStderr ();
}

// A test on one chassis, made of `settings` by `power_up`.
class board_test : public testing::Test {
  protected:
    chassis_settings_t settings;
    std::unique_ptr<board_log_t> log;
    std::unique_ptr<chassis_t> chassis;

    bool may_stop = false;

    void power_up ()
    {
        for (int i = 0; i < 4 && scan_port_state.scanp_fd > 0; i++) {
            close (scan_port_state.scanp_fd + i); // what the last set-up left open
        }
        expect_running ();
        log = std::make_unique<board_log_t> ();
        chassis = std::make_unique<chassis_t> (settings);
        chassis->observe (log.get ());
        door_attach (chassis.get ());
        door_set_fast (true);
        memset (&scan_port_state, 0, sizeof (scan_port_state));
    }
    void expect_running ()
    {
        EXPECT_TRUE (may_stop || !log || !log->stopped) << log->remarks.back ();
    }
    void TearDown () override
    {
        door_attach (nullptr);
        expect_running ();
    }
    uint32_t word (uint32_t offset)
    {
        return chassis->memory ().read32 (offset);
    }
};

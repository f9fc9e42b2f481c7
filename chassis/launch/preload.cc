// The preloaded library's own part: makes the chassis that the environment asks for when the
// program opens its first device.
#include "chassis/bus/trace.h"
#include "chassis/bus/waveform.h"
#include "chassis/file/chassis_file.h"
#include "chassis/file/chassis_watch.h"
#include "chassis/launch/door_handlers.h"
#include "chassis/launch/environment.h"
#include "chassis/launch/listen_address.h"
#include "chassis/launch/register_trace.h"
#include "chassis/trap/own_descriptor.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

// The program cannot continue without its board.
[[noreturn]] static void fail (const std::string &why)
{
    complain (why);
    _exit (2);
}

static std::string setting (const char *name)
{
    const char *value = getenv (name);
    return value == nullptr ? "" : value;
}

namespace {
// Prints the board's remarks about the program; when the board stops, so does the program.
struct console_t final : chassis_observer_t {
    void remark (uint64_t, const std::string &line, bool refused) override
    {
        if (refused) {
            fail ("stopped: " + line);
        }
        complain ("note: " + line);
    }
};
} // namespace

// The launcher emptied it: all that it starts in turn, as a script does, share it.
static FILE *append_to (const std::string &path)
{
    int fd = moved_out_of_the_way (
        open (path.c_str (), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    return fd < 0 ? nullptr : fdopen (fd, "a");
}

static FILE *trace_file (const std::string &path)
{
    FILE *file = path == "-" ? stderr : append_to (path);
    if (file == nullptr) {
        fail (path + ": " + strerror (errno));
    }
    return file;
}

// What is made here lives as long as the program.
static void add_trace (chassis_t &chassis, const std::string &path)
{
    if (!path.empty ()) {
        chassis.observe (new trace_t (trace_file (path), chassis.brgclk ()));
    }
}

static void add_register_trace (chassis_t &chassis, const std::string &path)
{
    if (!path.empty ()) {
        auto now = [&chassis] { return chassis.now (); };
        chassis.observe (new register_trace_t (trace_file (path), chassis.brgclk (), now));
    }
}

namespace {
// The threads of the program access the board one at a time.
struct locked_registers_t final : register_file_t {
    register_file_t &board;
    explicit locked_registers_t (register_file_t &board) : board (board) {}
    uint32_t read (uint32_t offset, int width) override
    {
        std::lock_guard<std::recursive_mutex> hold (board_lock ());
        return board.read (offset, width);
    }
    void write (uint32_t offset, int width, uint32_t value) override
    {
        std::lock_guard<std::recursive_mutex> hold (board_lock ());
        board.write (offset, width, value);
    }
};
} // namespace

// If several programs run in turn, the last one's dump remains.
static void add_waveform (chassis_t &chassis, const std::string &path)
{
    if (path.empty ()) {
        return;
    }
    int fd = moved_out_of_the_way (open (path.c_str (), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
    if (fd < 0) {
        fail (path + ": " + strerror (errno));
    }
    if (flock (fd, LOCK_EX | LOCK_NB) != 0) {
        fail (path + ": another program is writing its waveform there");
    }
    (void)!ftruncate (fd, 0); // fails on a pipe
    chassis.observe (new waveform_t (fd, chassis.brgclk ()));
}

static chassis_t *play_file (const std::string &path)
{
    auto *watch = new chassis_watch_t (path); // before the file is read: no edit gets lost between
    auto *chassis = new chassis_t (load_chassis_file (path));
    chassis->before_select = [chassis, watch] {
        if (std::optional<chassis_settings_t> settings = watch->changed ()) {
            chassis->set_cards (settings->cards);
        }
    };
    return chassis;
}

static chassis_t *make_chassis ()
{
    try {
        std::string file = setting (FILE_VARIABLE);
        chassis_t *chassis = file.empty () ? new chassis_t (builtin_chassis ()) : play_file (file);
        add_trace (*chassis, setting (TRACE_VARIABLE));
        add_register_trace (*chassis, setting (REGISTERS_VARIABLE));
        add_waveform (*chassis, setting (VCD_VARIABLE));
        chassis->front = new locked_registers_t (*chassis);
        chassis->observe (new console_t); // last: it ends the program
        door_set_fast (!setting (FAST_VARIABLE).empty ());
        return chassis;
    } catch (const std::exception &error) {
        fail (error.what ());
    }
}

static void set_listen_address ()
{
    std::string asked = setting (LISTEN_VARIABLE);
    auto address = parse_listen_address (asked.empty () ? DEFAULT_LISTEN_ADDRESS : asked);
    if (!address) {
        fail (std::string (LISTEN_VARIABLE) + ": expected ADDRESS:PORT, found " + asked);
    }
    door_listen_at (*address);
}

__attribute__ ((constructor)) static void announce ()
{
    set_listen_address ();
    door_on_first_open (make_chassis);
}

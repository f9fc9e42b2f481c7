// The preloaded library's own part: makes the chassis that the environment asks for when the
// program opens its first device.
#include "chassis/bus/register_trace.h"
#include "chassis/bus/trace.h"
#include "chassis/bus/waveform.h"
#include "chassis/file/chassis_file.h"
#include "chassis/file/chassis_watch.h"
#include "chassis/launch/device_file.h"
#include "chassis/launch/door.h"
#include "chassis/launch/environment.h"
#include "chassis/launch/listen_address.h"
#include "chassis/trap/own_descriptor.h"

#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

// The program cannot go on without its board.
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
// What the board has to say about the program; the program does not outlive its board.
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

// Of programs that run in turn, the last one's dump is what stays.
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
        fail (path + ": the waveform of another program that runs goes there");
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
        chassis->observe (new console_t); // last: it ends the program
        door_set_fast (!setting (FAST_VARIABLE).empty ());
        return chassis;
    } catch (const std::exception &error) {
        fail (error.what ());
    }
}

// What the program's parent has left open does not go through the door.
static void refuse_real_memory ()
{
    for (const auto &entry : std::filesystem::directory_iterator ("/proc/self/fd")) {
        std::string number = entry.path ().filename ();
        if (is_real_memory (atoi (number.c_str ()))) {
            fail ("descriptor " + number + " leads to the memory of this machine; close it");
        }
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
    refuse_real_memory ();
    door_on_first_open (make_chassis);
}

// The daemon that ships, as a process of its own on the emulated chassis, driven over TCP.
#pragma once

#include "tests/shell.h"
#include "tests/support.h"

#include <optional>
#include <stdint.h>
#include <string>
#include <sys/types.h>
#include <vector>

// What to start.
struct daemon_options_t {
    std::string chassis = "";  // text of a chassis file; empty: the built-in chassis
    bool fast = true;          // sleeps are skipped
    bool close_output = false; // nobody reads the pipe of standard output
    bool wait = true;          // for the daemon to listen
};

// One daemon, ended with the object. One at a time: the port is fixed.
class daemon_t {
  public:
    shell_t shell;
    pid_t pid;

    explicit daemon_t (const daemon_options_t &options = {});
    ~daemon_t ();
    daemon_t (const daemon_t &) = delete;

    // The next line of standard output, without its end; nothing when none comes within the limit.
    std::optional<std::string> line (int milliseconds = 10000);
    // Standard error so far.
    std::string errors () const;
    // Replaces the chassis file, whole.
    void plug (const std::string &chassis) const;
    // Open descriptors of the daemon.
    int num_descriptors () const;
    // Ends it by the signal, or waits for its own end with 0. Returns what waitpid reports.
    int end (int signal);

  private:
    size_t num_read = 0; // bytes of standard output
};

// Waits until something listens on the daemon's port; false when the process ends before.
bool wait_until_listening (pid_t process);

// One connection to the daemon.
class connection_t {
  public:
    int fd;

    connection_t ();
    ~connection_t ();
    connection_t (const connection_t &) = delete;

    void send (const bytes_t &bytes);
    // Exactly `size` bytes, or what came before the stream ended or ten seconds had passed.
    bytes_t receive (size_t size);
    // Everything up to the end of the stream, a megabyte at most.
    bytes_t rest ();
    void close ();
};

// Sends a batch, closes the sending side and returns all that comes back.
bytes_t play (const bytes_t &batch);

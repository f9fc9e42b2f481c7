#include "tests/system/daemon.h"

#include <arpa/inet.h>
#include <filesystem>
#include <netinet/in.h>
#include <signal.h>
#include <stdexcept>
#include <sys/wait.h>

constexpr int port = 1971;
constexpr int limit = 30000; // milliseconds

static bool is_listening ()
{
    return has (text_of ("/proc/net/tcp"), " 00000000:07B3 00000000:0000 0A");
}

bool wait_until_listening (pid_t process)
{
    siginfo_t ended = {};
    for (int waited = 0; waited < limit && ended.si_pid == 0; waited += 5) {
        if (is_listening ()) {
            return true;
        }
        usleep (5000);
        waitid (P_PID, process, &ended, WEXITED | WNOHANG | WNOWAIT);
    }
    return false;
}

static std::string command (const daemon_options_t &options)
{
    return std::string (options.close_output ? "mkfifo out; : <out & exec >out; wait; " : "") +
           "exec q5_chassis" + (options.fast ? " --fast" : "") +
           (options.chassis.empty () ? "" : " --file chassis.toml") + " -- q5_scand";
}

daemon_t::daemon_t (const daemon_options_t &options)
{
    if (options.wait && is_listening ()) {
        throw std::runtime_error ("port 1971 is taken: end the program that listens there");
    }
    plug (options.chassis);
    pid = shell.start (command (options), "daemon");
    if (options.wait && !wait_until_listening (pid)) {
        end (SIGKILL);
        throw std::runtime_error ("the daemon does not listen: " + errors ());
    }
}

daemon_t::~daemon_t ()
{
    if (pid > 0) {
        end (SIGKILL);
    }
}

std::optional<std::string> daemon_t::line (int milliseconds)
{
    for (int waited = 0;; waited += 5) {
        std::string text = text_of (shell.folder + "/daemon.output").substr (num_read);
        size_t end = text.find ('\n');
        if (end != std::string::npos) {
            num_read += end + 1;
            return text.substr (0, end);
        }
        if (waited >= milliseconds) {
            return std::nullopt;
        }
        usleep (5000);
    }
}

std::string daemon_t::errors () const
{
    return text_of (shell.folder + "/daemon.errors");
}

void daemon_t::plug (const std::string &chassis) const
{
    shell.write ("chassis.new", chassis);
    std::filesystem::rename (shell.folder + "/work/chassis.new",
                             shell.folder + "/work/chassis.toml");
}

int daemon_t::num_descriptors () const
{
    namespace fs = std::filesystem;
    fs::directory_iterator fds ("/proc/" + std::to_string (pid) + "/fd");
    return std::distance (fds, fs::directory_iterator ());
}

int daemon_t::end (int signal)
{
    if (signal != 0) {
        kill (pid, signal);
    }
    int status = wait_for (pid, limit);
    pid = -1;
    return status;
}

connection_t::connection_t () : fd (socket (AF_INET, SOCK_STREAM, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (port);
    address.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
    if (connect (fd, reinterpret_cast<sockaddr *> (&address), sizeof (address)) != 0) {
        throw std::runtime_error ("no connection to the daemon");
    }
    timeval patience = {limit / 1000, 0};
    setsockopt (fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof (patience));
}

connection_t::~connection_t ()
{
    close ();
}

void connection_t::close ()
{
    if (fd >= 0) {
        ::close (fd);
    }
    fd = -1;
}

void connection_t::send (const bytes_t &bytes)
{
    ::send (fd, bytes.data (), bytes.size (), MSG_NOSIGNAL);
}

bytes_t connection_t::receive (size_t size)
{
    bytes_t bytes (size);
    ssize_t received = recv (fd, bytes.data (), size, MSG_WAITALL);
    bytes.resize (std::max<ssize_t> (received, 0));
    return bytes;
}

bytes_t connection_t::rest ()
{
    return receive (1 << 20);
}

bytes_t play (const bytes_t &batch)
{
    connection_t connection;
    connection.send (batch);
    shutdown (connection.fd, SHUT_WR);
    return connection.rest ();
}

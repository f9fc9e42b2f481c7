#include "tests/system/daemon.h"

#include <arpa/inet.h>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>
#include <sys/wait.h>

constexpr int port = 1971;
constexpr int limit = 10000; // milliseconds

static std::string setting (const char *name, const char *otherwise)
{
    const char *value = getenv (name);
    return value ? value : otherwise;
}

static std::string text_of (const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream (path).rdbuf ();
    return text.str ();
}

bool daemon_is_listening ()
{
    std::ifstream sockets ("/proc/net/tcp");
    for (std::string line; std::getline (sockets, line);) {
        if (line.find (" 00000000:07B3 00000000:0000 0A") != std::string::npos) {
            return true;
        }
    }
    return false;
}

daemon_t::daemon_t (const daemon_options_t &options)
{
    if (options.wait && daemon_is_listening ()) {
        throw std::runtime_error ("port 1971 is taken: end the program that listens there");
    }
    char name[] = "/tmp/q5_scand.XXXXXX";
    folder = mkdtemp (name);
    if (!options.chassis.empty ()) {
        plug (options.chassis);
    }
    start (options);
    if (options.wait && !wait_until_listening ()) {
        std::string reason = errors ();
        clean_up ();
        throw std::runtime_error ("the daemon does not listen: " + reason);
    }
}

daemon_t::~daemon_t ()
{
    clean_up ();
}

void daemon_t::clean_up ()
{
    if (pid > 0) {
        end (SIGKILL);
    }
    if (output >= 0) {
        close (output);
    }
    std::filesystem::remove_all (folder);
}

static std::string quoted (const std::string &path)
{
    return "'" + path + "'";
}

// Where an emulator runs the program, what the launcher would do is told to the emulator.
std::string daemon_t::command (const daemon_options_t &options) const
{
    std::string emulator = setting ("Q5_TEST_EMULATOR", Q5_EMULATOR);
    bool native = emulator.empty ();
    auto option = [&] (bool wanted, const std::string &word, const std::string &variable) {
        return wanted ? (native ? " " + word : " -E " + variable) : "";
    };
    return "exec " +
           (native ? quoted (setting ("Q5_TEST_LAUNCHER", Q5_LAUNCHER))
                   : emulator + " -E LD_PRELOAD=" + setting ("Q5_TEST_PRELOAD", Q5_PRELOAD)) +
           option (options.fast, "--fast", "Q5_CHASSIS_FAST=1") +
           option (!options.chassis.empty (), "--file " + folder + "/chassis.toml",
                   "Q5_CHASSIS_FILE=" + folder + "/chassis.toml") +
           (native ? " -- " : " ") + quoted (setting ("Q5_TEST_DAEMON", Q5_DAEMON)) + " 2>" +
           folder + "/errors";
}

void daemon_t::start (const daemon_options_t &options)
{
    int pipe_ends[2];
    if (pipe2 (pipe_ends, O_CLOEXEC) != 0) {
        throw std::runtime_error ("no pipe");
    }
    pid = fork ();
    if (pid == 0) {
        // The one server object is never destroyed; a leak checker is not to count it.
        setenv ("ASAN_OPTIONS", "detect_leaks=0", 0);
        dup2 (pipe_ends[1], 1);
        execl ("/bin/sh", "sh", "-c", command (options).c_str (), nullptr);
        _exit (127);
    }
    close (pipe_ends[1]);
    output = pipe_ends[0];
    if (options.close_output) {
        close (output);
        output = -1;
    }
}

bool daemon_t::wait_until_listening ()
{
    for (int waited = 0; waited < limit; waited += 5) {
        if (daemon_is_listening ()) {
            return true;
        }
        if (waitpid (pid, nullptr, WNOHANG) == pid) {
            pid = -1;
            return false;
        }
        usleep (5000);
    }
    return false;
}

std::optional<std::string> daemon_t::line (int milliseconds)
{
    while (unread.find ('\n') == std::string::npos) {
        pollfd ready = {output, POLLIN, 0};
        char buffer[512];
        ssize_t size =
            poll (&ready, 1, milliseconds) == 1 ? read (output, buffer, sizeof (buffer)) : 0;
        if (size <= 0) {
            return std::nullopt;
        }
        unread.append (buffer, size);
    }
    size_t end = unread.find ('\n');
    std::string first = unread.substr (0, end);
    unread.erase (0, end + 1);
    return first;
}

std::string daemon_t::errors () const
{
    return text_of (folder + "/errors");
}

void daemon_t::plug (const std::string &chassis) const
{
    std::ofstream (folder + "/chassis.new") << chassis;
    std::filesystem::rename (folder + "/chassis.new", folder + "/chassis.toml");
}

int daemon_t::num_descriptors () const
{
    namespace fs = std::filesystem;
    fs::directory_iterator fds ("/proc/" + std::to_string (pid) + "/fd");
    return std::distance (fds, fs::directory_iterator ());
}

int daemon_t::end (int signal)
{
    int status = -1;
    if (signal != 0) {
        kill (pid, signal);
    }
    for (int waited = 0; waited < limit && waitpid (pid, &status, WNOHANG) == 0; waited += 5) {
        usleep (5000);
    }
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

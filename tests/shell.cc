#include "tests/shell.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <signal.h>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

std::string text_of (const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream (path).rdbuf ();
    return text.str ();
}

static bool has_ended (pid_t child)
{
    siginfo_t ended = {};
    waitid (P_PID, child, &ended, WEXITED | WNOHANG | WNOWAIT);
    return ended.si_pid != 0;
}

// Waits for its end, and ends it with all that it started in turn once the time is up.
static int wait_for (pid_t child, int milliseconds)
{
    for (int waited = 0; waited < milliseconds && !has_ended (child); waited += 2) {
        usleep (2000);
    }
    kill (-child, SIGKILL);
    int status = -1;
    waitpid (child, &status, 0);
    return status;
}

shell_t::shell_t () : folder (fs::temp_directory_path () / "q5_test.XXXXXX")
{
    if (!mkdtemp (folder.data ())) {
        throw std::runtime_error ("no folder " + folder);
    }
    fs::create_directory (folder + "/work");
}

shell_t::~shell_t ()
{
    fs::remove_all (folder);
}

// Between fork and exec only calls that another thread's locks cannot hold up.
[[noreturn]] static void become (const char *folder, const char *const files[], const char *text)
{
    setpgid (0, 0);
    prctl (PR_SET_PDEATHSIG, SIGKILL);
    for (int fd = 0; fd < 3; fd++) {
        close (fd);
        open (files[fd], fd == 0 ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC, 0666);
    }
    signal (SIGPIPE, SIG_DFL);
    if (chdir (folder) == 0) {
        execl ("/bin/sh", "sh", "-c", text, nullptr);
    }
    _exit (127);
}

pid_t shell_t::start (const std::string &line, const std::string &name) const
{
    const char *others = getenv ("Q5_TEST_PATH");
    // The daemon's one server object is never destroyed: a leak checker is not to count it.
    const std::string text = std::string ("unset COLUMNS; export PATH='") +
                             (others ? others + std::string (":") : "") +
                             Q5_PATH ":/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin'"
                                     " LC_ALL=C ASAN_OPTIONS=detect_leaks=0 SOURCES='" Q5_SOURCES
                                     "' BUILD='" Q5_BUILD "'\n" +
                             line;
    const std::string work = folder + "/work", output = folder + "/" + name + ".output",
                      errors = folder + "/" + name + ".errors";
    const char *files[] = {"/dev/null", output.c_str (), errors.c_str ()};
    pid_t child = fork ();
    if (child == 0) {
        become (work.c_str (), files, text.c_str ());
    }
    if (child < 0) {
        throw std::runtime_error ("no process for " + line);
    }
    setpgid (child, child);
    return child;
}

outcome_t shell_t::run (const std::string &line) const
{
    int status = wait_for (start (line, "run"), 120000);
    return {WIFEXITED (status) ? WEXITSTATUS (status) : 128 + WTERMSIG (status),
            text_of (folder + "/run.output"), text_of (folder + "/run.errors")};
}

void shell_t::write (const std::string &name, const std::string &text) const
{
    std::ofstream (folder + "/work/" + name) << text;
}

std::string shell_t::read (const std::string &name) const
{
    return text_of (folder + "/work/" + name);
}

bool background_t::start (const std::string &line)
{
    end ();
    pid = shell.start ("exec >log 2>&1; exec " + line, "background");
    shell.write ("pid", std::to_string (pid));
    const char *listener = ":07B3 00000000:0000 0A";
    bool listens = false;
    for (int waited = 0; !listens && waited < 60000 && !has_ended (pid); waited += 5) {
        usleep (5000);
        listens = has (text_of ("/proc/net/tcp"), listener);
    }
    return listens;
}

void background_t::end ()
{
    if (pid > 0) {
        kill (pid, SIGKILL);
        wait_for (pid, 30000);
    }
    pid = -1;
}

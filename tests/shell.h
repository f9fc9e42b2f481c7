// Command lines that a test runs: in a folder of their own, bounded in time, with the programs of
// this build in the path.
#pragma once

#include <string>
#include <sys/types.h>

struct outcome_t {
    int status; // as a shell has it: 128 and more for a signal
    std::string output;
    std::string errors;
};

inline bool has (const std::string &text, const std::string &part)
{
    return text.find (part) != std::string::npos;
}

std::string text_of (const std::string &path);

class shell_t {
  public:
    std::string folder; // removed at the end

    shell_t ();
    ~shell_t ();
    shell_t (const shell_t &) = delete;

    // Runs the line in folder/work, without input, for two minutes at most.
    outcome_t run (const std::string &line) const;

    // Files of folder/work.
    void write (const std::string &name, const std::string &text) const;
    std::string read (const std::string &name) const;

  private:
    friend class background_t;
    // As a process group, which dies with this thread at the latest. What it prints goes to the
    // files `name`.output and `name`.errors of the folder.
    pid_t start (const std::string &line, const std::string &name) const;
};

// A daemon in the background of a shell's command lines, ended with the object.
class background_t {
  public:
    explicit background_t (const shell_t &shell) : shell (shell) {}
    ~background_t ()
    {
        end ();
    }
    // Ends the one before, and waits until this one listens on the daemon's port; false when it
    // ends before, or does not in a minute. In folder/work its output goes to the file `log`, its
    // process id to `pid`.
    bool start (const std::string &line);

  private:
    const shell_t &shell;
    pid_t pid = -1;

    void end ();
};

// Whole command lines, run in a folder of their own where q5_scan is in the path.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdlib.h>
#include <string>
#include <sys/wait.h>

struct outcome_t {
    int status;
    std::string output;
    std::string errors;
};

inline bool has (const std::string &text, const std::string &part)
{
    return text.find (part) != std::string::npos;
}

class shell_t {
  public:
    std::string folder;

    shell_t ()
    {
        char name[] = "/tmp/q5_scan.XXXXXX";
        folder = mkdtemp (name);
        std::filesystem::create_directory (folder + "/work");
        std::ofstream (folder + "/q5_scan") << "#!/bin/sh\nexec " Q5_SCAN_COMMAND " \"$@\"\n";
        std::filesystem::permissions (folder + "/q5_scan", std::filesystem::perms::owner_all);
    }
    ~shell_t ()
    {
        std::filesystem::remove_all (folder);
    }
    shell_t (const shell_t &) = delete;

    outcome_t run (const std::string &line) const
    {
        write ("../line", line + "\n");
        std::string command = "cd " + folder + "/work && PATH=" + folder +
                              ":$PATH sh ../line >../output 2>../errors </dev/null";
        int status = std::system (command.c_str ());
        return {WEXITSTATUS (status), read ("../output"), read ("../errors")};
    }
    void write (const std::string &name, const std::string &text) const
    {
        std::ofstream (folder + "/work/" + name) << text;
    }
    std::string read (const std::string &name) const
    {
        std::ostringstream text;
        text << std::ifstream (folder + "/work/" + name).rdbuf ();
        return text.str ();
    }
};

#include "chassis/launch/preload_check.h"

#include <elf.h>
#include <fstream>
#include <link.h>
#include <sstream>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static bool is_program (const std::string &path)
{
    struct stat status;
    return stat (path.c_str (), &status) == 0 && S_ISREG (status.st_mode) &&
           access (path.c_str (), X_OK) == 0;
}

std::string find_program (const std::string &name)
{
    if (name.find ('/') != std::string::npos) {
        return is_program (name) ? name : "";
    }
    const char *path = getenv ("PATH");
    std::istringstream directories (path ? path : "/bin:/usr/bin");
    for (std::string directory; std::getline (directories, directory, ':');) {
        std::string candidate = (directory.empty () ? "." : directory) + "/" + name;
        if (is_program (candidate)) {
            return candidate;
        }
    }
    return "";
}

static bool read_header (std::istream &file, ElfW (Ehdr) & header)
{
    header = {};
    file.read (reinterpret_cast<char *> (&header), sizeof (header));
    return memcmp (header.e_ident, ELFMAG, SELFMAG) == 0;
}

static bool has_interpreter (std::istream &file, const ElfW (Ehdr) & header)
{
    for (int i = 0; i < header.e_phnum; i++) {
        ElfW (Phdr) segment = {};
        file.seekg (header.e_phoff + i * sizeof (segment));
        file.read (reinterpret_cast<char *> (&segment), sizeof (segment));
        if (file && segment.p_type == PT_INTERP) {
            return true;
        }
    }
    return false;
}

static bool same_machine (const ElfW (Ehdr) & a, const ElfW (Ehdr) & b)
{
    return a.e_ident[EI_CLASS] == b.e_ident[EI_CLASS] && a.e_ident[EI_DATA] == b.e_ident[EI_DATA] &&
           a.e_machine == b.e_machine;
}

static bool changes_user (const struct stat &status)
{
    return ((status.st_mode & S_ISUID) && status.st_uid != getuid ()) ||
           ((status.st_mode & S_ISGID) && status.st_gid != getgid ());
}

std::string preload_obstacle (const std::string &program, const std::string &library)
{
    struct stat status;
    if (stat (program.c_str (), &status) == 0 && changes_user (status)) {
        return "it is set-uid or set-gid, which the loader never preloads; run a plain copy of it";
    }
    std::ifstream program_file (program, std::ios::binary);
    std::ifstream library_file (library, std::ios::binary);
    ElfW (Ehdr) header;
    ElfW (Ehdr) library_header;
    if (!read_header (program_file, header)) {
        return "";
    }
    if (!read_header (library_file, library_header) || !same_machine (header, library_header)) {
        return "it is for another machine than " + library + "; build both for the same one";
    }
    if (!has_interpreter (program_file, header)) {
        return "it is linked statically and cannot be preloaded; link it dynamically";
    }
    return "";
}

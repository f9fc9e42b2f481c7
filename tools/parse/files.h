// Input files: whole, or through a window that moves over them.
#pragma once

#include <memory>
#include <stddef.h>
#include <string>
#include <string_view>

// A file, a pipe or a device, read once from front to end; "-" is standard input. Every operation
// throws failure_t, with status_usage, when it cannot be read, is a directory, is empty, or has
// more than `most` bytes; of a file these are known at once, of a pipe at its end.
class file_window_t {
  public:
    file_window_t (const std::string &path, size_t most);

    // The bytes that come next, at least `wanted` of them unless the end comes before; valid until
    // the next call. Empty at the end.
    std::string_view view (size_t wanted);
    void pass (size_t size); // of the bytes in view; the rest comes next

    size_t bytes_left (); // from here to the end; a pipe is read and kept for that
    void pass_all ();     // reads on to the end, which tells what is wrong with it

  private:
    struct descriptor_t {
        const int fd;
        explicit descriptor_t (const std::string &path);
        ~descriptor_t ();
        descriptor_t (const descriptor_t &) = delete;
    };

    const std::string path;
    const size_t most;
    const descriptor_t file;
    bool has_size = false, has_ended = false;
    size_t left = 0;               // of a file that has a size, not read yet
    size_t size = 0;               // read so far
    std::unique_ptr<char[]> bytes; // in view: from front to back
    size_t room = 0, front = 0, back = 0;

    void make_room ();
    void read_on ();
    void end ();
};

// All of it at once.
std::string read_file (const std::string &path, size_t most);

// What messages call it.
std::string shown_name (const std::string &path);

// What several tests share: messages of exceptions, null objects, connected sockets, descriptors.
#pragma once

#include "net/assertion.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <stdint.h>
#include <stdio.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using bytes_t = std::vector<uint8_t>;

// The message of the exception_t that `call` throws; "" when it throws none.
template <typename call_t> std::string message_of (call_t call)
{
    try {
        call ();
    } catch (exception_t &e) {
        return e.message;
    }
    return "";
}

// The call, on a null object perhaps, fails an assertion; `where` as in "kp_literate.cc:11 (this)".
#define EXPECT_ASSERTION(call, where)                                                              \
    EXPECT_EQ (message_of ([&] () TESTS_ITS_OBJECT { call; }),                                     \
               std::string ("assertion failed. ") + (where))

// A null object that the compiler does not see through.
template <typename object_t> object_t *null_object ()
{
    static object_t *volatile object = nullptr;
    return object;
}

inline int num_descriptors ()
{
    namespace fs = std::filesystem;
    return std::distance (fs::directory_iterator ("/proc/self/fd"), fs::directory_iterator ());
}

// Two connected stream sockets, closed at the end of the test.
struct socket_pair_t {
    int here = -1;
    int there = -1;

    socket_pair_t ()
    {
        int fds[2];
        if (socketpair (AF_UNIX, SOCK_STREAM, 0, fds) == 0) {
            here = fds[0];
            there = fds[1];
        }
    }
    ~socket_pair_t ()
    {
        close (here);
        close (there);
    }
    template <typename text_t> void send (const text_t &bytes)
    {
        (void)!::send (here, bytes.data (), bytes.size (), MSG_NOSIGNAL);
    }
    // What has arrived at this end so far.
    bytes_t received ()
    {
        bytes_t bytes (1 << 16);
        ssize_t size = recv (here, bytes.data (), bytes.size (), MSG_DONTWAIT);
        bytes.resize (std::max<ssize_t> (size, 0));
        return bytes;
    }
};

inline void append_word (bytes_t &bytes, int32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back (static_cast<uint8_t> (value >> shift));
    }
}

// Big-endian words, as they are sent.
inline bytes_t words (std::initializer_list<int64_t> values)
{
    bytes_t bytes;
    for (int64_t value : values) {
        append_word (bytes, static_cast<int32_t> (value));
    }
    return bytes;
}

// Up to what is neither a digit nor a blank.
inline bytes_t bytes_of_hex (const char *digits)
{
    bytes_t bytes;
    int size;
    for (unsigned byte; sscanf (digits, "%2x%n", &byte, &size) == 1; digits += size) {
        bytes.push_back (byte);
    }
    return bytes;
}

// A line of them in hex, a blank before every four.
inline void print_words (const bytes_t &bytes)
{
    for (size_t i = 0; i < bytes.size (); i++) {
        printf ("%s%02x", i % 4 == 0 ? " " : "", bytes[i]);
    }
    puts ("");
}

inline bytes_t operator+ (bytes_t a, const bytes_t &b)
{
    a.insert (a.end (), b.begin (), b.end ());
    return a;
}

inline bytes_t operator* (int times, const bytes_t &bytes)
{
    bytes_t all;
    for (; times > 0; times--) {
        all = all + bytes;
    }
    return all;
}

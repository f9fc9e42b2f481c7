// Installs the client side of this build into an empty folder and uses it as a stranger would.
#include "tests/shell.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

static const std::string compiler = Q5_COMPILER " " Q5_FLAGS;
static const std::string expected =
    "-1\nassertion failed. q5_scan_reader.cc:14 (slot >= 0 && slot < Q5_SCAN_NUM_SLOTS)\n";

class install : public testing::Test {
  public:
    shell_t shell;
    std::string folder = shell.folder, root = folder + "/root";

    void SetUp () override
    {
        run ("unset DESTDIR; " Q5_CMAKE " --install " Q5_BUILD " --component client-dev --prefix " +
             root);
    }

    // Output of a command line that is to succeed.
    std::string run (const std::string &line) const
    {
        outcome_t outcome = shell.run (line);
        EXPECT_EQ (outcome.status, 0) << line << "\n" << outcome.output << outcome.errors;
        return outcome.output;
    }
    // Where the installed file is.
    std::string folder_of (const std::string &file) const
    {
        std::string found = run ("find " + root + " -name " + file + " -printf %h");
        return found.empty () ? throw std::runtime_error (file + " is not installed") : found;
    }
};

TEST_F (install, a_cmake_project_finds_the_package_and_links_either_library)
{
    const std::string build = folder + "/build";
    run (Q5_CMAKE " -S " Q5_PROGRAM " -B " + build + " -DCMAKE_PREFIX_PATH=" + root +
         " -DCMAKE_CXX_COMPILER=" Q5_COMPILER " -DCMAKE_CXX_FLAGS='" Q5_FLAGS "'");
    run (Q5_CMAKE " --build " + build);
    EXPECT_EQ (run (build + "/installed"), expected);
    EXPECT_EQ (run (build + "/net_only"), "net\n");
}

TEST_F (install, pkg_config_gives_what_a_compiler_needs_wherever_the_tree_was_moved)
{
    fs::rename (root, folder + "/moved");
    root = folder + "/moved";
    const std::string path = "export PKG_CONFIG_PATH=" + folder_of ("q5_scan.pc") + "; ";
    run (path + compiler + " -std=c++17 -o " + folder +
         "/program " Q5_PROGRAM "/installed.cc $(pkg-config --cflags --libs q5_scan)");
    EXPECT_EQ (run (folder + "/program"), expected);
    // The example of the README as it stands there; and all of the library in a shared object.
    run (path + "cd " + folder +
         "; sed -n '/^```cpp/,/^```$/{//!p}' " Q5_PROGRAM "/../../README.md >example.cc; " +
         compiler +
         " -std=c++17 -Wall -Wextra -Werror -o example example.cc "
         "$(pkg-config --cflags --libs q5_scan); " +
         compiler + " -shared -o all.so -Wl,--whole-archive $(find " + root +
         " -name '*.a') -Wl,--no-whole-archive");
}

TEST_F (install, each_header_compiles_alone_and_none_of_the_device_layer_is_there)
{
    EXPECT_EQ (
        run ("cd " + folder_of ("q5_scan_client.h") +
             "/..; for h in $(find * -type f | sort); "
             "do " +
             compiler +
             " -std=c++17 -Wall -Wextra -Werror -fsyntax-only -x c++ -I . "
             "-include $h /dev/null && echo $h; done"),
        "base/big_endian.h\nnet/exception.h\nnet/kp_literate.h\nnet/kp_resolve.h\nnet/kp_server.h\n"
        "scan/q5_scan_batch.h\nscan/q5_scan_claim.h\nscan/q5_scan_client.h\n"
        "scan/q5_scan_fetch.h\nscan/q5_scan_message.h\nscan/q5_scan_outcome.h\n"
        "scan/q5_scan_protocol.h\nscan/q5_scan_reader.h\nscan/q5_scan_result.h\n");
    std::string symbols = run ("nm -C " + folder_of ("libq5_scan_client.a") + "/*.a");
    EXPECT_NE (symbols.find ("q5_scan_client_t::execute"), std::string::npos);
    for (const char *device : {"scan_port", "scanp", "q5_scan_server_t"}) {
        EXPECT_EQ (symbols.find (device), std::string::npos) << device;
    }
}

// Expected outputs, kept as files and compared whole.
#pragma once

#include <fstream>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <vector>

// The file, below the tests' directory, has this text; otherwise the test fails and shows how
// they differ. Where the environment has Q5_RENEW the file is written first.
inline void expect_file (const std::string &file, const std::string &text)
{
    const std::string path = Q5_EXPECTED "/" + file;
    if (getenv ("Q5_RENEW") && !testing::Test::HasFailure ()) {
        std::ofstream (path) << text;
    }
    FILE *diff =
        popen (("diff -u --label expected --label now '" + path + "' - >&2").c_str (), "w");
    fwrite (text.data (), 1, text.size (), diff);
    EXPECT_EQ (pclose (diff), 0) << path
                                 << ": if the change is wanted, renew it (see CONTRIBUTING.md)";
}

// Items as short as "w16 01020 A000", several in a row.
inline std::string in_rows (const std::vector<std::string> &items,
                            const std::string &between = "  ")
{
    std::string text, row;
    for (const std::string &item : items) {
        if (row.size () + item.size () > 96) {
            text += row + "\n";
            row.clear ();
        }
        row += (row.empty () ? "" : between) + item;
    }
    return text + row + "\n";
}

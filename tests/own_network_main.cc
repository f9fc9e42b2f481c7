// A test program whose tests have a network of their own.
#include "tests/own_network.h"

#include <gtest/gtest.h>

struct own_network_t : testing::Environment {
    void SetUp () override
    {
        enter_own_network ();
    }
};

int main (int argc, char **argv)
{
    testing::InitGoogleTest (&argc, argv);
    testing::AddGlobalTestEnvironment (new own_network_t);
    return RUN_ALL_TESTS ();
}

// SPDX-License-Identifier: MIT
// Entry of every test program. Tests write to /etc and /var and take interfaces down, so they
// refuse to run anywhere but in a device.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv)
{
    if (getenv("PROD_DEVICE") == nullptr) {
        fprintf(stderr, "Run this through device/launch: it changes the system it runs on.\n");
        return 2;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

// SPDX-License-Identifier: MIT
// The command line of cfm; what its commands do, the platform's tests tell.
#include "tool.hpp"

using test::Words;

namespace
{

TEST(CommandLine, Help)
{
    test::explains_itself(CFM, "usage: cfm COMMAND [ARGUMENT]...", TOOL_SOURCES "/cfm.1",
                          {"show", "get", "set", "unset", "commit", "restore", "Upload", "--help"});
}

TEST(CommandLine, Completion)
{
    const auto completes = [](const Words &words) {
        return test::bash_completes(TOOL_SOURCES "/cfm.bash", CFM, words);
    };
    EXPECT_EQ(completes({""}),
              (Words{"show", "get", "set", "unset", "commit", "restore", "Upload", "--help"}));
    EXPECT_EQ(completes({"u"}), Words{"unset"});
    EXPECT_EQ(completes({"get", "lan.ma"}), Words{"lan.mask"});
    EXPECT_EQ(completes({"get", "lan.mask", ""}), Words{});
}

}  // namespace

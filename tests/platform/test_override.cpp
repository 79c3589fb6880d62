// SPDX-License-Identifier: MIT
// A program that defines a platform function itself has the library, and the port, use that one.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "ipc/shared_memory.h"
#include "platform/cfm.h"
#include "platform/process.h"
#include "prod_common_cfm.h"
#include "prod_common_wan.h"
#include "support/files.hpp"

static std::vector<std::string> files_written;

int do_file_cmd(const char *path, int, const char *format, ...)
{
    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    files_written.push_back(std::string{path} + ": " + text);
    return 0;
}

static std::vector<std::string> keys_removed;

int UnSetValue(const char *key)
{
    keys_removed.emplace_back(key);
    return 1;
}

namespace
{

TEST(Override, TheLibraryCallsTheProgramsOwn)
{
    files_written.clear();
    ASSERT_NE(get_shared_memory("overridden", 16), nullptr);
    ASSERT_EQ(files_written.size(), 1U);
    EXPECT_EQ(files_written[0].rfind("/var/run/id.shm: 0x", 0), 0U) << files_written[0];
    EXPECT_FALSE(test::exists("/var/run/id.shm"));

    files_written.clear();
    wisp_set_webpage_status(3);
    EXPECT_EQ(files_written, std::vector<std::string>{"/var/wisp_webpage_status: status=3\n"});
    EXPECT_FALSE(test::exists("/var/wisp_webpage_status"));
}

TEST(Override, ByOneFunctionOfAHeader)
{
    EXPECT_NE(SetValue("a", "1"), 0);
    EXPECT_EQ(prod_cfm_unset_val("a"), 1);
    EXPECT_EQ(keys_removed, std::vector<std::string>{"a"});
    char value[CFM_VALUE_SIZE] = "";
    EXPECT_NE(GetValue("a", value), 0);  // the program's own removed nothing
}

TEST(Override, TheOthersStayThePorts)
{
    char value[CFM_VALUE_SIZE] = "";
    EXPECT_NE(SetValue("a", "1"), 0);
    EXPECT_NE(GetValue("a", value), 0);
    EXPECT_STREQ(value, "1");
    EXPECT_NE(monitor_check_exist("test_platform_o"), 0);
}

}  // namespace

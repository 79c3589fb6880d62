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
#include "prod_common_debug.h"
#include "support/capture.hpp"
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
    test::printed([] { prod_debug("f", 1, PROD_DBG_ERROR, "over", "lost"); });
    ASSERT_FALSE(files_written.empty());  // the debug table may have been registered before
    EXPECT_EQ(files_written.back().rfind("/var/debug.over.log: ", 0), 0U) << files_written.back();
    EXPECT_FALSE(test::exists("/var/debug.over.log"));
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

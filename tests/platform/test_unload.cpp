// SPDX-License-Identifier: MIT
// A program, such as a script's interpreter, that loads the port at run time and lets go of it
// while its threads still have clean-up of the port's to do. It is not linked with the port.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <latch>
#include <thread>

namespace
{

TEST(Unload, WhileAThreadHasConverters)
{
    void *const port = dlopen(LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(port, nullptr) << dlerror();
    const auto convert = reinterpret_cast<int (*)(const char *, const char *, char *)>(
        dlsym(port, "system_convert_code_format"));
    ASSERT_NE(convert, nullptr);
    std::latch converted{1};
    std::latch unloaded{1};
    std::thread thread{[&] {
        char out[20];
        EXPECT_NE(convert("utf-8", "\xd6\xd0", out), 0);
        EXPECT_STREQ(out, "\xe4\xb8\xad");
        converted.count_down();
        unloaded.wait();
    }};
    converted.wait();
    EXPECT_EQ(dlclose(port), 0);
    unloaded.count_down();
    thread.join();  // its end closes the converters, with the port's code
}

}  // namespace

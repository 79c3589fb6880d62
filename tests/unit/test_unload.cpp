// SPDX-License-Identifier: MIT
// A program, such as a script's interpreter, that loads the library at run time and lets go of it
// while files are still watched. It is not linked with the library.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <semaphore>
#include <string>

#include "prod_common_fnotify.h"

namespace
{

constexpr const char *kFolder = "/tmp/watched";

std::counting_semaphore<> told{0};

void tell(const char *, const char *)
{
    told.release();
}

void make_file(const char *name)
{
    const int fd = open((std::string{kFolder} + "/" + name).c_str(), O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    close(fd);
}

/** Whether a change was told of, waiting for it long enough for any machine. */
bool is_told()
{
    return told.try_acquire_for(std::chrono::seconds{20});
}

TEST(Unload, WhileFilesAreWatched)
{
    ASSERT_EQ(mkdir(kFolder, 0755), 0);
    void *const library = dlopen(LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto listen =
        reinterpret_cast<decltype(&fnotify_listen)>(dlsym(library, "fnotify_listen"));
    ASSERT_NE(listen, nullptr);
    ASSERT_EQ(listen(kFolder, tell), 1);
    make_file("before");
    ASSERT_TRUE(is_told());

    EXPECT_EQ(dlclose(library), 0);
    make_file("after");
    EXPECT_TRUE(is_told());
}

}  // namespace

// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "ipc/thread.h"
#include "prod_common_debug.h"
#include "support/allocator.hpp"
#include "support/capture.hpp"
#include "support/interpose.hpp"

using test::log_line;
using test::printed;
using test::Prints;

namespace
{

int create_error;
int prctl_errno;
int attributes_given;

constexpr auto kNoThread = static_cast<pthread_t>(-1);

}  // namespace

extern "C" {

int prctl(int option, ...) noexcept
{
    if (prctl_errno != 0) {
        errno = prctl_errno;
        return -1;
    }
    va_list args;
    va_start(args, option);
    void *const argument = va_arg(args, void *);
    va_end(args);
    static const auto next = test::next(prctl, "prctl");
    return next(option, argument);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *args) noexcept
{
    static const auto next = test::next(pthread_create, "pthread_create");
    attributes_given += attributes != nullptr;
    return create_error != 0 ? create_error : next(thread, attributes, body, args);
}
}

namespace
{

class Thread : public testing::Test
{
  protected:
    void TearDown() override
    {
        create_error = prctl_errno = 0;
        set_thread_name("test");
    }
};

/** Runs a function in a thread of its own, to its end. */
void in_thread(thread_body_t body, void *args = nullptr)
{
    const pthread_t thread = start_thread(body, args);
    ASSERT_NE(thread, kNoThread);
    EXPECT_EQ(pthread_join(thread, nullptr), 0) << "it is joinable";
}

TEST_F(Thread, RunsTheBodyWithItsArgument)
{
    attributes_given = 0;
    pthread_t self = 0;
    const pthread_t thread =
        start_thread([](void *out) { *static_cast<pthread_t *>(out) = pthread_self(); }, &self);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(self, thread);
    EXPECT_EQ(attributes_given, 0);
}

TEST_F(Thread, IsNamedThreadUntilItRenamesItself)
{
    in_thread([](void *) {
        EXPECT_STREQ(get_thread_name(), "thread");
        EXPECT_EQ(set_thread_name("lan%d.%s", 2, "scan"), 1);
        EXPECT_STREQ(get_thread_name(), "lan2.scan");
        char name[16] = "";
        prctl(PR_GET_NAME, name);
        EXPECT_STREQ(name, "lan2.scan");
    });
}

TEST_F(Thread, TheKernelKeeps15Characters)
{
    EXPECT_EQ(set_thread_name("abcdefghijklmnopqrst"), 1);
    EXPECT_STREQ(get_thread_name(), "abcdefghijklmno");
    EXPECT_EQ(set_thread_name("%s", std::string(500, 'x').c_str()), 1);
    EXPECT_STREQ(get_thread_name(), std::string(15, 'x').c_str());
    EXPECT_EQ(set_thread_name("%s", ""), 1);
    EXPECT_STREQ(get_thread_name(), "");
}

TEST_F(Thread, EachHasANameBufferOfItsOwn)
{
    set_thread_name("mine");
    char *const mine = get_thread_name();
    memset(mine, 'x', 32);
    EXPECT_EQ(get_thread_name(), mine);
    for (int i = 4; i < 32; ++i) {
        EXPECT_EQ(mine[i], '\0') << "cleared first";
    }
    in_thread([](void *other) { EXPECT_NE(get_thread_name(), other); }, mine);
    EXPECT_STREQ(mine, "mine");
}

TEST_F(Thread, WithoutABodyThereIsNone)
{
    EXPECT_EQ(printed([] { EXPECT_EQ(start_thread(nullptr, nullptr), kNoThread); }), "");
}

#ifdef OWN_ALLOCATOR
TEST_F(Thread, MemoryIsShort)
{
    EXPECT_THAT(printed([] {
                    const test::WithoutMemory refused{2 * sizeof(void *)};
                    const pthread_t thread = start_thread([](void *) {}, nullptr);
                    const int err = errno;
                    EXPECT_EQ(thread, kNoThread);
                    EXPECT_EQ(err, ENOMEM);
                }),
                Prints(log_line(PROD_DBG_ERROR, "start_thread", "Out of memory.")));
}
#endif

TEST_F(Thread, ItCannotBeCreated)
{
    create_error = EAGAIN;
    EXPECT_THAT(printed([] {
                    errno = 0;
                    EXPECT_EQ(start_thread([](void *) {}, nullptr), kNoThread);
                    EXPECT_EQ(errno, EAGAIN);
                }),
                Prints(log_line(PROD_DBG_ERROR, "start_thread",
                                "Failed(11) to create thread, Resource temporarily "
                                "unavailable.")));
}

TEST_F(Thread, NamesThatCannotBeSetOrRead)
{
    prctl_errno = EPERM;
    EXPECT_THAT(printed([] { EXPECT_EQ(set_thread_name("wan%d", 1), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "set_thread_name",
                                "Failed(1) to set thread name 'wan1', Operation not permitted.")));
    EXPECT_THAT(printed([] { EXPECT_STREQ(get_thread_name(), ""); }),
                Prints(log_line(PROD_DBG_ERROR, "get_thread_name",
                                "Failed(1) to get thread name, Operation not permitted.")));
}

TEST_F(Thread, NoNameIsRefused)
{
    int (*const set_name)(const char *, ...) = set_thread_name;
    EXPECT_EQ(printed([=] { EXPECT_EQ(set_name(nullptr), 0); }), "");
}

TEST_F(Thread, ManyAtOnceRunOnceEach)
{
    constexpr int kThreads = 200;
    std::atomic<int> ran[kThreads] = {};
    std::vector<pthread_t> threads;
    for (std::atomic<int> &count : ran) {
        threads.push_back(start_thread(
            [](void *own) {
                ++*static_cast<std::atomic<int> *>(own);
                set_thread_name("n%p", own);
                const std::string name = get_thread_name();
                char expected[128];
                snprintf(expected, sizeof(expected), "n%p", own);
                EXPECT_EQ(name, std::string{expected}.substr(0, 15));
            },
            &count));
    }
    for (const pthread_t thread : threads) {
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
    }
    for (const std::atomic<int> &count : ran) {
        EXPECT_EQ(count, 1);
    }
}

}  // namespace

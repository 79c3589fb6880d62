// SPDX-License-Identifier: MIT
#include "prod_common_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "support/allocator.hpp"
#include "support/capture.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"

using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::read_text;
using test::write_text;

namespace
{

bool file_shrinks;  // between the look at its size and the reading

}  // namespace

extern "C" std::size_t fread(void *out, std::size_t size, std::size_t count, FILE *stream)
{
    static const auto real = test::next(fread, "fread");
    if (file_shrinks) {
        real(out, 1, 2, stream);
        return 0;
    }
    return real(out, size, count, stream);
}

namespace
{

constexpr const char *kFile = "/tmp/file";
constexpr const char *kMissing = "/tmp/missing";

struct Content {
    std::string text;
    u32 len = 4711;
};

/** What get_file_content() gives, or nothing. */
std::optional<Content> content(const char *path)
{
    Content result;
    void *data = nullptr;
    if (get_file_content(path, &data, &result.len) == 0) {
        return std::nullopt;
    }
    const std::unique_ptr<void, decltype(&free)> owner{data, free};
    result.text.assign(static_cast<const char *>(data), result.len + std::size_t{1});
    return result;
}

TEST(GetFileSize, OfARegularFile)
{
    write_text(kFile, "12345");
    u32 len = 0;
    EXPECT_EQ(get_file_size(kFile, &len), 1);
    EXPECT_EQ(len, 5U);
    EXPECT_EQ(get_file_size(kFile, nullptr), 1);
}

TEST(GetFileSize, Failures)
{
    u32 len = 4711;
    EXPECT_EQ(printed([&] { EXPECT_EQ(get_file_size(nullptr, &len), 0); }), "");
    EXPECT_THAT(
        printed([&] { EXPECT_EQ(get_file_size(kMissing, &len), 0); }),
        Prints(log_line(PROD_DBG_ERROR, "get_file_size",
                        "Failed(2) to stat file '/tmp/missing', No such file or directory.")));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_file_size("/tmp", &len), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "get_file_size", "'/tmp' is not a file.")));
    EXPECT_EQ(len, 4711U);
}

TEST(GetFileSize, MoreThan32BitsIsRefused)
{
    write_text(kFile, "");
    ASSERT_EQ(truncate(kFile, (1LL << 32) - 2), 0);
    u32 len = 0;
    EXPECT_EQ(get_file_size(kFile, &len), 1);
    EXPECT_EQ(len, 0xFFFFFFFEU);
    ASSERT_EQ(truncate(kFile, (1LL << 32) - 1), 0);
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_file_size(kFile, &len), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "get_file_size",
                                "Failed(27) to stat file '/tmp/file', File too large.")));
    EXPECT_THAT(printed([&] { EXPECT_FALSE(content(kFile)); }),
                Prints(log_line(PROD_DBG_ERROR, "get_file_content", "Out of memory.")));
}

TEST(GetFileContent, IsTerminatedAndWhole)
{
    const std::string text{"a\0b\nc", 5};
    write_text(kFile, text);
    const int before = test::open_descriptors();
    const auto read = content(kFile);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->text, text + '\0');
    EXPECT_EQ(read->len, 5U);
    EXPECT_EQ(test::open_descriptors(), before);

    void *data = nullptr;
    EXPECT_EQ(get_file_content(kFile, &data, nullptr), 1);
    free(data);
}

TEST(GetFileContent, AnEmptyFileIsAnEmptyText)
{
    write_text(kFile, "");
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG,
                           [] {
                               const auto read = content(kFile);
                               ASSERT_TRUE(read);
                               EXPECT_EQ(read->text, std::string(1, '\0'));
                           }),
                Prints(log_line(PROD_DBG_DEBUG, "get_file_content", "fread /tmp/file 0!=1")));
    EXPECT_EQ(content("/proc/self/stat")->text, std::string(1, '\0'));
}

TEST(GetFileContent, Failures)
{
    void *data = &data;
    u32 len = 4711;
    EXPECT_EQ(printed_at(PROD_DBG_TRACE,
                         [&] {
                             EXPECT_EQ(get_file_content(nullptr, &data, &len), 0);
                             EXPECT_EQ(get_file_content(kFile, nullptr, &len), 0);
                         }),
              "");
    EXPECT_THAT(
        printed_at(PROD_DBG_DEBUG, [&] { EXPECT_EQ(get_file_content(kMissing, &data, &len), 0); }),
        Prints(log_line(PROD_DBG_DEBUG, "get_file_content",
                        "Failed(2) to stat file /tmp/missing, No such file or directory.")));
    EXPECT_THAT(
        printed_at(PROD_DBG_DEBUG, [&] { EXPECT_EQ(get_file_content("/tmp", &data, &len), 0); }),
        Prints(log_line(PROD_DBG_DEBUG, "get_file_content", "/tmp is not a file.")));
    EXPECT_EQ(printed([&] { EXPECT_EQ(get_file_content("/tmp", &data, &len), 0); }), "");
    EXPECT_EQ(data, &data);
    EXPECT_EQ(len, 4711U);
}

TEST(GetFileContent, AFileThatCannotBeOpened)
{
    write_text(kFile, "12345");
    get_dbg_info();
    void *data = &data;
    u32 len = 0;
    const std::string text = printed([&] {
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit none{0, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_EQ(get_file_content(kFile, &data, &len), 0);
        setrlimit(RLIMIT_NOFILE, &limit);
    });
    EXPECT_THAT(text, Prints(log_line(PROD_DBG_ERROR, "get_file_content",
                                      "Failed(24) to fopen /tmp/file, Too many open files.")));
    EXPECT_EQ(len, 5U) << "known before the file is opened";
    EXPECT_EQ(data, &data);
}

TEST(GetFileContent, OfAFileThatShrinksTheRestIsZero)
{
    const std::string text(5000, 'x');
    write_text(kFile, text);
    // What the heap gives out next has been written to before.
    void *const used = malloc(text.size() + 1);
    memset(used, '#', text.size() + 1);
    free(used);
    file_shrinks = true;
    std::optional<Content> read;
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, [&] { read = content(kFile); }),
                Prints(log_line(PROD_DBG_DEBUG, "get_file_content", "fread /tmp/file 0!=1")));
    file_shrinks = false;
    ASSERT_TRUE(read);
    EXPECT_EQ(read->len, 5000U);
    EXPECT_EQ(read->text, "xx" + std::string(4999, '\0'));
}

#ifdef OWN_ALLOCATOR
TEST(GetFileContent, WithoutMemory)
{
    write_text(kFile, std::string(70000, 'x'));
    void *data = &data;
    u32 len = 0;
    const int before = test::open_descriptors();
    EXPECT_THAT(printed([&] {
                    const test::WithoutMemory refused{70001};
                    EXPECT_EQ(get_file_content(kFile, &data, &len), 0);
                }),
                Prints(log_line(PROD_DBG_ERROR, "get_file_content", "Out of memory.")));
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(len, 70000U);
    EXPECT_EQ(test::open_descriptors(), before);
}
#endif

TEST(WriteFile, KeepsTheTailOfALongerFile)
{
    write_text(kFile, "xyz");
    EXPECT_EQ(write_file(kFile, "ab", 2), 1);
    EXPECT_EQ(read_text(kFile), "abz");
}

TEST(WriteFile, CreatesTheFile)
{
    test::remove_all(kFile);
    EXPECT_EQ(write_file(kFile, "ab", 2), 1);
    struct stat status;
    ASSERT_EQ(stat(kFile, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644U);
    EXPECT_EQ(read_text(kFile), "ab");
}

TEST(WriteFile, Failures)
{
    EXPECT_EQ(printed([] {
                  EXPECT_EQ(write_file(nullptr, "a", 1), 0);
                  EXPECT_EQ(write_file(kFile, nullptr, 1), 0);
                  EXPECT_EQ(write_file(kFile, "a", 0), 0);
              }),
              "");
    EXPECT_THAT(printed([] { EXPECT_EQ(write_file("/tmp/no/file", "a", 1), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "write_file",
                                "Failed(2) to open /tmp/no/file, No such file or directory.")));
    const test::MountedFolder full{"/tmp/full"};
    full.fill();
    EXPECT_THAT(printed([] { EXPECT_EQ(write_file("/tmp/full/new", "a", 1), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "write_file",
                                "Failed(28) to write /tmp/full/new, No space left on device.")));
}

TEST(WriteFile, AShortWriteCounts)
{
    const test::MountedFolder small{"/tmp/small"};
    const std::string text(1000000, 'a');
    EXPECT_EQ(printed([&] { EXPECT_EQ(write_file("/tmp/small/file", text.data(), 1000000), 1); }),
              "");
    EXPECT_GT(read_text("/tmp/small/file").size(), 0U);
    EXPECT_LT(read_text("/tmp/small/file").size(), text.size());
}

TEST(TouchFile, LeavesAnExistingFileAlone)
{
    write_text(kFile, "abc");
    const timespec long_ago[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, kFile, long_ago, 0), 0);
    struct stat before;
    ASSERT_EQ(stat(kFile, &before), 0);
    touch_file(kFile);
    struct stat after;
    ASSERT_EQ(stat(kFile, &after), 0);
    EXPECT_EQ(read_text(kFile), "abc");
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST(TouchFile, CreatesAnEmptyFile)
{
    test::remove_all(kFile);
    touch_file(kFile);
    struct stat status;
    ASSERT_EQ(stat(kFile, &status), 0);
    EXPECT_EQ(status.st_size, 0);
    EXPECT_EQ(status.st_mode & 0777, 0644U);
}

TEST(TouchFile, Failure)
{
    EXPECT_EQ(printed([] { touch_file(nullptr); }), "");
    EXPECT_THAT(printed([] { touch_file("/tmp/no/file"); }),
                Prints(log_line(PROD_DBG_ERROR, "touch_file",
                                "Failed(2) to open /tmp/no/file, No such file or directory.")));
}

}  // namespace

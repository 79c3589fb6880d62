// SPDX-License-Identifier: MIT
#include "prod_common_flash.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/firmware.h"
#include "platform/process.h"
#include "prod_common_systool.h"
#include "support/capture.hpp"
#include "support/commands.hpp"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/platform_log.hpp"

using test::config;
using test::error_line;
using test::exists;
using test::log_line;
using test::platform_log;
using test::printed;
using test::printed_at;
using test::Prints;
using test::read_text;
using test::RecordedCommands;
using test::write_text;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/** What the platform's checks answer, and what they were asked. */
struct Checks {
    int type = 2;
    int crc = 0;
    int valid = 0;
    int mtd = 0;
    std::vector<std::string> asked;
};
Checks checks;

std::vector<std::string> backups;  // what was asked of the configuration's backup
int failing_mmap;                  // errno
std::vector<std::string> unmapped;
bool watch_closing;
bool thread_fails;
std::string self = "test";
std::vector<pthread_t> threads;
bool default_attributes;

}  // namespace

extern "C" {

int check_fw_type(const char *image, long size)
{
    checks.asked.push_back("type " + std::string(image, static_cast<std::size_t>(size)));
    return checks.type;
}

int check_fw_crc(int type, const char *image, long size)
{
    checks.asked.push_back("crc " + std::to_string(type) + " " +
                           std::string(image, static_cast<std::size_t>(size)));
    return checks.crc;
}

int check_fw_valid(int type, const char *path)
{
    checks.asked.push_back("valid " + std::to_string(type) + " " + path);
    return checks.valid;
}

int check_mtd_size(int type, const char *path)
{
    checks.asked.push_back("mtd " + std::to_string(type) + " " + path);
    return checks.mtd;
}

int prod_systool_cfg_upload(const char *pbuf, long size)
{
    backups.push_back("upload " + std::string(pbuf, static_cast<std::size_t>(size)));
    return 17;
}

int prod_systool_sys_cfg_download(char *filename)
{
    backups.emplace_back("download");
    strcpy(filename, "the name");
    return 18;
}

/** Goes through the recorded commands, so that the order of stops and commands shows. */
int monitor_stop(const char *process_name)
{
    return system((std::string{"stop "} + process_name).c_str());
}

char *get_self_pname(void)
{
    return self.data();
}

// The thread sanitizer maps memory before it is ready for anything else: these two are not watched,
// and keep nothing.
#define AT_ANY_TIME __attribute__((no_sanitize("thread")))

AT_ANY_TIME void *mmap(void *start, size_t size, int protection, int flags, int fd,
                       off_t offset) noexcept
{
    const auto real = test::next(mmap, WIDE("mmap"));
    if (failing_mmap != 0 && fd >= 0) {
        EXPECT_EQ(protection, PROT_READ);
        EXPECT_EQ(flags, MAP_SHARED);
        EXPECT_EQ(offset, 0);
        errno = failing_mmap;
        return MAP_FAILED;
    }
    return real(start, size, protection, flags, fd, offset);
}

AT_ANY_TIME int munmap(void *start, size_t size) noexcept
{
    const auto real = test::next(munmap, "munmap");
    if (watch_closing) {
        unmapped.push_back((start == MAP_FAILED ? "failed " : "") + std::to_string(size));
    }
    return real(start, size);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *argument) noexcept
{
    static const auto real = test::next(pthread_create, "pthread_create");
    if (thread_fails) {
        return EAGAIN;
    }
    const int result = real(thread, attributes, body, argument);
    if (body == prod_systool_write_image) {
        threads.push_back(*thread);
        default_attributes = attributes == nullptr;
    }
    return result;
}
}

namespace
{

class Flash : public testing::Test
{
  protected:
    Flash()
    {
        checks = {};
        platform_log().clear();
        failing_mmap = 0;
        unmapped.clear();
        watch_closing = false;
        thread_fails = false;
        self = "test";
        threads.clear();
        test::remove_all(PROD_FW_KEEP_MARKER);
        write_text(PROD_FW_IMAGE, "image");
    }
    test::FreshConfig config_;
};

/** Waits for the writers that were started. */
void join_writers()
{
    for (const pthread_t thread : threads) {
        void *result = &threads;
        EXPECT_EQ(pthread_join(thread, &result), 0);  // so it was not detached
        EXPECT_EQ(result, nullptr);
    }
    threads.clear();
}

std::string traces(const std::string &function, bool leaves = true)
{
    return log_line(PROD_DBG_TRACE, function, "ENTER >>> " + function) +
           (leaves ? log_line(PROD_DBG_TRACE, function, "LEAVE <<< " + function) : "");
}

// ---- checks -----------------------------------------------------------------------------------

TEST_F(Flash, Values)
{
    EXPECT_EQ(FW_VALID_IMAGE, 0);
    EXPECT_EQ(FW_INVALID_FORMAT, -1);
    EXPECT_EQ(FW_INVALID_CRC, -2);
    EXPECT_EQ(FW_INVALID_SIZE, -3);
    EXPECT_EQ(FW_UPLOAD_ERROR, -4);
    EXPECT_EQ(FW_NO_MEMORY, -5);
    EXPECT_EQ(FILE_OPERATE_DOWNLOAD, 0);
    EXPECT_EQ(FILE_OPERATE_SIMPLE_UPGRADE, 1);
    EXPECT_EQ(FILE_OPERATE_UPLOAD, 2);
    EXPECT_EQ(FILE_OPERATE_BUTT, 3);
    EXPECT_EQ(UPGRADE_HTTPD, 0);
    EXPECT_EQ(UPGRADE_SKYRELCTL, 1);
    EXPECT_EQ(UPGRADE_APPMGR, 2);
    EXPECT_EQ(UPGRADE_IMSD, 3);
    EXPECT_EQ(UPGRADE_BUTT, 4);
}

TEST_F(Flash, TypeAndChecksum)
{
    const struct {
        int type;
        int crc;
        FW_RET_ENUM result;
        bool crc_asked;
    } kCases[] = {
        {2, 0, FW_VALID_IMAGE, true},     {2, 1, FW_VALID_IMAGE, true},
        {2, -1, FW_INVALID_CRC, true},    {4, 0, FW_VALID_IMAGE, true},
        {4, -9, FW_INVALID_CRC, true},    {0, -1, FW_VALID_IMAGE, false},
        {1, -1, FW_VALID_IMAGE, false},   {3, -1, FW_VALID_IMAGE, false},
        {-2, -1, FW_VALID_IMAGE, false},  {5, -1, FW_VALID_IMAGE, false},
        {255, -1, FW_VALID_IMAGE, false},
    };
    for (const auto &kCase : kCases) {
        SCOPED_TRACE(kCase.type);
        checks = {};
        checks.type = kCase.type;
        checks.crc = kCase.crc;
        int type = 77;
        EXPECT_THAT(
            printed_at(
                PROD_DBG_TRACE,
                [&] { EXPECT_EQ(flash_check_fw_type_and_crc("abcdef", &type, 3), kCase.result); }),
            Prints(traces("flash_check_fw_type_and_crc", kCase.result == 0)));
        EXPECT_EQ(type, kCase.type);
        std::vector<std::string> asked{"type abc"};
        if (kCase.crc_asked) {
            asked.push_back("crc " + std::to_string(kCase.type) + " abc");
        }
        EXPECT_EQ(checks.asked, asked);
    }
}

TEST_F(Flash, TypeAndChecksumWithoutAnImage)
{
    int type = 77;
    EXPECT_THAT(
        printed_at(
            PROD_DBG_TRACE,
            [&] { EXPECT_EQ(flash_check_fw_type_and_crc(nullptr, &type, 3), FW_UPLOAD_ERROR); }),
        Prints(traces("flash_check_fw_type_and_crc", false) +
               error_line("flash_check_fw_type_and_crc", "arg is null.")));
    EXPECT_EQ(type, 77);
    EXPECT_THAT(checks.asked, IsEmpty());
}

TEST_F(Flash, TypeThatNobodyAsksFor)
{
    EXPECT_EQ(flash_check_fw_type_and_crc("abc", nullptr, 3), FW_VALID_IMAGE);
    checks.crc = -1;
    EXPECT_EQ(flash_check_fw_type_and_crc("abc", nullptr, 3), FW_INVALID_CRC);
}

TEST_F(Flash, AGoodFileStays)
{
    write_text("/tmp/image", "x");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { EXPECT_EQ(flash_check_fw("/tmp/image", 2), 0); }),
                Prints(traces("flash_check_fw")));
    EXPECT_THAT(checks.asked, ElementsAre("valid 2 /tmp/image", "mtd 2 /tmp/image"));
    EXPECT_TRUE(exists("/tmp/image"));
    checks.valid = 1;
    checks.mtd = 1;
    EXPECT_EQ(flash_check_fw("/tmp/image", 2), 0);
}

TEST_F(Flash, RejectedFiles)
{
    const struct {
        int type;
        int valid;
        int mtd;
        FW_RET_ENUM result;
        const char *message;
        std::vector<std::string> asked;
        bool kept_with_marker;
    } kCases[] = {
        {4, 0, 0, FW_INVALID_FORMAT, "fw type is not support:4.", {}, true},
        {0, 0, 0, FW_INVALID_FORMAT, "fw type is not support:0.", {}, true},
        {-2, 0, 0, FW_INVALID_FORMAT, "fw type is not support:-2.", {}, true},
        {2, -1, 0, FW_INVALID_FORMAT, "check_fw_valid fail", {"valid 2 /tmp/image"}, true},
        {2, -7, -8, FW_INVALID_FORMAT, "check_fw_valid fail", {"valid 2 /tmp/image"}, true},
        {2,
         0,
         -1,
         FW_INVALID_SIZE,
         "check_mtd_size faild.",
         {"valid 2 /tmp/image", "mtd 2 /tmp/image"},
         false},
    };
    for (const bool marker : {false, true}) {
        if (marker) {
            write_text(PROD_FW_KEEP_MARKER, "");
        }
        for (const auto &kCase : kCases) {
            SCOPED_TRACE(kCase.message);
            checks = {};
            checks.valid = kCase.valid;
            checks.mtd = kCase.mtd;
            write_text("/tmp/image", "x");
            EXPECT_THAT(
                printed_at(
                    PROD_DBG_TRACE,
                    [&] { EXPECT_EQ(flash_check_fw("/tmp/image", kCase.type), kCase.result); }),
                Prints(traces("flash_check_fw", false) +
                       error_line("flash_check_fw", kCase.message)));
            EXPECT_EQ(checks.asked, kCase.asked);
            EXPECT_EQ(exists("/tmp/image"), marker && kCase.kept_with_marker);
            EXPECT_EQ(exists(PROD_FW_KEEP_MARKER), marker);
        }
    }
}

TEST_F(Flash, NoFileToCheck)
{
    EXPECT_EQ(flash_check_fw(nullptr, 2), FW_INVALID_FORMAT);
    EXPECT_EQ(flash_check_fw(nullptr, 4), FW_INVALID_FORMAT);
    EXPECT_THAT(checks.asked, IsEmpty());
    checks.valid = -1;
    EXPECT_EQ(flash_check_fw("/tmp/none", 2), FW_INVALID_FORMAT);
}

// ---- uploads ----------------------------------------------------------------------------------

TEST_F(Flash, UploadOfAGoodImage)
{
    char image[] = "buffer";
    g_fw_type = 77;
    EXPECT_EQ(
        printed_at(PROD_DBG_DEBUG, [&] { EXPECT_EQ(prod_systool_simple_upload(image, 6), 0); }),
        "");
    EXPECT_EQ(g_fw_type, 2);
    EXPECT_THAT(checks.asked, ElementsAre("type buffer", "crc 2 buffer", "valid 2 /var/image",
                                          "mtd 2 /var/image"));
    EXPECT_THAT(platform_log(),
                ElementsAre("prod_systool_simple_upload 0 common_so: function entry!",
                            "prod_systool_simple_upload 0 common_so: function exit!"));
    EXPECT_EQ(read_text(PROD_FW_IMAGE), "image");
}

TEST_F(Flash, UploadOfABadImage)
{
    char image[] = "buffer";
    const struct {
        Checks answers;
        int result;
        std::string said;
        bool deleted;
    } kCases[] = {
        {{2, -1, 0, 0, {}}, -2, "", false},
        {{4, 0, 0, 0, {}}, -1, error_line("flash_check_fw", "fw type is not support:4."), true},
        {{-1, 0, 0, 0, {}}, -1, error_line("flash_check_fw", "fw type is not support:-1."), true},
        {{2, 0, -1, 0, {}}, -1, error_line("flash_check_fw", "check_fw_valid fail"), true},
        {{2, 0, 0, -1, {}}, -3, error_line("flash_check_fw", "check_mtd_size faild."), true},
    };
    for (const auto &kCase : kCases) {
        SCOPED_TRACE(kCase.said);
        checks = kCase.answers;
        platform_log().clear();
        write_text(PROD_FW_IMAGE, "image");
        EXPECT_THAT(
            printed_at(PROD_DBG_DEBUG,
                       [&] { EXPECT_EQ(prod_systool_simple_upload(image, 6), kCase.result); }),
            Prints(kCase.said + log_line(PROD_DBG_DEBUG, "prod_systool_simple_upload",
                                         "Not a valid firmware.ck_result:" +
                                             std::to_string(kCase.result) + ".")));
        EXPECT_EQ(g_fw_type, kCase.answers.type);
        EXPECT_EQ(exists(PROD_FW_IMAGE), !kCase.deleted);
        EXPECT_THAT(platform_log(),
                    ElementsAre("prod_systool_simple_upload 0 common_so: function entry!"));
    }
}

TEST_F(Flash, UploadOfNothing)
{
    g_fw_type = 77;
    EXPECT_THAT(
        printed_at(PROD_DBG_ERROR, [] { EXPECT_EQ(prod_systool_simple_upload(nullptr, 6), -4); }),
        Prints(error_line("flash_check_fw_type_and_crc", "arg is null.")));
    EXPECT_EQ(g_fw_type, 77);
    EXPECT_TRUE(exists(PROD_FW_IMAGE));
}

TEST_F(Flash, FileOperations)
{
    char image[] = "buffer";
    EXPECT_EQ(systool_file_handle(FILE_OPERATE_SIMPLE_UPGRADE, image, 6), 0);
    EXPECT_THAT(checks.asked, testing::Contains("type buffer"));
    checks.crc = -1;
    EXPECT_EQ(systool_file_handle(FILE_OPERATE_SIMPLE_UPGRADE, image, 6), -2);
    char name[64] = "";
    EXPECT_EQ(systool_file_handle(FILE_OPERATE_UPLOAD, image, 6), 17);
    EXPECT_EQ(systool_file_handle(FILE_OPERATE_DOWNLOAD, name, 6), 18);
    EXPECT_STREQ(name, "the name");
    EXPECT_THAT(backups, ElementsAre("upload buffer", "download"));
    for (const int type : {3, 4, -1, 99}) {
        EXPECT_THAT(
            printed([&] {
                EXPECT_EQ(systool_file_handle(static_cast<FILE_OPERATE_ENUM>(type), image, 6), -1);
            }),
            Prints(error_line("systool_file_handle", "invalid type:" + std::to_string(type))));
    }
}

// ---- the upgrade ------------------------------------------------------------------------------

constexpr const char *kUpgrade = "prod_upgrade_image_to_flash";

/** A failure of the upgrade with any errno, where no call has set a particular one. */
std::string failure(const std::string &what)
{
    const std::string line = error_line(kUpgrade, "@");
    const std::size_t at = line.find('@');
    return line.substr(0, at) + "Failed\\([0-9]+\\) to " + test::literally(what) + ", [^\n]*\\." +
           line.substr(at + 1);
}

TEST(Device, ThePageCacheOfTheMachineIsOutOfReach)
{
    test::write_text("/proc/sys/vm/drop_caches", "3\n");
    // What is written to the kernel's own cannot be read back.
    EXPECT_EQ(read_text("/proc/sys/vm/drop_caches"), "3\n");
}

TEST_F(Flash, UpgradeFromAGoodImage)
{
    const RecordedCommands commands;
    const int before = test::open_descriptors();
    watch_closing = true;
    EXPECT_THAT(printed_at(PROD_DBG_INFO, [] { EXPECT_EQ(prod_upgrade_image_to_flash(), 0); }),
                Prints(log_line(PROD_DBG_INFO, kUpgrade, "fw buf.st_size is 5")));
    watch_closing = false;
    join_writers();
    EXPECT_TRUE(default_attributes);
    EXPECT_THAT(unmapped, testing::Contains("5"));
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_THAT(checks.asked,
                ElementsAre("type image", "crc 2 image", "valid 2 /var/image", "mtd 2 /var/image"));
    ASSERT_GT(commands.all().size(), 3U);
    EXPECT_EQ(commands.all()[0], "echo 3 > /proc/sys/vm/drop_caches");
    EXPECT_EQ(commands.all()[1], "free");
    EXPECT_EQ(commands.all()[2], "echo disable > /proc/watchdog");
    EXPECT_EQ(commands.all().back(), "upgrade 2 /var/image test");
    EXPECT_EQ(read_text(PROD_FW_IMAGE), "image");
}

TEST_F(Flash, UpgradeLeavesTheLastTypeAlone)
{
    const RecordedCommands commands;
    g_fw_type = 77;
    EXPECT_EQ(prod_upgrade_image_to_flash(), 0);
    join_writers();
    EXPECT_EQ(g_fw_type, 77);
}

/** An upgrade that is refused: what it logs, and that no daemon was stopped for it. */
void refused(const std::string &expected)
{
    const RecordedCommands commands;
    const int before = test::open_descriptors();
    EXPECT_THAT(printed([] { EXPECT_EQ(prod_upgrade_image_to_flash(), -1); }), Prints(expected));
    EXPECT_THAT(threads, IsEmpty());
    EXPECT_THAT(commands.all(), ElementsAre("echo 3 > /proc/sys/vm/drop_caches", "free"));
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(Flash, UpgradeWithoutAnImage)
{
    test::remove_all(PROD_FW_IMAGE);
    refused(error_line(kUpgrade,
                       "Failed(2) to Failed to stat /var/image: , No such file or directory."));
    EXPECT_THAT(checks.asked, IsEmpty());
}

TEST_F(Flash, UpgradeFromAnImageOfAnImpossibleSize)
{
    const std::string line = failure("buf.st_size error");
    write_text(PROD_FW_IMAGE, "");
    refused(line);
    ASSERT_EQ(truncate(PROD_FW_IMAGE, 67108865), 0);
    refused(line);
    ASSERT_EQ(truncate(PROD_FW_IMAGE, off_t{1} << 32 | 1), 0);
    refused(line);
    EXPECT_THAT(checks.asked, IsEmpty());
    EXPECT_TRUE(exists(PROD_FW_IMAGE));
}

TEST_F(Flash, UpgradeFromTheSmallestAndTheLargestImage)
{
    for (const off_t size : {off_t{1}, off_t{67108864}}) {
        const RecordedCommands commands;
        ASSERT_EQ(truncate(PROD_FW_IMAGE, size), 0);
        EXPECT_THAT(
            printed_at(PROD_DBG_INFO, [] { EXPECT_EQ(prod_upgrade_image_to_flash(), 0); }),
            Prints(log_line(PROD_DBG_INFO, kUpgrade, "fw buf.st_size is " + std::to_string(size))));
        join_writers();
        EXPECT_EQ(checks.asked[0].size(), 5U + static_cast<std::size_t>(size));
        checks = {};
    }
}

TEST_F(Flash, UpgradeFromAFolder)
{
    test::remove_all(PROD_FW_IMAGE);
    ASSERT_EQ(mkdir(PROD_FW_IMAGE, 0755), 0);
    write_text(std::string{PROD_FW_IMAGE} + "/x", "");
    // Opened, since a folder can be, but not mapped.
    struct stat status;
    ASSERT_EQ(stat(PROD_FW_IMAGE, &status), 0);
    refused(error_line(kUpgrade, "Failed(19) to Failed to mmap fw(len:" +
                                     std::to_string(status.st_size) + "):, No such device."));
    test::remove_all(PROD_FW_IMAGE);
}

TEST_F(Flash, UpgradeWithoutDescriptors)
{
    const RecordedCommands commands;
    std::vector<int> taken;
    for (int fd = 0; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
        taken.push_back(fd);
    }
    // The log is on standard output, which needs none, and a file of its own, which it does
    // without.
    int result = 0;
    const int console = taken.back();
    taken.pop_back();
    close(console);
    const int last = open("/tmp/said", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    fflush(stdout);
    const int out = taken.back();
    dup2(STDOUT_FILENO, out);
    dup2(last, STDOUT_FILENO);
    result = prod_upgrade_image_to_flash();
    fflush(stdout);
    dup2(out, STDOUT_FILENO);
    close(last);
    for (const int fd : taken) {
        close(fd);
    }
    EXPECT_EQ(result, -1);
    EXPECT_THAT(read_text("/tmp/said"),
                testing::HasSubstr("Failed(24) to Failed to open fw: , Too many open files."));
    EXPECT_THAT(threads, IsEmpty());
}

TEST_F(Flash, UpgradeWithoutAMapping)
{
    failing_mmap = ENOMEM;
    watch_closing = true;
    refused(
        error_line(kUpgrade, "Failed(12) to Failed to mmap fw(len:5):, Cannot allocate memory."));
    watch_closing = false;
    EXPECT_THAT(unmapped, testing::Contains("failed 5"));
    EXPECT_THAT(checks.asked, IsEmpty());
    EXPECT_TRUE(exists(PROD_FW_IMAGE));
}

TEST_F(Flash, UpgradeFromADamagedImage)
{
    checks.crc = -1;
    refused(failure("Failed to check fw type or crc: -2"));
    EXPECT_TRUE(exists(PROD_FW_IMAGE));
    EXPECT_THAT(checks.asked, ElementsAre("type image", "crc 2 image"));
}

TEST_F(Flash, UpgradeFromARejectedImage)
{
    const struct {
        int type;
        int valid;
        int mtd;
        const char *reason;
        int result;
        bool kept_with_marker;
    } kCases[] = {
        {4, 0, 0, "fw type is not support:4.", -1, true},
        {2, -1, 0, "check_fw_valid fail", -1, true},
        {2, 0, -1, "check_mtd_size faild.", -3, false},
    };
    for (const bool marker : {false, true}) {
        if (marker) {
            write_text(PROD_FW_KEEP_MARKER, "");
        }
        for (const auto &kCase : kCases) {
            checks = {};
            checks.type = kCase.type;
            checks.valid = kCase.valid;
            checks.mtd = kCase.mtd;
            write_text(PROD_FW_IMAGE, "image");
            refused(error_line("flash_check_fw", kCase.reason) +
                    failure("Failed to check fw: " + std::to_string(kCase.result) + "\n"));
            EXPECT_EQ(exists(PROD_FW_IMAGE), marker && kCase.kept_with_marker);
        }
    }
}

TEST_F(Flash, ADescriptorOfZeroStaysOpen)
{
    const RecordedCommands commands;
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_EQ(prod_upgrade_image_to_flash(), 0);
    join_writers();
    struct stat there;
    struct stat image;
    EXPECT_EQ(fstat(STDIN_FILENO, &there), 0);
    EXPECT_EQ(stat(PROD_FW_IMAGE, &image), 0);
    EXPECT_EQ(there.st_ino, image.st_ino);
    dup2(input, STDIN_FILENO);
    close(input);
}

TEST_F(Flash, AWriterThatCannotBeStarted)
{
    thread_fails = true;
    const RecordedCommands commands;
    EXPECT_THAT(
        printed([] { prod_systool_call_writeImage(); }),
        Prints(error_line("prod_systool_call_writeImage",
                          "Failed(11) to start the writer of the image, Resource temporarily "
                          "unavailable.")));
    EXPECT_THAT(commands.all(), IsEmpty());
    EXPECT_THAT(printed([] { EXPECT_EQ(prod_upgrade_image_to_flash(), 0); }),
                Prints(error_line("prod_systool_call_writeImage",
                                  "Failed(11) to start the writer of the image, Resource "
                                  "temporarily unavailable.")));
    EXPECT_THAT(commands.all(), ElementsAre("echo 3 > /proc/sys/vm/drop_caches", "free"));
}

TEST_F(Flash, TheWritersCommand)
{
    const struct {
        const char *name;
        const char *command;
    } kCases[] = {
        {"imsd", "upgrade 2 /var/image imsd"},
        {"a_B.c:d-9", "upgrade 2 /var/image a_B.c:d-9"},
        {"my daemon", "upgrade 2 /var/image my_daemon"},
        {"$(reboot);`x`&|\"'\\", "upgrade 2 /var/image __reboot___x______"},
        {"<null>", "upgrade 2 /var/image _null_"},
        {"a\nb\tc*?~#", "upgrade 2 /var/image a_b_c____"},
        {"n\xc3\xa4me", "upgrade 2 /var/image n__me"},
        {"0123456789abcdef0123456789abcde", "upgrade 2 /var/image 0123456789abcdef0123456789abcde"},
    };
    for (const auto &kCase : kCases) {
        self = kCase.name;
        const RecordedCommands commands;
        EXPECT_EQ(prod_systool_write_image(nullptr), nullptr);
        EXPECT_EQ(commands.all().back(), kCase.command);
    }
}

TEST_F(Flash, TheWritersCommandIsLogged)
{
    const RecordedCommands commands;
    EXPECT_THAT(printed_at(
                    PROD_DBG_INFO, [] { prod_systool_write_image(nullptr); }, "cmd"),
                Prints(log_line(PROD_DBG_INFO, "prod_systool_write_image",
                                "upgrade 2 /var/image test", "cmd")));
}

// ---- daemons ----------------------------------------------------------------------------------

using Steps = std::vector<std::string>;

Steps wan_stops(int wan)
{
    Steps steps;
    for (const char *const name : {"ddns", "pppd", "dhcpcd", "pptp", "pptp_dhcp", "l2tp",
                                   "l2tp_dhcp", "db_pppd", "db_dhcpcd"}) {
        steps.push_back(std::string{"stop "} + name + "_wan" + std::to_string(wan));
    }
    return steps;
}

const Steps kFixedStops = {
    "stop timer",        "stop timesync",    "stop sysserv",      "stop portal",
    "stop userman",      "stop authman",     "stop udpserv",      "stop upgradectl",
    "stop acagent",      "stop pppd",        "stop pppoe-server", "stop dnsrelay",
    "stop logserver",    "stop logdebug",    "stop ddns1",        "stop ddns2",
    "stop ddns3",        "stop upnpd",       "stop arp_lan",      "stop arp_wan",
    "stop telnetd",      "stop pptps",       "stop l2tps",        "stop pppd_pptps",
    "stop pppd_l2tps",   "stop ipsec_ctl",   "stop ipsec_ike",    "stop ipsec_watch",
    "stop netctrl",      "stop udevd",       "stop gpioctl",      "stop smbd",
    "stop ftpd",         "stop sdwan_ctl",   "stop sdwan_data",   "stop mgmtd",
    "stop cloudc",       "stop dhcps",       "stop netcheck",     "stop msgd",
    "stop cfmd",         "stop wlan_server", "stop apd",          "stop tunnelc",
    "stop pptp_callmgr", "stop pppd_pptp",   "stop pppd_l2tp",    "stop l2tpc",
    "stop mesh_lldp",    "stop mesh_manager"};

const Steps kInitiatorStops = {"stop httpd", "stop skyrelctl", "stop appmgr", "stop imsd"};

Steps all_steps(int wans, int survivor)
{
    Steps steps{"echo disable > /proc/watchdog", "stop multiwan"};
    for (int wan = 1; wan <= wans; ++wan) {
        const Steps stops = wan_stops(wan);
        steps.insert(steps.end(), stops.begin(), stops.end());
    }
    steps.insert(steps.end(), kFixedStops.begin(), kFixedStops.end());
    for (int i = 0; i < 4 && survivor < 4; ++i) {
        if (i != survivor) {
            steps.push_back(kInitiatorStops[static_cast<std::size_t>(i)]);
        }
    }
    steps.push_back("ifconfig br0 down");
    return steps;
}

TEST_F(Flash, TheListHasItsLengthAndNamesThatTheKernelKeeps)
{
    EXPECT_EQ(kFixedStops.size(), 50U);
    EXPECT_EQ(wan_stops(1).size(), 9U);
    for (const std::string &step : all_steps(64, 0)) {
        if (step.rfind("stop ", 0) == 0) {
            EXPECT_LE(step.size() - 5, 15U) << step;
        }
    }
}

TEST_F(Flash, EveryStepInOrder)
{
    const struct {
        const char *wans;
        int expected;
    } kCases[] = {{"0", 0}, {"-3", 0},  {"1", 1},   {"2", 2},
                  {"4", 4}, {"64", 64}, {"65", 64}, {"2147483647", 64}};
    for (const auto &kCase : kCases) {
        config()["wans.flag"] = kCase.wans;
        for (const int survivor : {0, 1, 2, 3}) {
            const RecordedCommands commands;
            prod_upgrade_kill_public_process(static_cast<SYSTEM_UPGRADE_TYPE_ENUM>(survivor));
            EXPECT_EQ(commands.all(), all_steps(kCase.expected, survivor));
        }
    }
    config().clear();
    const RecordedCommands commands;
    prod_upgrade_kill_public_process(UPGRADE_HTTPD);
    EXPECT_EQ(commands.all(), all_steps(0, UPGRADE_HTTPD));
}

TEST_F(Flash, TheWholeWriter)
{
    config()["wans.flag"] = "2";
    const RecordedCommands commands;
    prod_systool_write_image(nullptr);
    Steps steps = all_steps(2, UPGRADE_IMSD);
    steps.emplace_back("upgrade 2 /var/image test");
    EXPECT_EQ(commands.all(), steps);
}

TEST_F(Flash, TheOtherInitiators)
{
    const struct {
        SYSTEM_UPGRADE_TYPE_ENUM type;
        Steps steps;
    } kCases[] = {
        {UPGRADE_HTTPD, {"stop skyrelctl", "stop appmgr", "stop imsd"}},
        {UPGRADE_SKYRELCTL, {"stop httpd", "stop appmgr", "stop imsd"}},
        {UPGRADE_APPMGR, {"stop httpd", "stop skyrelctl", "stop imsd"}},
        {UPGRADE_IMSD, {"stop httpd", "stop skyrelctl", "stop appmgr"}},
    };
    for (const auto &kCase : kCases) {
        const RecordedCommands commands;
        kill_other_upgrade_process(kCase.type);
        EXPECT_EQ(commands.all(), kCase.steps);
    }
}

TEST_F(Flash, AnInitiatorThatIsNone)
{
    for (const int type : {4, 5, 7}) {
        const RecordedCommands commands;
        const auto initiator = static_cast<SYSTEM_UPGRADE_TYPE_ENUM>(type);
        const std::string said =
            error_line("kill_other_upgrade_process", "invalid type:" + std::to_string(type));
        EXPECT_THAT(printed([&] { kill_other_upgrade_process(initiator); }), Prints(said));
        EXPECT_THAT(commands.all(), IsEmpty());
        EXPECT_THAT(printed([&] { prod_upgrade_kill_public_process(initiator); }), Prints(said));
        EXPECT_EQ(commands.all(), all_steps(0, 4));
    }
}

}  // namespace

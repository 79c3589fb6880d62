// SPDX-License-Identifier: MIT
#include "prod_common_usb.h"

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/capture.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/time.hpp"

using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::read_text;
using test::write_text;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

int blocked_folders;  // how many looks at the block devices fail
std::map<std::string, struct statfs> file_systems;

}  // namespace

extern "C" {

DIR *opendir(const char *path)
{
    static const auto real = test::next(opendir, "opendir");
    if (strcmp(path, "/sys/block") == 0 && blocked_folders > 0) {
        --blocked_folders;
        errno = ENOENT;
        return nullptr;
    }
    return real(path);
}

int statfs(const char *path, struct statfs *fs) noexcept
{
    static const auto real = test::next(statfs, WIDE("statfs"));
    const auto found = file_systems.find(path);
    if (found == file_systems.end()) {
        return real(path, fs);
    }
    *fs = found->second;
    return 0;
}
}

namespace
{

constexpr const char *kVolumes = "/tmp/UsbVolumeInfo";
constexpr const char *kNothing = ":0.0G*0.000000G*0.000000G*0.000000G~";

struct statfs file_system(long block, unsigned long blocks, unsigned long unused,
                          unsigned long available)
{
    struct statfs fs = {};
    fs.f_bsize = block;
    fs.f_blocks = blocks;
    fs.f_bfree = unused;
    fs.f_bavail = available;
    return fs;
}

/** A device with block devices and partitions of the test's own. */
class Usb : public testing::Test
{
  protected:
    void SetUp() override
    {
        std::filesystem::create_directories("/var/etc/upan");
        blocked_folders = 0;
        file_systems.clear();
        test::remove_all(kVolumes);
    }
    void TearDown() override { test::remove_all("/var/etc/upan"); }

    static void disks(const std::vector<std::string> &names)
    {
        for (const std::string &name : names) {
            std::filesystem::create_directories("/sys/block/" + name);
        }
    }
    static void partition(const std::string &name, const struct statfs &fs)
    {
        std::filesystem::create_directories("/var/etc/upan/" + name);
        file_systems["/var/etc/upan/" + name] = fs;
    }

    test::MountedFolder block_{"/sys/block", "size=1m"};
};
using Disks = Usb;
using Volumes = Usb;

// ---- disks -------------------------------------------------------------------------------------

/** The names in whatever order the folder has them. */
std::vector<std::string> words_of(const std::string &text)
{
    std::vector<std::string> words;
    std::size_t at = 0;
    while (at <= text.size() && !text.empty()) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

TEST_F(Disks, ByTheirNames)
{
    disks({"sda", "sdb", "sdaa", "mmcblk0", "loop0", "s", "asd"});
    char text[64];
    memset(text, '#', sizeof(text));
    EXPECT_EQ(prod_common_usb_get_diskname(text, 60), HLX_OK);
    EXPECT_THAT(words_of(text), testing::UnorderedElementsAre("sda", "sdb", "sdaa"));
    EXPECT_EQ(std::string(text + strlen(text), text + 60), std::string(60 - strlen(text), '\0'));
    EXPECT_EQ(text[60], '#');
}

TEST_F(Disks, None)
{
    disks({"mmcblk0"});
    char text[16] = "before";
    EXPECT_EQ(printed([&] { EXPECT_EQ(prod_common_usb_get_diskname(text, 16), HLX_ERR); }), "");
    EXPECT_STREQ(text, "");
}

TEST_F(Disks, AsFarAsThereIsRoom)
{
    disks({"sda"});
    for (const auto &[room, expected] :
         {std::pair{1, ""}, {2, ""}, {3, ""}, {4, ""}, {5, "sda"}, {6, "sda"}}) {
        char text[8];
        memset(text, '#', sizeof(text));
        EXPECT_EQ(prod_common_usb_get_diskname(text, room), HLX_OK) << room;
        EXPECT_STREQ(text, expected) << room;
        EXPECT_EQ(text[room], '#');
    }
    disks({"sdb", "sdc"});
    char text[16] = "";
    EXPECT_EQ(prod_common_usb_get_diskname(text, 12), HLX_OK);
    EXPECT_EQ(words_of(text).size(), 2U) << text;
    EXPECT_EQ(prod_common_usb_get_diskname(text, 13), HLX_OK);
    EXPECT_EQ(words_of(text).size(), 3U) << text;
}

TEST_F(Disks, BehindANameThatDoesNotFitNoneFollows)
{
    disks({"sdx", "sd" + std::string(20, 'l'), "sdy"});  // the long one in the middle
    char text[16] = "";
    EXPECT_EQ(prod_common_usb_get_diskname(text, 12), HLX_OK);
    EXPECT_EQ(words_of(text).size(), 1U) << text;
}

TEST_F(Disks, WithoutABuffer)
{
    char text[8] = "before";
    for (const int room : {0, -1, INT_MIN}) {
        EXPECT_THAT(
            printed(
                [&, room = room] { EXPECT_EQ(prod_common_usb_get_diskname(text, room), HLX_ERR); }),
            Prints(log_line(PROD_DBG_ERROR, "prod_common_usb_get_diskname", "Null param.")));
    }
    EXPECT_THAT(printed([] { EXPECT_EQ(prod_common_usb_get_diskname(nullptr, 8), HLX_ERR); }),
                Prints(log_line(PROD_DBG_ERROR, "prod_common_usb_get_diskname", "Null param.")));
    EXPECT_STREQ(text, "before");
}

TEST_F(Disks, AreWaitedForOnce)
{
    disks({"sda"});
    const test::SimulatedTime time;
    char text[8] = "before";
    EXPECT_EQ(prod_common_usb_get_diskname(text, 8), HLX_OK);
    EXPECT_THAT(time.sleeps(), IsEmpty());
    blocked_folders = 1;
    EXPECT_EQ(prod_common_usb_get_diskname(text, 8), HLX_OK);
    EXPECT_STREQ(text, "sda");
    EXPECT_THAT(time.sleeps(), ElementsAre(1000000));
    blocked_folders = 2;
    EXPECT_EQ(prod_common_usb_get_diskname(text, 8), HLX_ERR);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(time.sleeps().size(), 2U);
    EXPECT_EQ(blocked_folders, 0);
}

// ---- one record --------------------------------------------------------------------------------

TEST_F(Usb, ARecordOfOnePartition)
{
    partition("sda1", file_system(4096, 524288, 131072, 65536));
    char text[PROD_USB_RECORD_SIZE + 4];
    memset(text, '#', sizeof(text));
    const std::string record = "sda1:2.000000G*1.500000G*0.500000G*0.250000G~";
    EXPECT_EQ(prod_common_write_usb_volume_to_file("sda1", text, 0),
              static_cast<int>(record.size()));
    EXPECT_EQ(text, record);
    strcpy(text, "abc");
    EXPECT_EQ(prod_common_write_usb_volume_to_file("sda1", text, 3),
              3 + static_cast<int>(record.size()));
    EXPECT_EQ(text, "abc" + record);
}

TEST_F(Usb, ARecordIsShownToWhoAsks)
{
    partition("sda1", file_system(4096, 524288, 131072, 65536));
    char text[PROD_USB_RECORD_SIZE];
    const auto line = [](const char *message) {
        return log_line(PROD_DBG_INFO, "prod_common_write_usb_volume_to_file", message);
    };
    EXPECT_THAT(
        printed_at(PROD_DBG_INFO, [&] { prod_common_write_usb_volume_to_file("sda1", text, 0); }),
        Prints(line("sda1:total:2.000000G") + line("User space:1.500000G") +
               line("free space:0.500000G") + line("avail space:0.250000G")));
    EXPECT_EQ(
        printed_at(PROD_DBG_DEBUG, [&] { prod_common_write_usb_volume_to_file("sda1", text, 0); }),
        "");
}

TEST_F(Usb, LargeDisks)
{
    partition("sdb", file_system(65536, 1UL << 30, 3, 0));
    char text[PROD_USB_RECORD_SIZE];
    prod_common_write_usb_volume_to_file("sdb", text, 0);
    EXPECT_STREQ(text, "sdb:65536.000000G*65535.999817G*0.000183G*0.000000G~");
    partition("sdc", file_system(LONG_MAX, ULONG_MAX, ULONG_MAX, ULONG_MAX));
    EXPECT_GT(prod_common_write_usb_volume_to_file("sdc", text, 0), 0);
    EXPECT_EQ(text[strlen(text) - 1], '~');
}

TEST_F(Usb, APartitionThatCannotBeQueried)
{
    char text[PROD_USB_RECORD_SIZE];
    int length = 0;
    EXPECT_THAT(printed([&] { length = prod_common_write_usb_volume_to_file("sdz9", text, 0); }),
                Prints(log_line(PROD_DBG_ERROR, "prod_common_write_usb_volume_to_file",
                                "Statfs error /var/etc/upan/sdz9.")));
    EXPECT_EQ(text, std::string{"sdz9"} + kNothing);
    EXPECT_EQ(length, static_cast<int>(strlen(text)));
}

TEST_F(Usb, LongNames)
{
    // Of the path 126 characters count.
    const std::string name(150, 'n');
    const std::string folder = "/var/etc/upan/" + name;
    file_systems[folder.substr(0, 126)] = file_system(1 << 30, 4, 2, 1);
    char text[PROD_USB_RECORD_SIZE];
    prod_common_write_usb_volume_to_file(name.c_str(), text, 0);
    EXPECT_EQ(text, name + ":4.000000G*2.000000G*2.000000G*1.000000G~");
    EXPECT_EQ(prod_common_write_usb_volume_to_file(std::string(3000, 'x').c_str(), text, 0),
              static_cast<int>(255 + strlen(kNothing)));
    EXPECT_EQ(text, std::string(255, 'x') + kNothing);
}

TEST_F(Usb, ArgumentsThatCannotBe)
{
    char text[8] = "before";
    const std::string complaint =
        log_line(PROD_DBG_ERROR, "prod_common_write_usb_volume_to_file", "param error.");
    EXPECT_THAT(
        printed([&] { EXPECT_EQ(prod_common_write_usb_volume_to_file(nullptr, text, 1), 0); }),
        Prints(complaint));
    EXPECT_THAT(
        printed([&] { EXPECT_EQ(prod_common_write_usb_volume_to_file("sda1", nullptr, 1), 0); }),
        Prints(complaint));
    EXPECT_THAT(
        printed([&] { EXPECT_EQ(prod_common_write_usb_volume_to_file("sda1", text, -1), 0); }),
        Prints(complaint));
    EXPECT_STREQ(text, "before");
}

// ---- the volume file ---------------------------------------------------------------------------

const std::string kOne = ":1.000000G*1.000000G*0.000000G*0.000000G~";

struct statfs one_gigabyte()
{
    return file_system(1 << 30, 1, 0, 0);
}

/** The records of a text, in alphabetical order, each with its end. */
std::vector<std::string> records_of(const std::string &text)
{
    std::vector<std::string> records;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('~', at), text.size() - 1) + 1;
        records.push_back(text.substr(at, end - at));
        at = end;
    }
    std::sort(records.begin(), records.end());
    return records;
}

TEST_F(Volumes, TwoPartitionsOneAfterTheOther)
{
    disks({"sda"});
    partition("sda1", one_gigabyte());
    partition("sda2", file_system(1 << 30, 2, 1, 1));
    partition("sdb1", one_gigabyte());  // of no disk that is there
    EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK);
    EXPECT_THAT(records_of(read_text(kVolumes)),
                ElementsAre("sda1" + kOne, "sda2:2.000000G*1.000000G*1.000000G*1.000000G~"));
    struct stat status;
    ASSERT_EQ(stat(kVolumes, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644U);
}

TEST_F(Volumes, ADiskMountedWhole)
{
    disks({"sda", "sdb"});
    partition("sda", one_gigabyte());
    EXPECT_THAT(printed([] { EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK); }),
                Prints(log_line(PROD_DBG_ERROR, "prod_common_write_usb_volume_to_file",
                                "Statfs error /var/etc/upan/sdb.")));
    EXPECT_THAT(records_of(read_text(kVolumes)),
                ElementsAre("sda" + kOne, std::string{"sdb"} + kNothing));
}

TEST_F(Volumes, ThreeCharactersTellADisk)
{
    disks({"sdaa"});
    partition("sda1", one_gigabyte());
    EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK);
    EXPECT_EQ(read_text(kVolumes), "sda1" + kOne);
}

TEST_F(Volumes, TheFileIsReplaced)
{
    write_text(kVolumes, std::string(3000, 'x'));
    disks({"sda"});
    partition("sda1", one_gigabyte());
    EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK);
    EXPECT_EQ(read_text(kVolumes), "sda1" + kOne);
}

TEST_F(Volumes, RecordsThatDoNotFitAreLeftOut)
{
    disks({"sda"});
    std::size_t all = 0;
    for (int i = 10; i < 60; ++i) {
        partition("sda" + std::to_string(i), one_gigabyte());
        all += 5 + kOne.size();
    }
    ASSERT_GT(all, 1023U);
    EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK);
    const std::string text = read_text(kVolumes);
    EXPECT_EQ(text.size(), 1023 / (5 + kOne.size()) * (5 + kOne.size()));
    for (const std::string &record : records_of(text)) {
        EXPECT_EQ(record.substr(5), kOne);
    }
}

TEST_F(Volumes, AShorterRecordStillFindsItsPlace)
{
    disks({"sda"});
    // One short one is behind the long one that is left out, whichever end the folder starts at.
    partition("sda0", one_gigabyte());
    for (int i = 1; i <= 4; ++i) {
        const std::string name = "sda" + std::to_string(i) + std::string(245, 'x');
        partition(name, one_gigabyte());
        file_systems[("/var/etc/upan/" + name).substr(0, 126)] = one_gigabyte();
    }
    partition("sda9", one_gigabyte());
    EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK);
    EXPECT_EQ(read_text(kVolumes).size(), 3 * (249 + kOne.size()) + 2 * (4 + kOne.size()));
}

TEST_F(Volumes, ExactlyAsMuchAsFits)
{
    disks({"sda"});
    // 1023 bytes in five records, and one byte more.
    for (const std::size_t extra : {0UL, 1UL}) {
        test::remove_all("/var/etc/upan");
        std::size_t left = 1023 + extra;
        for (int i = 1; i <= 5; ++i) {
            const std::size_t length = i < 5 ? 200 : left;
            std::string name = "sda" + std::to_string(i);
            name += std::string(length - kOne.size() - name.size(), 'x');
            partition(name, one_gigabyte());
            file_systems[("/var/etc/upan/" + name).substr(0, 126)] = one_gigabyte();
            left -= length;
        }
        EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK);
        const std::size_t size = read_text(kVolumes).size();
        EXPECT_TRUE(extra == 0 ? size == 1023 : size < 1023) << size;
    }
}

TEST_F(Volumes, NoDisk)
{
    write_text(kVolumes, "before");
    EXPECT_THAT(
        printed_at(PROD_DBG_DEBUG, [] { EXPECT_EQ(prod_common_get_usbvolume(), HLX_ERR); }),
        Prints(log_line(PROD_DBG_DEBUG, "prod_common_get_usbvolume", "Can't get DiskName.")));
    EXPECT_EQ(read_text(kVolumes), "before");
}

TEST_F(Volumes, NoFolderOfPartitions)
{
    disks({"sda"});
    test::remove_all("/var/etc/upan");
    EXPECT_THAT(
        printed([] { EXPECT_EQ(prod_common_get_usbvolume(), HLX_ERR); }),
        Prints(log_line(PROD_DBG_ERROR, "prod_common_get_usbvolume", "Can't open DiskNode.")));
    EXPECT_FALSE(test::exists(kVolumes));
}

TEST_F(Volumes, AFileThatCannotBeWritten)
{
    disks({"sda"});
    partition("sda1", one_gigabyte());
    std::filesystem::create_directories(kVolumes);
    const int before = test::open_descriptors();
    EXPECT_EQ(printed([] { EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK); }), "");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(Volumes, AReaderWithTheLockSeesAWholeFile)
{
    disks({"sda"});
    partition("sda1", one_gigabyte());
    ASSERT_EQ(prod_common_get_usbvolume(), HLX_OK);
    const int fd = open(kVolumes, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_SH), 0);
    partition("sda1", file_system(1 << 30, 2, 1, 1));
    std::atomic<bool> done{false};
    std::thread writer{[&] {
        EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK);
        done = true;
    }};
    usleep(100000);
    EXPECT_FALSE(done);
    EXPECT_EQ(read_text(kVolumes), "sda1" + kOne);
    close(fd);
    writer.join();
    EXPECT_EQ(read_text(kVolumes), "sda1:2.000000G*1.000000G*1.000000G*1.000000G~");
    // The writer has let go of it.
    const int again = open(kVolumes, O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(flock(again, LOCK_EX | LOCK_NB), 0);
    close(again);
}

}  // namespace

// SPDX-License-Identifier: MIT
#include "platform/firmware.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "firmware_tool.h"
#include "platform/debug.h"
#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/image.hpp"

using test::firmware_image;
using test::noise;
using test::put_number;
using test::sealed;
using test::write_text;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

static std::vector<std::string> logged;

void log_debug_print(const char *function, int line, int level, const char *module,
                     const char *format, ...)
{
    char text[512];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    EXPECT_STRNE(function, "");
    EXPECT_GT(line, 0);
    EXPECT_EQ(level, 2);
    EXPECT_STREQ(module, "firmware");
    logged.emplace_back(text);
}

namespace
{

constexpr const char *kFile = "/tmp/image";
constexpr const char *kBoard =
    R"({"model": "virtual-router", "firmware": {"partition": "/tmp/flash", "size": 4096}})";

/** A copy in a block of its own, so that a read behind the end shows. */
class Block
{
  public:
    explicit Block(const std::string &bytes)
        : data_(static_cast<char *>(malloc(bytes.size())), free), size_(bytes.size())
    {
        bytes.copy(data_.get(), bytes.size());
    }
    const char *data() const { return data_.get(); }
    long size() const { return static_cast<long>(size_); }

  private:
    std::unique_ptr<char, decltype(&free)> data_;
    std::size_t size_;
};

int type_of(const std::string &image)
{
    const Block block{image};
    return check_fw_type(block.data(), block.size());
}

/** What check_fw_crc() says of an image by its own type. */
int crc_of(const std::string &image)
{
    const Block block{image};
    return check_fw_crc(check_fw_type(block.data(), block.size()), block.data(), block.size());
}

int valid(int type, const std::string &image)
{
    write_text(kFile, image);
    return check_fw_valid(type, kFile);
}

class Firmware : public testing::Test
{
  protected:
    void SetUp() override
    {
        logged.clear();
        write_text("/etc/board.json", kBoard);
    }
    const std::string image_ = firmware_image(noise(100));
};

TEST_F(Firmware, AGoodImage)
{
    EXPECT_EQ(image_.size(), 164U);
    EXPECT_EQ(type_of(image_), FW_TYPE_FLASH);
    EXPECT_EQ(crc_of(image_), 0);
    EXPECT_EQ(valid(2, image_), 0);
    EXPECT_EQ(check_mtd_size(2, kFile), 0);
    EXPECT_THAT(logged, IsEmpty());
}

TEST_F(Firmware, TypesOfImages)
{
    const struct {
        const char *word;
        int type;
    } kTypes[] = {{"standalone", 1}, {"kernel", 2},   {"ramdisk", 3},
                  {"multi", 4},      {"firmware", 5}, {"filesystem", 7}};
    for (const auto &kType : kTypes) {
        const std::string image = firmware_image(noise(100), "virtual-router", kType.word);
        EXPECT_EQ(type_of(image), kType.type);
        EXPECT_EQ(crc_of(image), 0);
        EXPECT_EQ(valid(kType.type, image), 0);
    }
    std::string image = image_;
    image[test::kImageType] = '\xff';
    EXPECT_EQ(type_of(image), 255);
    EXPECT_EQ(crc_of(sealed(image)), 0);
}

TEST_F(Firmware, WhatIsNoImage)
{
    for (const std::string &text :
         {std::string{}, std::string{"x"}, noise(63), noise(64), noise(100000),
          image_.substr(0, 63), image_.substr(1), std::string(64, '\0')}) {
        EXPECT_EQ(type_of(text), FW_CHECK_FORMAT);
        EXPECT_THAT(logged, IsEmpty());
        EXPECT_EQ(crc_of(text), FW_CHECK_FORMAT);
        EXPECT_EQ(valid(2, text), FW_CHECK_FORMAT);
        EXPECT_EQ(logged.size(), 2U);
        logged.clear();
    }
    EXPECT_EQ(check_fw_type(nullptr, 100), FW_CHECK_FORMAT);
    EXPECT_EQ(check_fw_crc(2, nullptr, 100), FW_CHECK_FORMAT);
    EXPECT_EQ(check_fw_type(image_.data(), 0), FW_CHECK_FORMAT);
    EXPECT_EQ(check_fw_type(image_.data(), -1), FW_CHECK_FORMAT);
    EXPECT_EQ(check_fw_crc(2, image_.data(), -1), FW_CHECK_FORMAT);
}

TEST_F(Firmware, EveryDamagedBit)
{
    for (std::size_t at = 0; at < image_.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            SCOPED_TRACE(std::to_string(at) + " bit " + std::to_string(bit));
            std::string image = image_;
            image[at] = static_cast<char>(image[at] ^ (1 << bit));
            const bool header = at < test::kImageHeaderSize;
            const int expected = at < 4   ? FW_CHECK_FORMAT
                                 : header ? FW_CHECK_HEADER_CRC
                                          : FW_CHECK_DATA_CRC;
            EXPECT_EQ(crc_of(image), expected);
            EXPECT_EQ(valid(2, image), header ? expected : 0);
        }
    }
}

TEST_F(Firmware, EveryLengthButItsOwn)
{
    for (std::size_t size = 0; size < image_.size(); ++size) {
        SCOPED_TRACE(size);
        const int expected = size < test::kImageHeaderSize ? FW_CHECK_FORMAT : FW_CHECK_LENGTH;
        EXPECT_EQ(crc_of(image_.substr(0, size)), expected);
        EXPECT_EQ(valid(2, image_.substr(0, size)), expected);
    }
    EXPECT_EQ(crc_of(image_ + "x"), FW_CHECK_LENGTH);
    EXPECT_EQ(valid(2, image_ + std::string(1, '\0')), FW_CHECK_LENGTH);
}

TEST_F(Firmware, SizesThatLie)
{
    for (const unsigned long size : {0UL, 1UL, 99UL, 101UL, 36UL, 164UL, 0x7fffffffUL, 0x80000000UL,
                                     0xffffffc0UL, 0xffffffffUL, 0xffffffffUL - 64 + 100}) {
        SCOPED_TRACE(size);
        std::string image = image_;
        put_number(image, test::kImageDataSize, size);
        EXPECT_EQ(crc_of(sealed(image)), FW_CHECK_LENGTH);
        EXPECT_EQ(valid(2, sealed(image)), FW_CHECK_LENGTH);
    }
    std::string empty = image_.substr(0, 64);
    put_number(empty, test::kImageDataSize, 0);
    put_number(empty, test::kImageDataCrc, 0);
    EXPECT_EQ(crc_of(sealed(empty)), 0);
}

TEST_F(Firmware, AnotherTypeThanTheOneGiven)
{
    const Block block{image_};
    EXPECT_EQ(check_fw_crc(4, block.data(), block.size()), FW_CHECK_TYPE);
    EXPECT_EQ(valid(4, image_), FW_CHECK_TYPE);
    EXPECT_EQ(valid(FW_CHECK_FORMAT, image_), FW_CHECK_TYPE);
    EXPECT_EQ(valid(2 + 256, image_), FW_CHECK_TYPE);
}

TEST_F(Firmware, TheNameOfTheBoard)
{
    const struct {
        const char *name;
        int result;
    } kNames[] = {{"virtual-router", 0},
                  {"virtual-router 2.0", 0},
                  {"virtual-router  $(x)", 0},
                  {"virtual-router 0123456789abcdefg", 0},
                  {"virtual-router2", FW_CHECK_BOARD},
                  {"virtual-route", FW_CHECK_BOARD},
                  {"Virtual-router", FW_CHECK_BOARD},
                  {"another", FW_CHECK_BOARD},
                  {"my virtual-router", FW_CHECK_BOARD},
                  {"", FW_CHECK_BOARD}};
    for (const auto &kName : kNames) {
        const std::string image = firmware_image("x", kName.name);
        EXPECT_EQ(valid(2, image), kName.result) << kName.name;
        EXPECT_EQ(crc_of(image), 0);
    }
}

TEST_F(Firmware, ANameThatTakesAllItsRoom)
{
    const std::string model = "virtual-router-of-thirty-two-cha";
    ASSERT_EQ(model.size(), 32U);
    std::string image = image_;
    image.replace(test::kImageName, 32, model);
    write_text("/etc/board.json", "{\"model\": \"" + model + "\"}");
    EXPECT_EQ(valid(2, sealed(image)), 0);
    write_text("/etc/board.json", "{\"model\": \"" + model + "x\"}");
    EXPECT_EQ(valid(2, sealed(image)), FW_CHECK_BOARD);
}

TEST_F(Firmware, TheBoardsOwnName)
{
    write_text("/etc/board.json", R"({"model": "x", "firmware": {"board": "virtual-router"}})");
    EXPECT_EQ(valid(2, image_), 0);
    for (const char *const board :
         {"", "{}", "[]", R"({"model": ""})", R"({"model": 7})", R"({"firmware": 7})",
          R"({"model": "virtual-router", "firmware": {"board": "x"}})"}) {
        write_text("/etc/board.json", board);
        EXPECT_EQ(valid(2, image_), FW_CHECK_BOARD) << board;
    }
    test::remove_all("/etc/board.json");
    EXPECT_EQ(valid(2, image_), FW_CHECK_BOARD);
}

TEST_F(Firmware, FilesThatAreNone)
{
    EXPECT_EQ(check_fw_valid(2, "/tmp/none"), FW_CHECK_READ);
    EXPECT_EQ(check_mtd_size(2, "/tmp/none"), FW_CHECK_READ);
    EXPECT_EQ(check_fw_valid(2, nullptr), FW_CHECK_READ);
    EXPECT_EQ(check_mtd_size(2, nullptr), FW_CHECK_READ);
    EXPECT_EQ(check_fw_valid(2, "/tmp"), FW_CHECK_READ);
    EXPECT_EQ(check_fw_valid(2, "/dev/null"), FW_CHECK_FORMAT);
    test::remove_all("/tmp/pipe");
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    EXPECT_LT(check_fw_valid(2, "/tmp/pipe"), 0);  // and nobody waits for a writer
    EXPECT_THAT(
        logged,
        ElementsAre("it cannot be read: No such file or directory",
                    "it cannot be read: No such file or directory", "it cannot be read: no path",
                    "it cannot be read: no path", "it cannot be read: Is a directory",
                    "it is no firmware image: /dev/null", HasSubstr("it cannot be read: ")));
}

TEST_F(Firmware, EachFailureHasALineOfItsOwn)
{
    std::string damaged = image_;
    damaged[10] = 'x';
    crc_of(damaged);
    crc_of(image_ + "x");
    damaged = image_;
    damaged[100] ^= 1;
    crc_of(damaged);
    valid(4, image_);
    valid(2, firmware_image("x", "another one"));
    write_text(kFile, std::string(4097, 'x'));
    check_mtd_size(2, kFile);
    write_text("/etc/board.json", "{}");
    check_mtd_size(2, kFile);
    crc_of("x");
    check_fw_valid(2, nullptr);
    EXPECT_THAT(
        logged,
        ElementsAre(testing::MatchesRegex("its header is damaged \\(checksum\\): [0-9a-f]{8} "
                                          "instead of [0-9a-f]{8}"),
                    "it is shorter or longer than its header says: 165 bytes instead of 164",
                    testing::MatchesRegex("its contents are damaged \\(checksum\\): [0-9a-f]{8} "
                                          "instead of [0-9a-f]{8}"),
                    "it is of another type: 2 instead of 4",
                    "it is for another board: \"another one\" instead of \"virtual-router\"",
                    "it is larger than the flash partition: 4097 bytes instead of 4096",
                    "the board has no flash partition of known size: /tmp/image",
                    "it is no firmware image: 1 bytes", "it cannot be read: no path"));
    std::set<std::string> words;
    for (int result = FW_CHECK_NO_PARTITION; result <= FW_CHECK_READ; ++result) {
        words.insert(fw_failure_text(result));
    }
    EXPECT_EQ(words.size(), 9U);
    EXPECT_EQ(words.count("it is not valid"), 0U);
    EXPECT_STREQ(fw_failure_text(-100), "it is not valid");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Firmware, TheLargestImageTakesNoMemory)
{
    SKIP_IF_EMULATED(test::kNoMemoryLimit);
    constexpr std::size_t kSize = std::size_t{64} * 1024 * 1024;
    std::string header = image_.substr(0, test::kImageHeaderSize);
    put_number(header, test::kImageDataSize, kSize - test::kImageHeaderSize);
    put_number(header, test::kImageDataCrc,
               crc32_z(0, reinterpret_cast<const Bytef *>(std::string(kSize - 64, '\0').data()),
                       kSize - test::kImageHeaderSize));
    write_text(kFile, sealed(header));
    ASSERT_EQ(truncate(kFile, kSize), 0);
    write_text("/etc/board.json",
               R"({"model": "virtual-router", "firmware": {"partition": "/f", "size": 67108864}})");
    EXPECT_TRUE(test::in_a_child([] {
        const int fd = open(kFile, O_RDONLY | O_CLOEXEC);
        auto *const image =
            static_cast<const char *>(mmap(nullptr, kSize, PROT_READ, MAP_SHARED, fd, 0));
        const rlimit little{1 << 20, 1 << 20};  // less than the process has: no more is to be had
        ASSERT_EQ(setrlimit(RLIMIT_DATA, &little), 0);
        ASSERT_EQ(malloc(std::size_t{16} << 20), nullptr);
        EXPECT_EQ(check_fw_type(image, kSize), 2);
        EXPECT_EQ(check_fw_crc(2, image, kSize), 0);
        EXPECT_EQ(check_fw_valid(2, kFile), 0);
        EXPECT_EQ(check_mtd_size(2, kFile), 0);
    }));
}
#endif

// ---- the partition ----------------------------------------------------------------------------

TEST_F(Firmware, WhatFitsThePartition)
{
    write_text(kFile, std::string(4096, 'x'));
    EXPECT_EQ(check_mtd_size(2, kFile), 0);
    write_text(kFile, std::string(4097, 'x'));
    EXPECT_EQ(check_mtd_size(2, kFile), FW_CHECK_TOO_LARGE);
    ASSERT_EQ(truncate(kFile, off_t{1} << 32), 0);
    EXPECT_EQ(check_mtd_size(2, kFile), FW_CHECK_TOO_LARGE);
}

/** What fw_partition() finds, as "path size"; "-" when it finds none and writes nothing. */
std::string partition_of(const std::string &board)
{
    write_text("/etc/board.json", board);
    char path[FW_PATH_SIZE] = "before";
    u64 size = 7;
    if (fw_partition(path, &size) != 0) {
        EXPECT_STREQ(path, "before");
        EXPECT_EQ(size, 7U);
        return "-";
    }
    return std::string{path} + " " + std::to_string(size);
}

TEST_F(Firmware, ThePartitionOfTheBoardFile)
{
    EXPECT_EQ(partition_of(kBoard), "/tmp/flash 4096");
    EXPECT_EQ(partition_of(R"({"firmware": {"partition": "/f", "size": 33554432}})"),
              "/f 33554432");
    for (const char *const board :
         {"", "{}", R"({"firmware": {}})", R"({"firmware": {"partition": "/f"}})",
          R"({"firmware": {"size": 4096}})", R"({"firmware": {"partition": "", "size": 4096}})",
          R"({"firmware": {"partition": "/f", "size": 0}})",
          R"({"firmware": {"partition": "/f", "size": -1}})",
          R"({"firmware": {"partition": "/f", "size": 1e300}})",
          R"({"firmware": {"partition": "/f", "size": "4096"}})",
          R"({"firmware": {"partition": 5, "size": 4096}})"}) {
        EXPECT_EQ(partition_of(board), "-") << board;
    }
    const std::string longest = "/" + std::string(254, 'x');
    EXPECT_EQ(partition_of("{\"firmware\": {\"partition\": \"" + longest + "\", \"size\": 1}}"),
              longest + " 1");
    EXPECT_EQ(partition_of("{\"firmware\": {\"partition\": \"" + longest + "x\", \"size\": 1}}"),
              "-");
}

TEST_F(Firmware, ThePartitionThatTheKernelKnows)
{
    const test::FakeProcNet proc;
    write_text("/tmp/mtd",
               "dev:    size   erasesize  name\n"
               "mtd0: 00040000 00020000 \"boot\"\n"
               "mtd5: 02000000 00020000 \"firmware\"\n"
               "mtd12: 00000800 00020000 \"second firmware\"\n"
               "mtd13: 04000000 00020000 \"firmware\"\n");
    ASSERT_EQ(symlink("/tmp/mtd", "/proc/mtd"), 0);
    EXPECT_EQ(partition_of("{}"), "/dev/mtdblock5 33554432");
    EXPECT_EQ(partition_of(R"({"firmware": {"mtd": "second firmware"}})"), "/dev/mtdblock12 2048");
    EXPECT_EQ(partition_of(R"({"firmware": {"mtd": "firm"}})"), "-");
    EXPECT_EQ(partition_of(R"({"firmware": {"partition": "/dev/x"}})"), "/dev/x 33554432");
    EXPECT_EQ(partition_of(R"({"firmware": {"size": 4096}})"), "/dev/mtdblock5 4096");
    write_text(kFile, std::string(2049, 'x'));
    write_text("/etc/board.json", R"({"firmware": {"mtd": "second firmware"}})");
    EXPECT_EQ(check_mtd_size(2, kFile), FW_CHECK_TOO_LARGE);
    ASSERT_EQ(truncate(kFile, 2048), 0);
    EXPECT_EQ(check_mtd_size(2, kFile), 0);
    for (const char *const text : {"", "dev:\n", "mtd: x y \"firmware\"\n", "mtd5: 1000\n",
                                   "mtd5: 1000 2000 firmware\n", "\n\n\"firmware\"\n"}) {
        write_text("/tmp/mtd", text);
        EXPECT_EQ(partition_of("{}"), "-") << text;
    }
}

}  // namespace

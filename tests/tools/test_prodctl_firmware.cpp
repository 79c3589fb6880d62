// SPDX-License-Identifier: MIT
// The group firmware.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/firmware.h"
#include "prod_common_flash.h"
#include "support/files.hpp"
#include "support/image.hpp"
#include "tool.hpp"

using test::answer;
using test::firmware_image;
using test::noise;
using test::Outcome;
using test::prodctl;
using test::read_text;
using test::refuses;
using test::write_text;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

constexpr const char *kImage = "/tmp/image";
constexpr const char *kFlash = "/tmp/flash";

class Firmware : public testing::Test
{
  protected:
    void SetUp() override
    {
        write_text("/etc/board.json", test::kBoardWithFlash);
        write_text(kFlash, "old");
        write_text(kImage, image_);
        test::remove_all(PROD_FW_IMAGE);
    }
    const std::string image_ = firmware_image(noise(200000));
};

TEST_F(Firmware, AGoodImage)
{
    EXPECT_EQ(prodctl({"firmware", "check", kImage}),
              (Outcome{0, "/tmp/image 200064 bytes, type flash can be written\n", ""}));
    EXPECT_EQ(
        prodctl({"firmware", "check", kImage, "--json"}),
        (Outcome{0, "{\"file\":\"/tmp/image\",\"size\":200064,\"type\":2,\"valid\":true}\n", ""}));
    EXPECT_EQ(read_text(kImage), image_);
}

TEST_F(Firmware, BadImages)
{
    std::string header = image_;
    header[20] = static_cast<char>(header[20] ^ 1);
    std::string contents = image_;
    contents[100000] = static_cast<char>(contents[100000] ^ 1);
    const struct {
        std::string image;
        std::string json;
        const char *text;
    } kCases[] = {
        {"", "\"size\":0,\"valid\":false,\"reason\":\"size\"",
         "it is empty, or larger than 64 MiB"},
        {noise(1000), "\"size\":1000,\"valid\":false,\"reason\":\"no-image\"",
         "it is no firmware image"},
        {header, "\"size\":200064,\"type\":2,\"valid\":false,\"reason\":\"header-damaged\"",
         "its header is damaged"},
        {contents, "\"size\":200064,\"type\":2,\"valid\":false,\"reason\":\"contents-damaged\"",
         "its contents are damaged"},
        {image_ + "x", "\"size\":200065,\"type\":2,\"valid\":false,\"reason\":\"length\"",
         "it is cut short, or something follows it"},
        {firmware_image("x", test::kImageForThisBoard, "multi"),
         "\"size\":73,\"type\":4,\"valid\":false,\"reason\":\"type\"",
         "it is of a type that is not written on this device"},
        {firmware_image("x", "another"),
         "\"size\":65,\"type\":2,\"valid\":false,\"reason\":\"board\"", "it is for another board"},
        {firmware_image(noise(1000000)),
         "\"size\":1000064,\"type\":2,\"valid\":false,\"reason\":\"too-large\"",
         "it is larger than the flash partition"},
    };
    for (const auto &kCase : kCases) {
        for (const char *const command : {"check", "write"}) {
            write_text(kImage, kCase.image);
            const std::string said =
                std::string{"prodctl firmware "} + command + ": /tmp/image: " + kCase.text + "\n";
            EXPECT_EQ(prodctl({"firmware", command, kImage}), (Outcome{1, "", said}));
            EXPECT_EQ(prodctl({"firmware", command, kImage, "--json"}),
                      (Outcome{1, "{\"file\":\"/tmp/image\"," + kCase.json + "}\n", said}));
            EXPECT_EQ(read_text(kImage), kCase.image);  // nothing is deleted
            EXPECT_EQ(read_text(kFlash), "old");
            EXPECT_FALSE(test::exists(PROD_FW_IMAGE));
        }
    }
}

TEST_F(Firmware, AnImageTooLargeForAnyDevice)
{
    ASSERT_EQ(truncate(kImage, 67108865), 0);
    EXPECT_EQ(prodctl({"firmware", "check", kImage}).err,
              "prodctl firmware check: /tmp/image: it is empty, or larger than 64 MiB\n");
}

TEST_F(Firmware, ABoardWithoutAPartition)
{
    write_text("/etc/board.json", R"({"model": "virtual-router"})");
    EXPECT_EQ(prodctl({"firmware", "check", kImage}).err,
              "prodctl firmware check: /tmp/image: this board has no flash partition for it\n");
    EXPECT_EQ(prodctl({"firmware", "check", kImage, "--json"}).out,
              "{\"file\":\"/tmp/image\",\"size\":200064,\"type\":2,\"valid\":false,"
              "\"reason\":\"no-partition\"}\n");
}

TEST_F(Firmware, FilesThatAreNone)
{
    EXPECT_EQ(prodctl({"firmware", "check", "/tmp/none", "--json"}),
              (Outcome{1, "{\"file\":\"/tmp/none\",\"valid\":false,\"reason\":\"unreadable\"}\n",
                       "prodctl firmware check: /tmp/none: it cannot be read: No such file or "
                       "directory\n"}));
    EXPECT_EQ(prodctl({"firmware", "check", "/tmp"}).err,
              "prodctl firmware check: /tmp: it cannot be read: Invalid argument\n");
    test::remove_all("/tmp/pipe");
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    EXPECT_EQ(prodctl({"firmware", "check", "/tmp/pipe"}).status, 1);
}

TEST_F(Firmware, WritingOnADeviceThatDoesNotRestart)
{
    const Outcome outcome = prodctl({"firmware", "write", kImage, "--wait", "0", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out,
              "{\"file\":\"/tmp/image\",\"size\":200064,\"type\":2,\"valid\":true,"
              "\"restarted\":false}\n");
    EXPECT_THAT(outcome.err, StartsWith("prodctl: 30 % copied\n"));
    EXPECT_THAT(outcome.err, HasSubstr("\nprodctl: 100 % copied\n"));
    EXPECT_THAT(outcome.err, HasSubstr("\nprodctl: stopping the daemons\n"));
    EXPECT_THAT(outcome.err, HasSubstr("upgrade: /var/image, 200064 bytes, goes to /tmp/flash, "
                                       "asked for by prodctl\n"));
    EXPECT_THAT(outcome.err, HasSubstr("\nupgrade: 100 % written\n"));
    EXPECT_THAT(outcome.err, EndsWith("\nprodctl firmware write: the device does not restart\n"));
    EXPECT_EQ(read_text(PROD_FW_IMAGE), image_);
    EXPECT_EQ(read_text(kFlash), image_);
}

TEST_F(Firmware, WritingTheStoredImageItself)
{
    write_text(PROD_FW_IMAGE, image_);
    const Outcome outcome = prodctl({"firmware", "write", PROD_FW_IMAGE, "--wait=0"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, testing::Not(HasSubstr("copied")));
    EXPECT_EQ(read_text(kFlash), image_);
}

TEST_F(Firmware, NoRoomForTheStoredImage)
{
    const test::MountedFolder folder{"/var"};
    const Outcome outcome = prodctl({"firmware", "write", kImage});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err,
                EndsWith("prodctl firmware write: /var/image: No space left on device\n"));
    EXPECT_FALSE(test::exists("/var/image.new"));
    EXPECT_EQ(read_text(kFlash), "old");
}

TEST_F(Firmware, WrongArguments)
{
    refuses({"firmware"}, "prodctl firmware", "a command is missing");
    refuses({"firmware", "check"}, "prodctl firmware check",
            "an argument is missing, expected: FILE");
    refuses({"firmware", "write", "a", "b"}, "prodctl firmware write",
            "too many arguments, expected: FILE");
    refuses({"firmware", "write", kImage, "--wait", "x"}, "prodctl firmware write",
            "--wait: 'x' is no number from 0 to 86400");
    refuses({"firmware", "write", kImage, "--wait", "-1"}, "prodctl firmware write",
            "--wait: '-1' is no number from 0 to 86400");
    EXPECT_EQ(read_text(kFlash), "old");
}

}  // namespace

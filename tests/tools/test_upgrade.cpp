// SPDX-License-Identifier: MIT
// The flash writer, on a partition that is a file.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "platform/firmware.h"
#include "support/files.hpp"
#include "support/image.hpp"
#include "tool.hpp"

using test::firmware_image;
using test::noise;
using test::Outcome;
using test::read_text;
using test::sealed;
using test::Words;
using test::write_script;
using test::write_text;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

constexpr const char *kFlash = "/tmp/flash";
constexpr const char *kImage = "/tmp/image";
constexpr const char *kRebooted = "/tmp/rebooted";
constexpr const char *kPath = "/tmp/bin:/usr/bin:/bin";

class Upgrade : public testing::Test
{
  protected:
    void SetUp() override
    {
        write_text("/etc/board.json", test::kBoardWithFlash);
        write_script("/tmp/bin/reboot", std::string{"cp "} + kFlash + " " + kRebooted +
                                            "\nexit ${REBOOT_STATUS:-0}\n");
        test::remove_all(kRebooted);
        write_text(kFlash, old_);
        write_text(kImage, image_);
    }

    /** Whether the device restarted, with this in its flash. */
    static bool restarted_with(const std::string &image)
    {
        return test::exists(kRebooted) && read_text(kRebooted) == image;
    }

    const std::string old_ = firmware_image(noise(300000), "virtual-router old");
    const std::string image_ = firmware_image(noise(200000));
};

/** Runs the tool, with a fault of the flash when one is named. */
Outcome upgrade(const Words &arguments, const std::string &fault = "")
{
    Words words{UPGRADE};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return test::program(words, "", [&] {
        setenv("PATH", kPath, 1);
        if (!fault.empty()) {
            setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
            setenv("LD_PRELOAD", FLASH_FAULTS, 1);
            setenv("FLASH_FAULT", fault.c_str(), 1);
        }
    });
}

const Words kOrdinary{"2", kImage, "imsd"};

TEST_F(Upgrade, WritesAndRestarts)
{
    const Outcome outcome = upgrade(kOrdinary);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out,
                StartsWith("upgrade: /tmp/image, 200064 bytes, goes to /tmp/flash, asked for by "
                           "imsd\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\nupgrade: 30 % written\n"));
    EXPECT_THAT(outcome.out, EndsWith("\nupgrade: 100 % written\n"
                                      "upgrade: written and read back, the device restarts\n"));
    EXPECT_TRUE(restarted_with(image_));
    EXPECT_EQ(read_text(kImage), image_);
}

TEST_F(Upgrade, ImagesOfAnySize)
{
    for (const std::size_t size :
         {1UL, 63UL, 64UL, 65535UL, 65536UL, 65537UL, 131072UL, 999936UL}) {
        SCOPED_TRACE(size);
        const std::string image = firmware_image(noise(size));
        write_text(kImage, image);
        EXPECT_EQ(upgrade(kOrdinary).status, 0);
        EXPECT_TRUE(restarted_with(image));
    }
}

TEST_F(Upgrade, RefusesWhatTheChecksRefuse)
{
    std::string header = image_;
    header[20] = static_cast<char>(header[20] ^ 1);
    std::string contents = image_;
    contents[100000] = static_cast<char>(contents[100000] ^ 1);
    std::string lying = image_;
    test::put_number(lying, test::kImageDataSize, 0xffffffff);
    const struct {
        std::string image;
        const char *reason;
    } kCases[] = {
        {"", "it is no firmware image"},
        {image_.substr(0, 63), "it is no firmware image"},
        {noise(1000), "it is no firmware image"},
        {header, "its header is damaged (checksum)"},
        {contents, "its contents are damaged (checksum)"},
        {image_.substr(0, 200063), "it is shorter or longer than its header says"},
        {image_ + "x", "it is shorter or longer than its header says"},
        {sealed(lying), "it is shorter or longer than its header says"},
        {firmware_image("x", test::kImageForThisBoard, "multi"), "it is of another type"},
        {firmware_image("x", "another-board"), "it is for another board"},
        {firmware_image(noise(999937)), "it is larger than the flash partition"},
    };
    for (const auto &kCase : kCases) {
        write_text(kImage, kCase.image);
        EXPECT_EQ(upgrade(kOrdinary),
                  (Outcome{1, "",
                           std::string{"upgrade: /tmp/image is refused: "} + kCase.reason + "\n"}));
        EXPECT_EQ(read_text(kFlash), old_);
        EXPECT_FALSE(test::exists(kRebooted));
    }
}

TEST_F(Upgrade, RefusesFilesThatAreNone)
{
    EXPECT_EQ(upgrade({"2", "/tmp/none", "imsd"}),
              (Outcome{1, "", "upgrade: /tmp/none: No such file or directory\n"}));
    EXPECT_EQ(upgrade({"2", "/tmp", "imsd"}),
              (Outcome{1, "", "upgrade: /tmp is refused: it is no firmware image\n"}));
    test::remove_all("/tmp/pipe");
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    EXPECT_EQ(upgrade({"2", "/tmp/pipe", "imsd"}),
              (Outcome{1, "", "upgrade: /tmp/pipe is refused: it is no firmware image\n"}));
    EXPECT_EQ(read_text(kFlash), old_);
}

TEST_F(Upgrade, RefusesWithoutAPartition)
{
    test::remove_all(kFlash);
    EXPECT_EQ(upgrade(kOrdinary),
              (Outcome{1, "", "upgrade: /tmp/flash: No such file or directory\n"}));
    EXPECT_FALSE(test::exists(kFlash));
    write_text("/etc/board.json", R"({"model": "virtual-router"})");
    EXPECT_EQ(upgrade(kOrdinary), (Outcome{1, "",
                                           "upgrade: /tmp/image is refused: the board has no flash "
                                           "partition of known size\n"}));
}

TEST_F(Upgrade, OneAtATime)
{
    const int other = open(kFlash, O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    EXPECT_EQ(upgrade(kOrdinary),
              (Outcome{1, "", "upgrade: /tmp/flash: another upgrade is writing it\n"}));
    close(other);
    EXPECT_EQ(read_text(kFlash), old_);
    EXPECT_EQ(upgrade(kOrdinary).status, 0);
}

TEST_F(Upgrade, AFullDiskIsSeenBeforeAnythingIsWritten)
{
    const test::MountedFolder folder{"/tmp/small"};
    write_text("/tmp/small/flash", "old");
    write_text("/etc/board.json", R"({"model": "virtual-router",
        "firmware": {"partition": "/tmp/small/flash", "size": 1000000}})");
    EXPECT_EQ(upgrade(kOrdinary),
              (Outcome{1, "", "upgrade: /tmp/small/flash: No space left on device\n"}));
    EXPECT_EQ(read_text("/tmp/small/flash").substr(0, 3), "old");
    EXPECT_FALSE(test::exists(kRebooted));
}

TEST_F(Upgrade, WrongCommandLines)
{
    const struct {
        Words words;
        const char *said;
    } kCases[] = {
        {{},
         "upgrade: TYPE, IMAGE and PROCESS are needed, and nothing else\n"
         "usage: upgrade TYPE IMAGE PROCESS"},
        {{"2"}, "upgrade: TYPE, IMAGE and PROCESS are needed"},
        {{"2", kImage}, "upgrade: TYPE, IMAGE and PROCESS are needed"},
        {{"2", kImage, "a", "b"}, "upgrade: TYPE, IMAGE and PROCESS are needed"},
        {{"4", kImage, "imsd"}, "upgrade: type 4 is not written on this device, only 2 is\n"},
        {{"-2", kImage, "imsd"}, "upgrade: type -2 is"},
        {{"2x", kImage, "imsd"}, "upgrade: type 2x is"},
        {{"", kImage, "imsd"}, "upgrade: type  is"},
        {{"2", kImage, ""}, "upgrade: PROCESS is no name of a process\n"},
        {{"2", kImage, "a b"}, "upgrade: PROCESS is"},
        {{"2", kImage, "a\nb"}, "upgrade: PROCESS is"},
        {{"2", kImage, "$(x)"}, "upgrade: PROCESS is"},
    };
    for (const auto &kCase : kCases) {
        const Outcome outcome = upgrade(kCase.words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, StartsWith(kCase.said));
    }
    EXPECT_EQ(read_text(kFlash), old_);
    EXPECT_FALSE(test::exists(kRebooted));
    test::explains_itself(UPGRADE, "usage: upgrade TYPE IMAGE PROCESS", TOOL_SOURCES "/upgrade.1",
                          {"TYPE", "IMAGE", "PROCESS", "--help"});
}

TEST_F(Upgrade, InterruptedAndShortTransfers)
{
    EXPECT_EQ(upgrade(kOrdinary, "short").status, 0);
    EXPECT_TRUE(restarted_with(image_));
}

TEST_F(Upgrade, FlashThatForgetsIsWrittenAgain)
{
    const Outcome outcome = upgrade(kOrdinary, "spoil 1");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "upgrade: /tmp/flash: what is read back differs (attempt 1 of 3)\n");
    EXPECT_TRUE(restarted_with(image_));
}

TEST_F(Upgrade, FlashThatKeepsForgettingDoesNotRestart)
{
    const Outcome outcome = upgrade(kOrdinary, "spoil 1000");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(
        outcome.err,
        "upgrade: /tmp/flash: what is read back differs (attempt 1 of 3)\n"
        "upgrade: /tmp/flash: what is read back differs (attempt 2 of 3)\n"
        "upgrade: /tmp/flash: what is read back differs (attempt 3 of 3)\n"
        "upgrade: FAILED: /tmp/flash HOLDS NO WHOLE IMAGE NOW. The device does not restart by "
        "itself: do not switch it off, run the upgrade again.\n");
    EXPECT_FALSE(test::exists(kRebooted));
    EXPECT_EQ(upgrade(kOrdinary).status, 0);
    EXPECT_TRUE(restarted_with(image_));
}

TEST_F(Upgrade, FlashThatIsWriteProtected)
{
    const std::string old = firmware_image(noise(200001).substr(1));
    write_text(kFlash, old);
    const Outcome outcome = upgrade(kOrdinary, "ignore");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.err, HasSubstr("what is read back differs (attempt 3 of 3)\n"));
    EXPECT_EQ(read_text(kFlash), old);
    EXPECT_FALSE(test::exists(kRebooted));
}

TEST_F(Upgrade, EveryStepThatFails)
{
    // The first is the room in the partition, before which nothing is written.
    EXPECT_EQ(upgrade(kOrdinary, "fail 1"),
              (Outcome{1, "", "upgrade: /tmp/flash: Input/output error\n"}));
    EXPECT_EQ(read_text(kFlash), old_);
    int fault = 2;
    for (; fault < 100; ++fault) {
        SCOPED_TRACE(fault);
        SetUp();
        const Outcome outcome = upgrade(kOrdinary, "fail " + std::to_string(fault));
        EXPECT_EQ(outcome.status, 0);
        EXPECT_TRUE(restarted_with(image_));
        if (outcome.err.empty()) {
            break;
        }
        EXPECT_EQ(outcome.err, "upgrade: /tmp/flash: Input/output error (attempt 1 of 3)\n");
    }
    EXPECT_EQ(fault, 12);  // behind the wiping, four chunks, the length, the header: three fsyncs
}

TEST_F(Upgrade, KilledAtEachStep)
{
    int old = 0;
    int none = 0;
    int step = 1;
    for (; step < 100; ++step) {
        SCOPED_TRACE(step);
        SetUp();
        const int status = upgrade(kOrdinary, "kill " + std::to_string(step)).status;
        if (status == 0) {
            break;
        }
        EXPECT_EQ(status, 128 + SIGKILL);
        EXPECT_FALSE(test::exists(kRebooted));
        const std::string flash = read_text(kFlash);
        if (flash == old_) {
            ++old;
        } else if (flash != image_) {
            ++none;
            EXPECT_EQ(check_fw_type(flash.data(), static_cast<long>(flash.size())),
                      FW_CHECK_FORMAT);
        }
        EXPECT_EQ(read_text(kImage), image_);
        // Whatever is left, the next upgrade does its work.
        EXPECT_EQ(upgrade(kOrdinary).status, 0);
        EXPECT_TRUE(restarted_with(image_));
    }
    EXPECT_EQ(step, 13);
    EXPECT_EQ(old, 2);
    EXPECT_EQ(none, 8);
}

TEST_F(Upgrade, ADeviceThatDoesNotRestart)
{
    write_script("/tmp/bin/reboot", "exit 1\n");
    Outcome outcome = upgrade(kOrdinary);
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.err, "upgrade: the image is written, but the device does not restart\n");
    EXPECT_EQ(read_text(kFlash), image_);
}

TEST_F(Upgrade, SignalsDoNotCutItShort)
{
    for (int step = 2; step <= 12; ++step) {  // behind the first it writes
        SCOPED_TRACE(step);
        SetUp();
        EXPECT_EQ(upgrade(kOrdinary, "signal " + std::to_string(step)).status, 0);
        EXPECT_TRUE(restarted_with(image_));
    }
    write_script("/tmp/bin/reboot", "for s in HUP INT QUIT TERM PIPE; do kill -$s $PPID; done\n");
    EXPECT_EQ(upgrade(kOrdinary).status, 0);
    EXPECT_EQ(read_text(kFlash), image_);
}

TEST_F(Upgrade, WithoutAConsole)
{
    const Outcome outcome = test::program({UPGRADE, "2", kImage, "imsd"}, "", [] {
        setenv("PATH", kPath, 1);
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(restarted_with(image_));
}

}  // namespace

// SPDX-License-Identifier: MIT
// A USB disk with two partitions is plugged in: the file that the web pages read, and the partition
// that the audit trail goes to.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "prod_common_usb.h"
#include "stories.hpp"
#include "support/files.hpp"

using story::Json;
using story::must;

namespace
{

constexpr double kMebibyte = 1.0 / 1024;

class Usb : public testing::Test
{
  protected:
    void SetUp() override
    {
        // The partitions' folder has two names; the block devices are the story's own.
        must("mkdir -p /etc/upan && ln -s /etc /var/etc");
        must("mount -t tmpfs none /sys/block && mkdir /sys/block/sda /sys/block/mtdblock0");
    }

    static void plug_in(const std::string &partition, const std::string &size)
    {
        must("mkdir -p /etc/upan/" + partition + " && mount -t tmpfs -o size=" + size +
             " none /etc/upan/" + partition);
    }
    static void pull(const std::string &partition)
    {
        must("umount /etc/upan/" + partition + " && rmdir /etc/upan/" + partition);
    }
};

double gib(const Json &volume, const char *figure)
{
    return volume[figure].number();
}

TEST_F(Usb, TwoPartitionsInTheVolumeFile)
{
    plug_in("sda1", "256m");
    plug_in("sda2", "512m");
    must("head -c 67108864 /dev/zero >/etc/upan/sda2/film");
    const Json volumes = Json::answer_of("prodctl usb volumes --json")["volumes"];
    ASSERT_EQ(volumes.items().size(), 2U);
    const Json one = volumes.where("name", "sda1");
    EXPECT_EQ(gib(one, "total_gib"), 0.25);
    EXPECT_EQ(gib(one, "used_gib"), 0);
    const Json two = volumes.where("name", "sda2");
    EXPECT_EQ(gib(two, "total_gib"), 0.5);
    EXPECT_NEAR(gib(two, "used_gib"), 64 * kMebibyte, kMebibyte);
    EXPECT_NEAR(gib(two, "available_gib"), (512 - 64) * kMebibyte, kMebibyte);

    const std::string file = test::read_text("/tmp/UsbVolumeInfo");
    EXPECT_NE(file.find("sda1:0.250000G*0.000000G*0.250000G*0.250000G~"), std::string::npos)
        << file;
    EXPECT_NE(file.find("sda2:0.500000G*0.062500G*0.437500G*0.437500G~"), std::string::npos)
        << file;
    EXPECT_EQ(std::count(file.begin(), file.end(), '~'), 2);
}

TEST_F(Usb, APartitionThatIsPulled)
{
    plug_in("sda1", "1m");
    plug_in("sda2", "1m");
    EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK);
    pull("sda1");
    EXPECT_EQ(prod_common_get_usbvolume(), HLX_OK);
    const std::string file = test::read_text("/tmp/UsbVolumeInfo");
    EXPECT_EQ(file.rfind("sda2:", 0), 0U) << file;
    EXPECT_EQ(std::count(file.begin(), file.end(), '~'), 1) << file;
}

TEST_F(Usb, TheAuditTrailGoesToTheFirstPartition)
{
    EXPECT_EQ(story::run("prodctl audit storage").status, 1);
    plug_in("sda2", "1m");
    plug_in("sda1", "1m");
    EXPECT_EQ(must("prodctl audit storage"), "sda1\n");
    EXPECT_NE(test::read_text("/cfg/cfm.cfg").find("audit.usb.storage.dir=sda1\n"),
              std::string::npos);
    pull("sda1");
    EXPECT_EQ(must("prodctl audit storage"), "sda2\n");
    EXPECT_EQ(must("cfm get audit.usb.storage.dir"), "sda2\n");
    pull("sda2");
    EXPECT_EQ(story::run("prodctl audit storage").status, 1);
    EXPECT_EQ(must("cfm get audit.usb.storage.dir"), "sda2\n") << "the last choice stays";
}

}  // namespace

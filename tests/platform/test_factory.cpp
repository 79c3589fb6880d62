// SPDX-License-Identifier: MIT
#include "platform/factory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/files.hpp"

using test::write_text;

namespace
{

constexpr const char *kBoard = "/etc/board.json";

class Factory : public testing::Test
{
  protected:
    struct Setting {
        int result;
        std::string text;
        bool operator==(const Setting &) const = default;
    };

    static Setting read(const char *name)
    {
        char value[FACTORY_VALUE_SIZE];
        memset(value, 'x', sizeof(value));
        const int result = ApmibGetValue(name, value);
        return {result, {value, strnlen(value, sizeof(value))}};
    }

    static constexpr Setting kMissing() { return {0, ""}; }

  private:
    const test::KeptFile board_{kBoard};
};

TEST_F(Factory, OfTheVirtualBoard)
{
    const int before = test::open_descriptors();
    EXPECT_EQ(read("HW_NIC0_ADDR"), (Setting{1, "020000100000"}));
    EXPECT_EQ(read("QX_ATE_SN"), (Setting{1, "V0000000001"}));
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(Factory, TheBaseMac)
{
    write_text(kBoard, R"({"mac": "2:a:Bc:dE:0:ff", "factory": {"HW_NIC0_ADDR": "no"}})");
    EXPECT_EQ(read("HW_NIC0_ADDR"), (Setting{1, "020ABCDE00FF"}));
    for (const char *const mac : {R"("")", R"("02:00:00:10:00")", R"("02:00:00:10:00:00:00")",
                                  R"("020000100000")", R"("02:00:00:10:00:0g")", "7", "null"}) {
        write_text(kBoard, std::string{R"({"mac": )"} + mac + "}");
        EXPECT_EQ(read("HW_NIC0_ADDR"), kMissing()) << mac;
    }
}

TEST_F(Factory, OtherSettings)
{
    write_text(kBoard, R"({"mac": "02:00:00:10:00:00",
                           "factory": {"QX_ATE_SN": "V 1\"2", "empty": "", "number": 7, "list": []}})");
    EXPECT_EQ(read("QX_ATE_SN"), (Setting{1, "V 1\"2"}));
    for (const char *const name : {"QX_ATE", "QX_ATE_SN2", "qx_ate_sn", "empty", "number", "list",
                                   "", "factory", "mac", "hw_nic0_addr", "HW_NIC1_ADDR"}) {
        EXPECT_EQ(read(name), kMissing()) << name;
    }
}

TEST_F(Factory, LongValuesAreCut)
{
    const std::string longest(FACTORY_VALUE_SIZE - 1, 'v');
    for (const std::string &value : {longest, longest + "x", longest + longest}) {
        write_text(kBoard, R"({"factory": {"A": ")" + value + "\"}}");
        EXPECT_EQ(read("A"), (Setting{1, longest}));
    }
}

TEST_F(Factory, WithoutABoardFile)
{
    for (const char *const text : {"", "{", "[]", "7", "{}", R"({"mac": [], "factory": 7})"}) {
        write_text(kBoard, text);
        EXPECT_EQ(read("HW_NIC0_ADDR"), kMissing()) << text;
        EXPECT_EQ(read("QX_ATE_SN"), kMissing()) << text;
    }
    test::remove_all(kBoard);
    EXPECT_EQ(read("HW_NIC0_ADDR"), kMissing());
}

TEST_F(Factory, NullArguments)
{
    char value[FACTORY_VALUE_SIZE] = "before";
    EXPECT_EQ(ApmibGetValue(nullptr, value), 0);
    EXPECT_STREQ(value, "before");
    EXPECT_EQ(ApmibGetValue("HW_NIC0_ADDR", nullptr), 0);
}

}  // namespace

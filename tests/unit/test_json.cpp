// SPDX-License-Identifier: MIT
#include "json.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <memory>

#include "support/config.hpp"
#include "support/files.hpp"

using test::config;

// The path looked at, and the answer, which is the platform's affair.
namespace
{

std::string path_asked;
int path_exists;

}  // namespace

extern "C" int file_check_exist_or_not(const char *path)
{
    path_asked = path;
    return path_exists;
}

namespace
{

using Tree = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

/** A tree as the shortest text. */
std::string text_of(const cJSON *tree)
{
    const std::unique_ptr<char, decltype(&cJSON_free)> text{cJSON_PrintUnformatted(tree),
                                                            cJSON_free};
    return text != nullptr ? text.get() : "(none)";
}

/** What is in a new object after some code added to it. */
std::string object(const std::function<void(cJSON *)> &add)
{
    const Tree tree{cJSON_CreateObject(), cJSON_Delete};
    add(tree.get());
    return text_of(tree.get());
}

/** What is in a new array after some code added to it. */
std::string array(const std::function<void(cJSON *)> &add)
{
    const Tree tree{cJSON_CreateArray(), cJSON_Delete};
    add(tree.get());
    return text_of(tree.get());
}

// ---- getters ---------------------------------------------------------------------------------

class JsonGet : public testing::Test
{
  protected:
    const Tree tree_{cJSON_Parse(R"({"int":42,"double":-2.75,"big":1e12,"true":true,"false":false,
        "text":"abc","digits":"7","null":null,"array":[1],"object":{"int":1}})"),
                     cJSON_Delete};
    cJSON *const root_ = tree_.get();

    static constexpr const char *kNotNumbers[] = {"true", "false", "text",   "digits",
                                                  "null", "array", "object", "missing"};
};

TEST_F(JsonGet, Integers)
{
    EXPECT_EQ(cJSON_GetInt(root_, "int", -1), 42);
    EXPECT_EQ(cJSON_GetInt(root_, "double", -1), -2);
    EXPECT_EQ(cJSON_GetInt(root_, "big", -1), INT_MAX);
    EXPECT_EQ(cJSON_GetInt(root_, "INT", -1), 42);
    for (const char *name : kNotNumbers) {
        EXPECT_EQ(cJSON_GetInt(root_, name, -1), -1) << name;
    }
}

TEST_F(JsonGet, Doubles)
{
    EXPECT_EQ(cJSON_GetDouble(root_, "int", -1), 42.0);
    EXPECT_EQ(cJSON_GetDouble(root_, "double", -1), -2.75);
    EXPECT_EQ(cJSON_GetDouble(root_, "big", -1), 1e12);
    for (const char *name : kNotNumbers) {
        EXPECT_EQ(cJSON_GetDouble(root_, name, -0.5), -0.5) << name;
    }
}

TEST_F(JsonGet, Bools)
{
    EXPECT_EQ(cJSON_GetBool(root_, "true", 7), 1);
    EXPECT_EQ(cJSON_GetBool(root_, "false", 7), 0);
    for (const char *name :
         {"int", "double", "text", "digits", "null", "array", "object", "missing"}) {
        EXPECT_EQ(cJSON_GetBool(root_, name, 7), 7) << name;
    }
    // A number is no truth value, even 1.
    const Tree one{cJSON_Parse(R"({"a":1})"), cJSON_Delete};
    EXPECT_EQ(cJSON_GetBool(one.get(), "a", 0), 0);
}

TEST_F(JsonGet, Texts)
{
    char fallback[] = "default";
    EXPECT_STREQ(cJSON_GetString(root_, "text", fallback), "abc");
    EXPECT_EQ(cJSON_GetString(root_, "text", fallback),
              cJSON_GetObjectItem(root_, "text")->valuestring)
        << "the tree's own text";
    for (const char *name : {"int", "true", "false", "null", "array", "object", "missing"}) {
        EXPECT_EQ(cJSON_GetString(root_, name, fallback), fallback) << name;
    }
    EXPECT_EQ(cJSON_GetString(root_, "missing", nullptr), nullptr);
}

TEST_F(JsonGet, ItemsWithFlagsOfCJSON)
{
    const Tree tree{cJSON_CreateObject(), cJSON_Delete};
    cJSON_AddItemToObjectCS(tree.get(), "n", cJSON_CreateNumber(3));
    cJSON_AddItemToObjectCS(tree.get(), "s", cJSON_CreateStringReference("ref"));
    cJSON_AddItemToObjectCS(tree.get(), "t", cJSON_CreateTrue());
    EXPECT_EQ(cJSON_GetInt(tree.get(), "n", -1), 3);
    EXPECT_EQ(cJSON_GetDouble(tree.get(), "n", -1), 3.0);
    EXPECT_STREQ(cJSON_GetString(tree.get(), "s", nullptr), "ref");
    EXPECT_EQ(cJSON_GetBool(tree.get(), "t", -1), 1);
}

TEST_F(JsonGet, NullsGiveTheDefault)
{
    char fallback[] = "default";
    EXPECT_EQ(cJSON_GetInt(nullptr, "int", 5), 5);
    EXPECT_EQ(cJSON_GetInt(root_, nullptr, 5), 5);
    EXPECT_EQ(cJSON_GetDouble(nullptr, "int", 5), 5.0);
    EXPECT_EQ(cJSON_GetDouble(root_, nullptr, 5), 5.0);
    EXPECT_EQ(cJSON_GetBool(nullptr, "true", 5), 5);
    EXPECT_EQ(cJSON_GetBool(root_, nullptr, 5), 5);
    EXPECT_EQ(cJSON_GetString(nullptr, "text", fallback), fallback);
    EXPECT_EQ(cJSON_GetString(root_, nullptr, fallback), fallback);
}

TEST_F(JsonGet, AnythingButAnObjectHasNoMembers)
{
    const Tree list{cJSON_Parse("[1,2]"), cJSON_Delete};
    const Tree number{cJSON_Parse("4"), cJSON_Delete};
    EXPECT_EQ(cJSON_GetInt(list.get(), "int", 5), 5);
    EXPECT_EQ(cJSON_GetInt(number.get(), "int", 5), 5);
}

// ---- arrays ----------------------------------------------------------------------------------

TEST(JsonArray, OneOfEachInOrder)
{
    EXPECT_EQ(array([](cJSON *a) {
                  cJSON_AddNullToArray(a);
                  cJSON_AddTrueToArray(a);
                  cJSON_AddFalseToArray(a);
                  cJSON_AddBoolToArray(a, 0);
                  cJSON_AddBoolToArray(a, 1);
                  cJSON_AddBoolToArray(a, -3);
                  cJSON_AddNumberToArray(a, 7);
                  cJSON_AddNumberToArray(a, -0.5);
                  cJSON_AddStringToArray(a, "");
                  cJSON_AddStringToArray(a, "a\"b");
              }),
              R"([null,true,false,false,true,true,7,-0.5,"","a\"b"])");
}

TEST(JsonArray, TextsAreCopied)
{
    EXPECT_EQ(array([](cJSON *a) {
                  char text[] = "abc";
                  cJSON_AddStringToArray(a, text);
                  text[0] = 'x';
              }),
              R"(["abc"])");
}

TEST(JsonArray, NullsAddNothing)
{
    cJSON_AddNullToArray(nullptr);
    cJSON_AddTrueToArray(nullptr);
    cJSON_AddFalseToArray(nullptr);
    cJSON_AddBoolToArray(nullptr, 1);
    cJSON_AddNumberToArray(nullptr, 1);
    cJSON_AddStringToArray(nullptr, "a");
    EXPECT_EQ(array([](cJSON *a) { cJSON_AddStringToArray(a, nullptr); }), "[]");
}

// ---- formatted text --------------------------------------------------------------------------

TEST(JsonFormat, AFormattedMember)
{
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddFormatStringToObject(o, "a", "%d.%s", 4, "x");
                  cJSON_AddFormatStringToObject(o, "b", "%s", "");
              }),
              R"({"a":"4.x","b":""})");
}

TEST(JsonFormat, IsCutAt255Characters)
{
    const std::string text(255, 'f');
    for (const std::string more : {"", "m", "more and more"}) {
        EXPECT_EQ(object([&](cJSON *o) {
                      cJSON_AddFormatStringToObject(o, "a", "%s", (text + more).c_str());
                  }),
                  R"({"a":")" + text + R"("})");
    }
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"

TEST(JsonFormat, NullsAddNothing)
{
    const char *volatile null = nullptr;  // the compiler knows better than to let one pass
    cJSON_AddFormatStringToObject(nullptr, "a", "b");
    EXPECT_EQ(object([&](cJSON *o) {
                  cJSON_AddFormatStringToObject(o, nullptr, "b");
                  cJSON_AddFormatStringToObject(o, "a", null);
              }),
              "{}");
}

// ---- configuration, fixed keys ---------------------------------------------------------------

class JsonConfig : public testing::Test
{
    test::FreshConfig fresh_;
};

TEST_F(JsonConfig, Texts)
{
    config() = {{"sys.timezone.offset", "3600"}, {"empty", ""}};
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddMibStringToObject(o, "a", "sys.timezone.offset", "d");
                  cJSON_AddMibStringToObject(o, "b", "empty", "d");
                  cJSON_AddMibStringToObject(o, "c", "absent", "d");
                  cJSON_AddMibStringToObject(o, "e", "absent", "");
                  cJSON_AddMibStringToObject(o, "f", "absent", nullptr);
                  cJSON_AddMibStringToObject(o, "g", "sys.timezone.offset", nullptr);
              }),
              R"({"a":"3600","b":"d","c":"d","e":"","g":"3600"})");
}

TEST_F(JsonConfig, Integers)
{
    config() = {{"n", "12abc"}, {"letters", "abc"}, {"negative", "-5"}, {"empty", ""}};
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddMibIntToObject(o, "a", "n", 9);
                  cJSON_AddMibIntToObject(o, "b", "letters", 9);
                  cJSON_AddMibIntToObject(o, "c", "negative", 9);
                  cJSON_AddMibIntToObject(o, "d", "empty", 9);
                  cJSON_AddMibIntToObject(o, "e", "absent", 9);
              }),
              R"({"a":12,"b":0,"c":-5,"d":9,"e":9})");
}

TEST_F(JsonConfig, Bools)
{
    config() = {{"one", "1"}, {"zero", "0"}, {"minus", "-2"}, {"letters", "true"}, {"empty", ""}};
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddMibBoolToObject(o, "a", "one", 0);
                  cJSON_AddMibBoolToObject(o, "b", "zero", 1);
                  cJSON_AddMibBoolToObject(o, "c", "minus", 0);
                  cJSON_AddMibBoolToObject(o, "d", "letters", 1);
                  cJSON_AddMibBoolToObject(o, "e", "empty", 1);
                  cJSON_AddMibBoolToObject(o, "f", "absent", 5);
                  cJSON_AddMibBoolToObject(o, "g", "absent", 0);
              }),
              R"({"a":true,"b":false,"c":true,"d":false,"e":true,"f":true,"g":false})");
}

TEST_F(JsonConfig, TheWholeOfALongValue)
{
    config() = {{"a", test::longest_value('v')}, {"n", std::string(2300, ' ') + "1234567"}};
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddMibStringToObject(o, "a", "a", "d");
                  cJSON_AddMibIntToObject(o, "n", "n", 0);
                  cJSON_AddMibBoolToObject(o, "b", "n", 0);
              }),
              R"({"a":")" + test::longest_value('v') + R"(","n":1234567,"b":true})");
}

TEST_F(JsonConfig, NullsAddNothingAndReadNothing)
{
    config() = {{"a", "1"}};
    cJSON_AddMibStringToObject(nullptr, "a", "a", "d");
    cJSON_AddMibIntToObject(nullptr, "a", "a", 1);
    cJSON_AddMibBoolToObject(nullptr, "a", "a", 1);
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddMibStringToObject(o, nullptr, "a", "d");
                  cJSON_AddMibStringToObject(o, "a", nullptr, "d");
                  cJSON_AddMibIntToObject(o, nullptr, "a", 1);
                  cJSON_AddMibIntToObject(o, "a", nullptr, 1);
                  cJSON_AddMibBoolToObject(o, nullptr, "a", 1);
                  cJSON_AddMibBoolToObject(o, "a", nullptr, 1);
              }),
              "{}");
    EXPECT_EQ(test::config_calls().reads, 0);
}

// ---- configuration, formatted keys -----------------------------------------------------------

TEST_F(JsonConfig, FormattedKeys)
{
    config() = {
        {"wan1.text", "abc"}, {"wan1.bool", "1"}, {"wan1.num", "42"}, {"wan1.double", "2.5"}};
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddFormatMibStringToObject(o, "a", "d", "wan%d.%s", 1, "text");
                  cJSON_AddFormatMibStringToObject(o, "b", "d", "wan%d.%s", 2, "text");
                  cJSON_AddFormatMibStringToObject(o, "c", nullptr, "wan%d.%s", 2, "text");
                  cJSON_AddFormatMibBoolToObject(o, "e", 0, "wan%d.%s", 1, "bool");
                  cJSON_AddFormatMibBoolToObject(o, "f", 5, "wan%d.%s", 2, "bool");
                  cJSON_AddFormatMibBoolToObject(o, "g", 0, "wan%d.%s", 2, "bool");
                  cJSON_AddFormatMibNumToObject(o, "h", 7, "wan%d.%s", 1, "num");
                  cJSON_AddFormatMibNumToObject(o, "i", 7, "wan%d.%s", 2, "num");
                  cJSON_AddFormatMibDoubleToObject(o, "j", 7, "wan%d.%s", 1, "double");
                  cJSON_AddFormatMibDoubleToObject(o, "k", 7, "wan%d.%s", 2, "double");
              }),
              R"({"a":"abc","b":"d","e":true,"f":true,"g":false,"h":42,"i":7,"j":2.5,"k":7})");
}

TEST_F(JsonConfig, AnEmptyOrWordyValueUnderAFormattedKeyIsAValue)
{
    config() = {{"empty", ""}, {"letters", "abc"}};
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddFormatMibStringToObject(o, "a", "d", "%s", "empty");
                  cJSON_AddFormatMibBoolToObject(o, "b", 1, "%s", "empty");
                  cJSON_AddFormatMibNumToObject(o, "c", 7, "%s", "empty");
                  cJSON_AddFormatMibDoubleToObject(o, "d", 7, "%s", "empty");
                  cJSON_AddFormatMibBoolToObject(o, "e", 1, "%s", "letters");
                  cJSON_AddFormatMibNumToObject(o, "f", 7, "%s", "letters");
                  cJSON_AddFormatMibDoubleToObject(o, "g", 7, "%s", "letters");
              }),
              R"({"a":"","b":false,"c":0,"d":0,"e":false,"f":0,"g":0})");
}

TEST_F(JsonConfig, HowMuchOfALongValueCounts)
{
    // The last digit stands right behind the room: 20 characters, or 255 for a double.
    const std::string integer = std::string(18, ' ') + "123";
    const std::string number = std::string(253, ' ') + "123";
    config() = {{"text", test::longest_value('t')},
                {"integer", integer},
                {"bool", std::string(20, ' ') + "1"},
                {"double", number}};
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddFormatMibStringToObject(o, "a", "d", "text");
                  cJSON_AddFormatMibNumToObject(o, "b", 0, "integer");
                  cJSON_AddFormatMibBoolToObject(o, "c", 0, "bool");
                  cJSON_AddFormatMibDoubleToObject(o, "d", 0, "double");
              }),
              R"({"a":")" + test::longest_value('t') + R"(","b":12,"c":false,"d":12})");
}

TEST_F(JsonConfig, TheLongestValueInEveryKey)
{
    const test::EveryKeyReads longest{test::longest_value('0')};
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddMibIntToObject(o, "a", "k", 1);
                  cJSON_AddMibBoolToObject(o, "b", "k", 1);
                  cJSON_AddFormatMibBoolToObject(o, "c", 1, "k");
                  cJSON_AddFormatMibNumToObject(o, "d", 1, "k");
                  cJSON_AddFormatMibDoubleToObject(o, "e", 1, "k");
              }),
              R"({"a":0,"b":false,"c":false,"d":0,"e":0})");
    EXPECT_EQ(
        object([](cJSON *o) {
            cJSON_AddMibStringToObject(o, "a", "k", "d");
            cJSON_AddFormatMibStringToObject(o, "b", "d", "k");
        }),
        R"({"a":")" + test::longest_value('0') + R"(","b":")" + test::longest_value('0') + R"("})");
}

TEST_F(JsonConfig, ALongFormattedKeyIsCut)
{
    const std::string name(600, 'k');
    config() = {{std::string(511, 'k'), "5"}, {std::string(255, 'k'), "2.5"}};
    EXPECT_EQ(object([&](cJSON *o) {
                  cJSON_AddFormatMibStringToObject(o, "a", "d", "%s", name.c_str());
                  cJSON_AddFormatMibBoolToObject(o, "b", 0, "%s", name.c_str());
                  cJSON_AddFormatMibNumToObject(o, "c", 0, "%s", name.c_str());
                  cJSON_AddFormatMibDoubleToObject(o, "d", 0, "%s", name.c_str());
              }),
              R"({"a":"5","b":true,"c":5,"d":2.5})");
}

TEST_F(JsonConfig, FormattedNullsAddNothingAndReadNothing)
{
    const char *volatile null = nullptr;  // the compiler knows better than to let one pass
    cJSON_AddFormatMibStringToObject(nullptr, "a", "d", "k");
    cJSON_AddFormatMibBoolToObject(nullptr, "a", 1, "k");
    cJSON_AddFormatMibNumToObject(nullptr, "a", 1, "k");
    cJSON_AddFormatMibDoubleToObject(nullptr, "a", 1, "k");
    EXPECT_EQ(object([&](cJSON *o) {
                  cJSON_AddFormatMibStringToObject(o, nullptr, "d", "k");
                  cJSON_AddFormatMibStringToObject(o, "a", "d", null);
                  cJSON_AddFormatMibBoolToObject(o, nullptr, 1, "k");
                  cJSON_AddFormatMibBoolToObject(o, "a", 1, null);
                  cJSON_AddFormatMibNumToObject(o, nullptr, 1, "k");
                  cJSON_AddFormatMibNumToObject(o, "a", 1, null);
                  cJSON_AddFormatMibDoubleToObject(o, nullptr, 1, "k");
                  cJSON_AddFormatMibDoubleToObject(o, "a", 1, null);
              }),
              "{}");
    EXPECT_EQ(test::config_calls().reads, 0);
}

#pragma GCC diagnostic pop

TEST_F(JsonConfig, OneReadForEachMember)
{
    object([](cJSON *o) {
        cJSON_AddMibStringToObject(o, "a", "k1", "d");
        cJSON_AddMibIntToObject(o, "b", "k2", 0);
        cJSON_AddFormatMibDoubleToObject(o, "c", 0, "k%d", 3);
    });
    EXPECT_EQ(test::keys_read(), (std::vector<std::string>{"k1", "k2", "k3"}));
}

// ---- files -----------------------------------------------------------------------------------

TEST(JsonFile, WhetherItExists)
{
    path_exists = 1;
    EXPECT_EQ(object([](cJSON *o) { cJSON_AddFileStatusToObject(o, "a", "/etc", "f"); }),
              R"({"a":true})");
    EXPECT_EQ(path_asked, "/etc/f");
    path_exists = -1;
    EXPECT_EQ(object([](cJSON *o) { cJSON_AddFileStatusToObject(o, "a", "", ""); }),
              R"({"a":true})");
    EXPECT_EQ(path_asked, "/");
    path_exists = 0;
    EXPECT_EQ(object([](cJSON *o) { cJSON_AddFileStatusToObject(o, "a", "/etc", "f"); }),
              R"({"a":false})");
}

TEST(JsonFile, ALongPathIsCut)
{
    const std::string dir(200, 'd');
    const std::string file(200, 'f');
    object([&](cJSON *o) { cJSON_AddFileStatusToObject(o, "a", dir.c_str(), file.c_str()); });
    EXPECT_EQ(path_asked, (dir + "/" + file).substr(0, 255));
}

TEST(JsonFile, NullsAddNothing)
{
    cJSON_AddFileStatusToObject(nullptr, "a", "/etc", "f");
    EXPECT_EQ(object([](cJSON *o) {
                  cJSON_AddFileStatusToObject(o, nullptr, "/etc", "f");
                  cJSON_AddFileStatusToObject(o, "a", nullptr, "f");
                  cJSON_AddFileStatusToObject(o, "a", "/etc", nullptr);
              }),
              "{}");
}

// ---- memory ----------------------------------------------------------------------------------

int allocations_left;
int blocks_in_use;

void *failing_malloc(std::size_t size)
{
    if (allocations_left-- <= 0) {
        return nullptr;
    }
    ++blocks_in_use;
    return malloc(size);
}

void counted_free(void *block)
{
    blocks_in_use -= block != nullptr ? 1 : 0;
    free(block);
}

TEST_F(JsonConfig, FailedAllocationsAddNothingAndLeakNothing)
{
    config() = {{"k", "1"}};
    const std::pair<const char *, void (*)(cJSON *)> cases[] = {
        {"null", [](cJSON *t) { cJSON_AddNullToArray(t); }},
        {"true", [](cJSON *t) { cJSON_AddTrueToArray(t); }},
        {"false", [](cJSON *t) { cJSON_AddFalseToArray(t); }},
        {"bool", [](cJSON *t) { cJSON_AddBoolToArray(t, 1); }},
        {"number", [](cJSON *t) { cJSON_AddNumberToArray(t, 1); }},
        {"text", [](cJSON *t) { cJSON_AddStringToArray(t, "a"); }},
        {"format", [](cJSON *t) { cJSON_AddFormatStringToObject(t, "a", "b"); }},
        {"mib text", [](cJSON *t) { cJSON_AddMibStringToObject(t, "a", "k", "d"); }},
        {"mib int", [](cJSON *t) { cJSON_AddMibIntToObject(t, "a", "k", 0); }},
        {"mib bool", [](cJSON *t) { cJSON_AddMibBoolToObject(t, "a", "k", 0); }},
        {"format mib text", [](cJSON *t) { cJSON_AddFormatMibStringToObject(t, "a", "d", "k"); }},
        {"format mib bool", [](cJSON *t) { cJSON_AddFormatMibBoolToObject(t, "a", 0, "k"); }},
        {"format mib num", [](cJSON *t) { cJSON_AddFormatMibNumToObject(t, "a", 0, "k"); }},
        {"format mib double", [](cJSON *t) { cJSON_AddFormatMibDoubleToObject(t, "a", 0, "k"); }},
        {"file", [](cJSON *t) { cJSON_AddFileStatusToObject(t, "a", "/etc", "f"); }},
    };
    for (const auto &[name, add] : cases) {
        cJSON_Hooks hooks = {failing_malloc, counted_free};
        cJSON_InitHooks(&hooks);
        bool added = false;
        for (int allowed = 0; !added && allowed < 8; ++allowed) {
            blocks_in_use = 0;
            allocations_left = 1;
            cJSON *const tree = cJSON_CreateObject();
            allocations_left = allowed;
            add(tree);
            added = cJSON_GetArraySize(tree) == 1;
            EXPECT_EQ(added, blocks_in_use > 1) << name << " with " << allowed;
            cJSON_Delete(tree);
            EXPECT_EQ(blocks_in_use, 0) << name << " with " << allowed;
        }
        EXPECT_TRUE(added) << name;
        cJSON_InitHooks(nullptr);
    }
}

}  // namespace

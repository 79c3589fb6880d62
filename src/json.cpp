// SPDX-License-Identifier: MIT
#include "json.h"

#include "internal/config.hpp"
#include "platform/text.h"

using namespace prod;

namespace
{

// Room for what a formatted key reads: decides how much of a long value counts.
constexpr std::size_t kIntegerSize = 21;
constexpr std::size_t kDoubleSize = 256;

using DoubleKey = Text<256>;
using FormattedMember = Text<256>;
using FilePath = Text<256>;

/** Kind of an item; cJSON keeps flags of its own above it. */
int kind(const cJSON *item)
{
    return item->type & 0xFF;
}

/** A member of one kind, or nullptr. */
cJSON *member(const cJSON *root, const char *name, int wanted)
{
    cJSON *const item = cJSON_GetObjectItem(root, name);
    return item != nullptr && kind(item) == wanted ? item : nullptr;
}

/** Appends an item, which is made only when there is an array to take it. */
template <typename Create, typename... Values>
void append(cJSON *array, Create create, Values... values)
{
    if (array != nullptr) {
        cJSON_AddItemToArray(array, create(values...));
    }
}

}  // namespace

int cJSON_GetInt(cJSON *root, const char *name, int default_value)
{
    const cJSON *const item = member(root, name, cJSON_Number);
    return item != nullptr ? item->valueint : default_value;
}

double cJSON_GetDouble(cJSON *root, const char *name, double default_value)
{
    const cJSON *const item = member(root, name, cJSON_Number);
    return item != nullptr ? item->valuedouble : default_value;
}

int cJSON_GetBool(cJSON *root, const char *name, int default_value)
{
    const cJSON *const item = cJSON_GetObjectItem(root, name);
    switch (item != nullptr ? kind(item) : cJSON_Invalid) {
        case cJSON_False:
            return 0;
        case cJSON_True:
            return 1;
        default:
            return default_value;
    }
}

char *cJSON_GetString(cJSON *root, const char *name, const char *default_value)
{
    const cJSON *const item = member(root, name, cJSON_String);
    return item != nullptr ? item->valuestring : const_cast<char *>(default_value);
}

void cJSON_AddNullToArray(cJSON *object)
{
    append(object, cJSON_CreateNull);
}

void cJSON_AddTrueToArray(cJSON *object)
{
    append(object, cJSON_CreateTrue);
}

void cJSON_AddFalseToArray(cJSON *object)
{
    append(object, cJSON_CreateFalse);
}

void cJSON_AddBoolToArray(cJSON *object, int value)
{
    append(object, cJSON_CreateBool, value);
}

void cJSON_AddNumberToArray(cJSON *object, double value)
{
    append(object, cJSON_CreateNumber, value);
}

void cJSON_AddStringToArray(cJSON *object, const char *value)
{
    if (value != nullptr) {
        append(object, cJSON_CreateString, value);
    }
}

void cJSON_AddFormatStringToObject(cJSON *object, const char *jsonName, const char *fmt, ...)
{
    if (object == nullptr || jsonName == nullptr || fmt == nullptr) {
        return;
    }
    FormattedMember text;
    va_list args;
    va_start(args, fmt);
    text.vappend(fmt, args);
    va_end(args);
    cJSON_AddStringToObject(object, jsonName, text.c_str());
}

void cJSON_AddMibStringToObject(cJSON *object, const char *jsonName, const char *key,
                                const char *defaultVal)
{
    if (object == nullptr || jsonName == nullptr || key == nullptr) {
        return;
    }
    const ConfigValue value{key};
    const char *const text = value.empty() ? defaultVal : value.c_str();
    if (text != nullptr) {
        cJSON_AddStringToObject(object, jsonName, text);
    }
}

void cJSON_AddMibIntToObject(cJSON *object, const char *jsonName, const char *key, int defaultVal)
{
    if (object == nullptr || jsonName == nullptr || key == nullptr) {
        return;
    }
    const ConfigValue value{key};
    cJSON_AddNumberToObject(object, jsonName, value.empty() ? defaultVal : value.to_int());
}

void cJSON_AddMibBoolToObject(cJSON *object, const char *jsonName, const char *key, int defaultVal)
{
    if (object == nullptr || jsonName == nullptr || key == nullptr) {
        return;
    }
    const ConfigValue value{key};
    cJSON_AddBoolToObject(object, jsonName, value.empty() ? defaultVal : value.to_int());
}

// With a formatted key it is the store's answer that decides, so that an empty value is a value.

void cJSON_AddFormatMibStringToObject(cJSON *object, const char *jsonName, const char *defaultVal,
                                      const char *fmt, ...)
{
    if (object == nullptr || jsonName == nullptr || fmt == nullptr) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    const auto key = format_key(fmt, args);
    va_end(args);
    const ConfigValue value{key.c_str()};
    const char *const text = value.found() ? value.c_str() : defaultVal;
    if (text != nullptr) {
        cJSON_AddStringToObject(object, jsonName, text);
    }
}

void cJSON_AddFormatMibBoolToObject(cJSON *object, const char *jsonName, int defaultVal,
                                    const char *fmt, ...)
{
    if (object == nullptr || jsonName == nullptr || fmt == nullptr) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    const auto key = format_key(fmt, args);
    va_end(args);
    const ConfigValue value{key.c_str(), kIntegerSize};
    cJSON_AddBoolToObject(object, jsonName, value.found() ? value.to_int() : defaultVal);
}

void cJSON_AddFormatMibNumToObject(cJSON *object, const char *jsonName, int defaultVal,
                                   const char *fmt, ...)
{
    if (object == nullptr || jsonName == nullptr || fmt == nullptr) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    const auto key = format_key(fmt, args);
    va_end(args);
    const ConfigValue value{key.c_str(), kIntegerSize};
    cJSON_AddNumberToObject(object, jsonName, value.found() ? value.to_int() : defaultVal);
}

void cJSON_AddFormatMibDoubleToObject(cJSON *object, const char *jsonName, int defaultVal,
                                      const char *fmt, ...)
{
    if (object == nullptr || jsonName == nullptr || fmt == nullptr) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    const auto key = format_key<DoubleKey>(fmt, args);
    va_end(args);
    const ConfigValue value{key.c_str(), kDoubleSize};
    cJSON_AddNumberToObject(object, jsonName, value.found() ? value.to_double() : defaultVal);
}

void cJSON_AddFileStatusToObject(cJSON *object, const char *jsonName, const char *dir,
                                 const char *file)
{
    if (object == nullptr || jsonName == nullptr || dir == nullptr || file == nullptr) {
        return;
    }
    const FilePath path{"%s/%s", dir, file};
    cJSON_AddBoolToObject(object, jsonName, file_check_exist_or_not(path.c_str()));
}

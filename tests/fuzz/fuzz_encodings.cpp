// SPDX-License-Identifier: MIT
// Base64 each way beside the documented steps, and the detection and conversion of Chinese text:
// nothing is written beyond the promised room, what is converted converts back.
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "platform/text.h"
#include "prod_common_string.h"
#include "support/base64.hpp"

using fuzz::block;
using fuzz::Block;

namespace
{

void check_base64(const std::string &text, int room)
{
    const Block out = block(static_cast<std::size_t>(room));
    std::string wanted;
    FUZZ_CHECK(prod_decode64(out.get(), text.c_str(), room) ==
               test::reference_decode(wanted, text.c_str(), room));
    FUZZ_CHECK(memcmp(out.get(), wanted.c_str(), wanted.size() + 1) == 0);

    const std::size_t size = 4 * ((text.size() + 2) / 3) + 1;
    const Block whole = block(size);
    prod_encode64(whole.get(), text.c_str(), static_cast<int>(size));
    const std::string digits = whole.get();
    FUZZ_CHECK(digits.size() + 1 == size);
    prod_encode64(out.get(), text.c_str(), room);
    FUZZ_CHECK(digits.substr(0, static_cast<std::size_t>(room) - 1) == out.get());
    if (digits.find_first_of("+/") == std::string::npos) {
        const Block back = block(text.size() + 1);
        FUZZ_CHECK(prod_decode64(back.get(), digits.c_str(), static_cast<int>(text.size() + 1)) ==
                   0);
        FUZZ_CHECK(text == back.get());
    }
}

void check_conversion(const std::string &text)
{
    const int format = system_get_code_format(text.c_str());
    FUZZ_CHECK(format == CODE_FORMAT_PLAIN || format == CODE_FORMAT_GBK ||
               format == CODE_FORMAT_UTF8);
    for (const char *const target : {"utf-8", "gb2312"}) {
        const bool to_utf8 = strcmp(target, "utf-8") == 0;
        const Block out = block(4 * text.size() + 1);
        const bool done = system_convert_code_format(target, text.c_str(), out.get()) != 0;
        const std::string converted = out.get();
        FUZZ_CHECK(!to_utf8 || converted.empty() ||
                   system_get_code_format(converted.c_str()) != CODE_FORMAT_GBK);
        if (done && text.find('\x80') == std::string::npos) {
            const Block back = block(4 * converted.size() + 1);
            FUZZ_CHECK(system_convert_code_format(to_utf8 ? "gb2312" : "utf-8", converted.c_str(),
                                                  back.get()) != 0);
            FUZZ_CHECK(text == back.get());
        }
        const Block string{encode_chinese(target, text.c_str()), &free};
        FUZZ_CHECK(string == nullptr || (done && converted == string.get()));
    }
    const Block utf8{encode_str_to_utf8(text.c_str()), &free};
    FUZZ_CHECK(format != CODE_FORMAT_UTF8 || (utf8 != nullptr && text == utf8.get()));
    FUZZ_CHECK(format != CODE_FORMAT_PLAIN || utf8 == nullptr || utf8.get()[0] != '\0' ||
               text.empty());
    get_gb2312(text.c_str());
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    constexpr std::size_t kLongest = 2000;
    if (size == 0 || size > kLongest) {
        return 0;
    }
    // The first byte is the room; the text behind it ends at its first NUL.
    const std::string text =
        std::string(reinterpret_cast<const char *>(data) + 1, size - 1).c_str();
    check_base64(text, data[0] + 1);
    check_conversion(text);
    return 0;
}

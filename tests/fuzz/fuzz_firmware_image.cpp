// SPDX-License-Identifier: MIT
// A firmware image, from a web server's client, through every check of the library and the port.
// The first byte of the input chooses how it is helped past the checksums, which no search finds.
#include <unistd.h>
#include <zlib.h>

#include <cstring>

#include "fuzz/fuzz.hpp"
#include "platform/debug.h"
#include "platform/firmware.h"
#include "prod_common_flash.h"

namespace
{

constexpr std::size_t kHeaderSize = 64;
constexpr const char *kFile = "/tmp/image";

int lines;

void put_number(std::uint8_t *at, unsigned long number)
{
    for (int i = 0; i < 4; ++i) {
        at[i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
    }
}

/** Gives an image what it needs to get further. */
void help(std::uint8_t *image, std::size_t size, unsigned int how)
{
    if (size < kHeaderSize) {
        return;
    }
    if ((how & 1) != 0) {
        put_number(image, 0x27051956);
    }
    if ((how & 2) != 0) {
        put_number(image + 12, size - kHeaderSize);
    }
    if ((how & 4) != 0) {
        put_number(image + 24, crc32_z(0, image + kHeaderSize, size - kHeaderSize));
    }
    if ((how & 8) != 0) {
        image[30] = 2;
    }
    if ((how & 16) != 0) {
        memcpy(image + 32, "virtual-router 1", 16);
    }
    if ((how & 32) != 0) {
        put_number(image + 4, 0);
        put_number(image + 4, crc32_z(0, image, kHeaderSize));
    }
}

/** A refusal says why, once; nothing else says anything. */
void refused_aloud(int result)
{
    FUZZ_CHECK(result == 0 || (result >= FW_CHECK_NO_PARTITION && result < 0));
    FUZZ_CHECK(lines == (result < 0 ? 1 : 0));
    lines = 0;
}

bool is_there()
{
    return access(kFile, F_OK) == 0;
}

}  // namespace

void log_debug_print(const char *, int, int, const char *module, const char *, ...)
{
    lines += strcmp(module, "firmware") == 0 ? 1 : 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::size_t length = size - 1;
    auto *const image = static_cast<std::uint8_t *>(malloc(length > 0 ? length : 1));
    memcpy(image, data + 1, length);
    help(image, length, data[0]);
    fuzz::write_file(kFile, image, length);
    const auto *const text = reinterpret_cast<const char *>(image);
    const auto bytes = static_cast<long>(length);

    const int type = check_fw_type(text, bytes);
    FUZZ_CHECK(lines == 0 && (type == FW_CHECK_FORMAT || (type >= 0 && type < FW_TYPE_BUTT)));
    const int whole = check_fw_crc(type, text, bytes);
    refused_aloud(whole);
    const int valid = check_fw_valid(type, kFile);
    refused_aloud(valid);
    refused_aloud(check_mtd_size(type, kFile));
    FUZZ_CHECK(whole == 0 || whole == FW_CHECK_DATA_CRC || valid == whole);

    int found = 77;
    const FW_RET_ENUM checksum = flash_check_fw_type_and_crc(text, &found, bytes);
    const bool has_checksum = type == FW_TYPE_FLASH || type == FW_TYPE_BUNDLE;
    FUZZ_CHECK(found == type);
    FUZZ_CHECK(checksum == (has_checksum && whole < 0 ? FW_INVALID_CRC : FW_VALID_IMAGE));
    const FW_RET_ENUM result = flash_check_fw(kFile, type);
    FUZZ_CHECK(result ==
               (type == FW_TYPE_FLASH && valid == 0 ? FW_VALID_IMAGE : FW_INVALID_FORMAT));
    FUZZ_CHECK(is_there() == (result == FW_VALID_IMAGE));
    lines = 0;
    free(image);
    return 0;
}

// SPDX-License-Identifier: MIT
//
// Images are U-Boot legacy images: a header of 64 bytes, numbers big-endian, and the contents.
#include "platform/firmware.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "board.hpp"
#include "file.hpp"
#include "firmware_tool.h"
#include "platform/debug.h"

using platform::Fd;
using platform::Json;
using platform::member;
using platform::text_of;

namespace
{

constexpr u32 kMagic = 0x27051956;
constexpr std::size_t kLongestName = 32;

/** The header as it is in the file. */
struct Header {
    u32 magic;
    u32 header_crc;  // over the header, with 0 in this place
    u32 time;
    u32 data_size;
    u32 load_address;
    u32 entry_point;
    u32 data_crc;
    u8 system;
    u8 architecture;
    u8 type;
    u8 compression;
    char name[kLongestName];  // not terminated when it takes all the room
};
static_assert(sizeof(Header) == 64);

struct Words {
    int result;
    const char *text;
};
constexpr Words kFailures[] = {
    {FW_CHECK_READ, "it cannot be read"},
    {FW_CHECK_FORMAT, "it is no firmware image"},
    {FW_CHECK_HEADER_CRC, "its header is damaged (checksum)"},
    {FW_CHECK_LENGTH, "it is shorter or longer than its header says"},
    {FW_CHECK_DATA_CRC, "its contents are damaged (checksum)"},
    {FW_CHECK_TYPE, "it is of another type"},
    {FW_CHECK_BOARD, "it is for another board"},
    {FW_CHECK_TOO_LARGE, "it is larger than the flash partition"},
    {FW_CHECK_NO_PARTITION, "the board has no flash partition of known size"},
};

#define REFUSE(result, format, ...)                                       \
    (log_debug_print(__func__, __LINE__, 2, "firmware", "%s: " format,    \
                     fw_failure_text(result) __VA_OPT__(, ) __VA_ARGS__), \
     (result))

u32 checksum(const void *data, std::size_t size)
{
    return static_cast<u32>(crc32_z(0, static_cast<const Bytef *>(data), size));
}

/** Takes the header off an image in memory; false when there is none. */
bool read_header(const char *image, long size, Header &header)
{
    if (image == nullptr || size < static_cast<long>(sizeof(header))) {
        return false;
    }
    memcpy(&header, image, sizeof(header));
    return ntohl(header.magic) == kMagic;
}

/** Whether a header is whole and speaks of an image of that type and length. */
int check_header(const Header &header, int type, u64 size)
{
    Header blank = header;
    blank.header_crc = 0;
    const u32 found = checksum(&blank, sizeof(blank));
    if (found != ntohl(header.header_crc)) {
        return REFUSE(FW_CHECK_HEADER_CRC, "%08x instead of %08x", found, ntohl(header.header_crc));
    }
    if (header.type != type) {
        return REFUSE(FW_CHECK_TYPE, "%d instead of %d", header.type, type);
    }
    const u64 expected = sizeof(header) + u64{ntohl(header.data_size)};
    if (size != expected) {
        return REFUSE(FW_CHECK_LENGTH, "%llu bytes instead of %llu", size, expected);
    }
    return 0;
}

/** An image bears the name of its board, and behind a blank whatever its maker likes. */
int check_board(const Header &header)
{
    const Json board = platform::read_board();
    const cJSON *const firmware = member(board.get(), "firmware");
    const char *const own = text_of(member(firmware, "board"));
    const char *const model = own != nullptr ? own : text_of(member(board.get(), "model"));
    const std::string_view wanted = model != nullptr ? model : "";
    const std::string_view name{header.name, strnlen(header.name, sizeof(header.name))};
    const bool fits = !wanted.empty() && platform::first_of(name, wanted.size()) == wanted &&
                      (name.size() == wanted.size() || name[wanted.size()] == ' ');
    if (!fits) {
        return REFUSE(FW_CHECK_BOARD, "\"%.*s\" instead of \"%s\"", static_cast<int>(name.size()),
                      name.data(), model != nullptr ? model : "");
    }
    return 0;
}

/** An MTD partition: "mtd5: 02000000 00020000 "firmware"", numbers hexadecimal. */
struct Mtd {
    int number;
    u64 size;
};

bool find_mtd(const char *wanted, Mtd &mtd)
{
    const platform::Stream file{fopen("/proc/mtd", "re")};
    char line[256];
    while (file != nullptr && fgets(line, sizeof(line), file.get()) != nullptr) {
        char name[128] = "";
        // NOLINTNEXTLINE(cert-err34-c): the kernel's own numbers
        if (sscanf(line, "mtd%d: %llx %*x \"%127[^\"]\"", &mtd.number, &mtd.size, name) == 3 &&
            strcmp(name, wanted) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

const char *fw_failure_text(int result)
{
    for (const Words &words : kFailures) {
        if (words.result == result) {
            return words.text;
        }
    }
    return "it is not valid";
}

int fw_partition(char *path, u64 *size)
{
    const Json board = platform::read_board();
    const cJSON *const firmware = member(board.get(), "firmware");
    const char *const file = text_of(member(firmware, "partition"));
    const cJSON *const bytes = member(firmware, "size");
    const char *const named = text_of(member(firmware, "mtd"));
    const bool has_size =
        cJSON_IsNumber(bytes) != 0 && bytes->valuedouble >= 1 && bytes->valuedouble < 1e15;
    Mtd mtd{};
    if ((file == nullptr || !has_size) && !find_mtd(named != nullptr ? named : "firmware", mtd)) {
        return FW_CHECK_NO_PARTITION;
    }
    char found[FW_PATH_SIZE];
    const int length = file != nullptr
                           ? snprintf(found, sizeof(found), "%s", file)
                           : snprintf(found, sizeof(found), "/dev/mtdblock%d", mtd.number);
    if (length <= 0 || length >= FW_PATH_SIZE) {
        return FW_CHECK_NO_PARTITION;
    }
    memcpy(path, found, static_cast<std::size_t>(length) + 1);
    *size = has_size ? static_cast<u64>(bytes->valuedouble) : mtd.size;
    return 0;
}

int check_fw_type(const char *image, long size)
{
    Header header;
    return read_header(image, size, header) ? int{header.type} : int{FW_CHECK_FORMAT};
}

int check_fw_crc(int type, const char *image, long size)
{
    Header header;
    if (!read_header(image, size, header)) {
        return REFUSE(FW_CHECK_FORMAT, "%ld bytes", size);
    }
    const int result = check_header(header, type, static_cast<u64>(size));
    if (result != 0) {
        return result;
    }
    const u32 found = checksum(image + sizeof(header), ntohl(header.data_size));
    if (found != ntohl(header.data_crc)) {
        return REFUSE(FW_CHECK_DATA_CRC, "%08x instead of %08x", found, ntohl(header.data_crc));
    }
    return 0;
}

int check_fw_valid(int type, const char *path)
{
    const Fd fd{path != nullptr ? open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1};
    struct stat status;
    if (!fd || fstat(fd.get(), &status) != 0) {
        return REFUSE(FW_CHECK_READ, "%s", path != nullptr ? strerror(errno) : "no path");
    }
    char start[sizeof(Header)];
    ssize_t got = 0;
    do {
        got = pread(fd.get(), start, sizeof(start), 0);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        return REFUSE(FW_CHECK_READ, "%s", strerror(errno));
    }
    Header header;
    if (!read_header(start, got, header)) {
        return REFUSE(FW_CHECK_FORMAT, "%s", path);
    }
    const int result = check_header(header, type, static_cast<u64>(status.st_size));
    return result != 0 ? result : check_board(header);
}

int check_mtd_size(int, const char *path)
{
    struct stat status;
    if (path == nullptr || stat(path, &status) != 0) {
        return REFUSE(FW_CHECK_READ, "%s", path != nullptr ? strerror(errno) : "no path");
    }
    char partition[FW_PATH_SIZE];
    u64 room;
    if (fw_partition(partition, &room) != 0) {
        return REFUSE(FW_CHECK_NO_PARTITION, "%s", path);
    }
    if (static_cast<u64>(status.st_size) > room) {
        return REFUSE(FW_CHECK_TOO_LARGE, "%lld bytes instead of %llu",
                      static_cast<long long>(status.st_size), room);
    }
    return 0;
}

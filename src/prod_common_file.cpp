// SPDX-License-Identifier: MIT
#include "prod_common_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "internal/handle.hpp"
#include "internal/log.hpp"

using namespace prod;

namespace
{

constexpr mode_t kNewFileMode = 0644;

// One byte more than the size is allocated, and the size itself travels in 32 bits.
constexpr off_t kLargestFile = static_cast<off_t>(UINT32_MAX) - 1;

}  // namespace

int get_file_size(const char *filename, u32 *len)
{
    if (filename == nullptr) {
        return 0;
    }
    struct stat status;
    if (stat(filename, &status) != 0) {
        const int err = errno;
        PROD_LOG_ERROR(kProd, "Failed(%d) to stat file '%s', %s.", err, filename, strerror(err));
        return 0;
    }
    if (!S_ISREG(status.st_mode)) {
        PROD_LOG_ERROR(kProd, "'%s' is not a file.", filename);
        return 0;
    }
    if (status.st_size > kLargestFile) {
        PROD_LOG_ERROR(kProd, "Failed(%d) to stat file '%s', %s.", EFBIG, filename,
                       strerror(EFBIG));
        return 0;
    }
    if (len != nullptr) {
        *len = static_cast<u32>(status.st_size);
    }
    return 1;
}

int get_file_content(const char *filename, void **data, u32 *len)
{
    if (filename == nullptr || data == nullptr) {
        return 0;
    }
    struct stat status;
    if (stat(filename, &status) != 0) {
        const int err = errno;
        PROD_LOG_DEBUG(kProd, "Failed(%d) to stat file %s, %s.", err, filename, strerror(err));
        return 0;
    }
    if (!S_ISREG(status.st_mode)) {
        PROD_LOG_DEBUG(kProd, "%s is not a file.", filename);
        return 0;
    }
    if (status.st_size > kLargestFile) {
        PROD_LOG_ERROR(kProd, "Out of memory.");
        return 0;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (len != nullptr) {
        *len = static_cast<u32>(size);
    }

    const Stream stream = open_for_reading(filename);
    if (stream == nullptr) {
        const int err = errno;
        PROD_LOG_ERROR(kProd, "Failed(%d) to fopen %s, %s.", err, filename, strerror(err));
        return 0;
    }
    *data = calloc(size + 1, 1);
    if (*data == nullptr) {
        PROD_LOG_ERROR(kProd, "Out of memory.");
        return 0;
    }
    const std::size_t blocks = fread(*data, size, 1, stream.get());
    if (blocks != 1) {
        PROD_LOG_DEBUG(kProd, "fread %s %d!=1", filename, static_cast<int>(blocks));
    }
    return 1;
}

int write_file(const char *filename, const void *data, unsigned int len)
{
    if (filename == nullptr || data == nullptr || len == 0) {
        return 0;
    }
    // Not truncated: a shorter text leaves the old tail in place, and callers know it.
    const Fd fd{open(filename, O_WRONLY | O_CREAT | O_CLOEXEC, kNewFileMode)};
    if (!fd) {
        const int err = errno;
        PROD_LOG_ERROR(kProd, "Failed(%d) to open %s, %s.", err, filename, strerror(err));
        return 0;
    }
    if (write(fd.get(), data, len) < 0) {
        const int err = errno;
        PROD_LOG_ERROR(kProd, "Failed(%d) to write %s, %s.", err, filename, strerror(err));
        return 0;
    }
    return 1;
}

void touch_file(const char *filename)
{
    if (filename == nullptr) {
        return;
    }
    const Fd fd{open(filename, O_RDWR | O_CREAT | O_CLOEXEC, kNewFileMode)};
    if (!fd) {
        const int err = errno;
        PROD_LOG_ERROR(kProd, "Failed(%d) to open %s, %s.", err, filename, strerror(err));
    }
}

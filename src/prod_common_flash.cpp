// SPDX-License-Identifier: MIT
#include "prod_common_flash.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>

#include "internal/daemons.hpp"
#include "internal/handle.hpp"
#include "internal/log.hpp"
#include "internal/proc.hpp"
#include "internal/shell.hpp"
#include "internal/text.hpp"
#include "internal/wan.hpp"
#include "platform/debug.h"
#include "platform/firmware.h"
#include "platform/process.h"
#include "prod_common_string.h"
#include "prod_common_system.h"
#include "prod_common_systool.h"

using namespace prod;

int g_fw_type;

namespace
{

constexpr const char *kCommonSo = "common_so";  // this library in the platform's own log
constexpr int kFunctionLevel = 0;               // entry and exit there

static_assert(std::size(kWanDaemons) == 9 && std::size(kDaemons) == 50);
static_assert(std::size(kUpgradeInitiators) == UPGRADE_BUTT);

/** Whether rejected images stay where they are, for whoever wants to look at them. */
bool keeps_rejected_images()
{
    struct stat status;
    return stat(PROD_FW_KEEP_MARKER, &status) == 0;
}

/** A whole file mapped for reading; a failure shows as MAP_FAILED. */
class Mapping
{
  public:
    Mapping(const Fd &fd, std::size_t size)
        : start_(mmap(nullptr, size, PROT_READ, MAP_SHARED, fd.get(), 0)), size_(size)
    {
    }
    // Also of a mapping that failed: that fails without harm.
    ~Mapping() { munmap(start_, size_); }
    Mapping(const Mapping &) = delete;
    Mapping &operator=(const Mapping &) = delete;

    bool failed() const { return start_ == MAP_FAILED; }
    const char *start() const { return static_cast<const char *>(start_); }

  private:
    void *start_;
    std::size_t size_;
};

/** Checks the mapped image and the file that it is mapped from, and starts the writer. */
int check_and_write(Site site, const Mapping &image, long size)
{
    int type = 0;
    int result = flash_check_fw_type_and_crc(image.start(), &type, size);
    if (result < 0) {
        const int err = errno;
        log_failure(site, err, "Failed to check fw type or crc: %d", result);
        return -1;
    }
    result = flash_check_fw(PROD_FW_IMAGE, type);
    if (result < 0) {
        const int err = errno;
        log_failure(site, err, "Failed to check fw: %d\n", result);
        return -1;
    }
    prod_systool_call_writeImage();
    return 0;
}

int map_and_write(Site site, const Fd &fd, std::size_t size)
{
    const Mapping image{fd, size};
    if (image.failed()) {
        const int err = errno;
        log_failure(site, err, "Failed to mmap fw(len:%d):", static_cast<int>(size));
        return -1;
    }
    return check_and_write(site, image, static_cast<long>(size));
}

/** A process's name as one word of a command line: whatever might be more becomes "_". */
Text<kProcessNameSize> plain_name(std::string_view name)
{
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.:-";
    Text<kProcessNameSize> plain;
    for (const char c : name) {
        plain.append(kPlain.find(c) != std::string_view::npos ? c : '_');
    }
    return plain;
}

void stop_wan_daemons(int wan)
{
    for (const char *const name : kWanDaemons) {
        monitor_stop(Text<64>{"%s_wan%d", name, wan}.c_str());
    }
}

}  // namespace

FW_RET_ENUM flash_check_fw_type_and_crc(const char *pBufStart, int *fw_type, long size)
{
    const FunctionTrace trace{PROD_SITE};
    if (pBufStart == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return FW_UPLOAD_ERROR;
    }
    const int type = check_fw_type(pBufStart, size);
    if (fw_type != nullptr) {
        *fw_type = type;
    }
    const bool has_checksum = type == FW_TYPE_FLASH || type == FW_TYPE_BUNDLE;
    if (has_checksum && check_fw_crc(type, pBufStart, size) < 0) {
        return FW_INVALID_CRC;
    }
    return trace.leave(FW_VALID_IMAGE);  // also of an unknown type: flash_check_fw() refuses it
}

FW_RET_ENUM flash_check_fw(const char *firmware, int fw_type)
{
    const FunctionTrace trace{PROD_SITE};
    if (firmware == nullptr) {
        return FW_INVALID_FORMAT;
    }
    if (fw_type != FW_TYPE_FLASH) {
        PROD_LOG_ERROR(kProd, "fw type is not support:%d.", fw_type);
    } else if (check_fw_valid(fw_type, firmware) < 0) {
        PROD_LOG_ERROR(kProd, "check_fw_valid fail");
    } else if (check_mtd_size(fw_type, firmware) < 0) {
        PROD_LOG_ERROR(kProd, "check_mtd_size faild.");
        unlink(firmware);
        return FW_INVALID_SIZE;
    } else {
        return trace.leave(FW_VALID_IMAGE);
    }
    if (!keeps_rejected_images()) {
        unlink(firmware);
    }
    return FW_INVALID_FORMAT;
}

int prod_systool_simple_upload(char *pbuf, long size)
{
    log_debug_print(__func__, __LINE__, kFunctionLevel, kCommonSo, "function entry!");
    FW_RET_ENUM result = flash_check_fw_type_and_crc(pbuf, &g_fw_type, size);
    if (result >= 0) {
        result = flash_check_fw(PROD_FW_IMAGE, g_fw_type);
    }
    if (result < 0) {
        PROD_LOG_DEBUG(kProd, "Not a valid firmware.ck_result:%d.", result);
        return result;
    }
    log_debug_print(__func__, __LINE__, kFunctionLevel, kCommonSo, "function exit!");
    return 0;
}

int systool_file_handle(FILE_OPERATE_ENUM type, char *buf, long size)
{
    switch (type) {
        case FILE_OPERATE_SIMPLE_UPGRADE:
            return prod_systool_simple_upload(buf, size);
        case FILE_OPERATE_UPLOAD:
            return prod_systool_cfg_upload(buf, size);
        case FILE_OPERATE_DOWNLOAD:
            return prod_systool_sys_cfg_download(buf);
        default:
            PROD_LOG_ERROR(kProd, "invalid type:%d", static_cast<int>(type));
            return -1;
    }
}

int prod_upgrade_image_to_flash(void)
{
    // The image may be a large share of the device's memory.
    run_command("echo 3 > /proc/sys/vm/drop_caches");
    run_command("free");
    struct stat status;
    if (stat(PROD_FW_IMAGE, &status) != 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "Failed to stat %s: ", PROD_FW_IMAGE);
        return -1;
    }
    PROD_LOG_INFO(kProd, "fw buf.st_size is %d", static_cast<int>(status.st_size));
    if (status.st_size < 1 || status.st_size > PROD_FW_LARGEST) {
        const int err = errno;
        log_failure(PROD_SITE, err, "buf.st_size error");
        return -1;
    }
    Fd fd{open(PROD_FW_IMAGE, O_RDONLY | O_CLOEXEC)};
    if (!fd) {
        const int err = errno;
        log_failure(PROD_SITE, err, "Failed to open fw: ");
        return -1;
    }
    const int result = map_and_write(PROD_SITE, fd, static_cast<std::size_t>(status.st_size));
    if (fd.get() == STDIN_FILENO) {
        // Deliberate: a process without standard input does not get another file as such.
        static_cast<void>(fd.release());
    }
    return result;
}

void prod_systool_call_writeImage(void)
{
    pthread_t writer;  // nobody waits for it: the device restarts when it is done
    const int err = pthread_create(&writer, nullptr, prod_systool_write_image, nullptr);
    if (err != 0) {
        log_failure(PROD_SITE, err, "start the writer of the image");
    }
}

void *prod_systool_write_image(void *)
{
    prod_upgrade_kill_public_process(UPGRADE_IMSD);
    exec_sys_cmd(__func__, __LINE__, "upgrade %d %s %s", FW_TYPE_FLASH, PROD_FW_IMAGE,
                 plain_name(get_self_pname()).c_str());
    return nullptr;
}

void prod_upgrade_kill_public_process(SYSTEM_UPGRADE_TYPE_ENUM type)
{
    // Those that feed the hardware watchdog are about to go.
    run_command("echo disable > /proc/watchdog");
    const int wans = configured_wans();
    monitor_stop(kMultiWanManager);
    for (int wan = 1; wan <= wans; ++wan) {
        stop_wan_daemons(wan);
    }
    for (const char *const name : kDaemons) {
        monitor_stop(name);
    }
    kill_other_upgrade_process(type);
    run_command("ifconfig br0 down");
}

void kill_other_upgrade_process(SYSTEM_UPGRADE_TYPE_ENUM type)
{
    const auto survivor = static_cast<unsigned int>(type);
    if (survivor >= UPGRADE_BUTT) {
        PROD_LOG_ERROR(kProd, "invalid type:%d", static_cast<int>(type));
        return;
    }
    for (unsigned int i = 0; i < UPGRADE_BUTT; ++i) {
        if (i != survivor) {
            monitor_stop(kUpgradeInitiators[i]);
        }
    }
}

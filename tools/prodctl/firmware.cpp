// SPDX-License-Identifier: MIT
// Firmware images: whether one fits this device, and writing it.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "groups.hpp"
#include "platform/firmware.h"
#include "prod_common_flash.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr int kSizeRefused = -100;  // beside the results of the platform's checks

/** Why an image is refused: a word for programs and one for people. */
struct Reason {
    int result;
    const char *word;
    const char *text;
};
constexpr Reason kReasons[] = {
    {FW_CHECK_READ, "unreadable", "it cannot be read"},
    {kSizeRefused, "size", "it is empty, or larger than 64 MiB"},
    {FW_CHECK_FORMAT, "no-image", "it is no firmware image"},
    {FW_CHECK_HEADER_CRC, "header-damaged", "its header is damaged"},
    {FW_CHECK_LENGTH, "length", "it is cut short, or something follows it"},
    {FW_CHECK_DATA_CRC, "contents-damaged", "its contents are damaged"},
    {FW_CHECK_TYPE, "type", "it is of a type that is not written on this device"},
    {FW_CHECK_BOARD, "board", "it is for another board"},
    {FW_CHECK_TOO_LARGE, "too-large", "it is larger than the flash partition"},
    {FW_CHECK_NO_PARTITION, "no-partition", "this board has no flash partition for it"},
};
constexpr Reason kOtherReason = {0, "invalid", "it is not valid for this device"};

const Reason &reason_of(int result)
{
    for (const Reason &reason : kReasons) {
        if (reason.result == result) {
            return reason;
        }
    }
    return kOtherReason;
}

constexpr Word kTypes[] = {{FW_TYPE_FLASH, "flash"}, {FW_TYPE_BUNDLE, "bundle"}};

/** An image file, mapped as long as this lives. */
class Image
{
  public:
    explicit Image(const char *path) : path_(path)
    {
        fd_ = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (fd_ < 0 || fstat(fd_, &status_) != 0) {
            err_ = errno;
        } else if (!S_ISREG(status_.st_mode)) {
            err_ = EINVAL;
        } else if (has_size()) {
            void *const start = mmap(nullptr, bytes(), PROT_READ, MAP_SHARED, fd_, 0);
            err_ = start == MAP_FAILED ? errno : 0;
            start_ = start == MAP_FAILED ? nullptr : static_cast<const char *>(start);
        }
    }
    ~Image()
    {
        if (start_ != nullptr) {
            munmap(const_cast<char *>(start_), bytes());
        }
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    /** errno of a file that cannot be read, else 0. */
    int err() const { return err_; }
    const struct stat &status() const { return status_; }
    int fd() const { return fd_; }

    /** The type, negative when there is none. */
    int type() const
    {
        return start_ != nullptr ? check_fw_type(start_, size()) : int{FW_CHECK_FORMAT};
    }

    /** 0, or why it is refused. Unlike the library's own checks these delete nothing. */
    int check() const
    {
        if (err_ != 0) {
            return FW_CHECK_READ;
        }
        if (!has_size()) {
            return kSizeRefused;
        }
        int result = type();
        if (result >= 0 && (result = check_fw_crc(type(), start_, size())) >= 0) {
            result =
                type() == FW_TYPE_FLASH ? check_fw_valid(FW_TYPE_FLASH, path_) : int{FW_CHECK_TYPE};
        }
        return result >= 0 ? check_mtd_size(FW_TYPE_FLASH, path_) : result;
    }

  private:
    bool has_size() const { return status_.st_size >= 1 && status_.st_size <= PROD_FW_LARGEST; }
    std::size_t bytes() const { return static_cast<std::size_t>(status_.st_size); }
    long size() const { return static_cast<long>(status_.st_size); }

    const char *path_;
    int fd_ = -1;
    int err_ = 0;
    struct stat status_ = {};
    const char *start_ = nullptr;
};

/** Says on standard error, and in the answer, why an image is refused. */
int refuse(const Call &call, const Image &image, int result, cJSON *answer)
{
    const Reason &reason = reason_of(result);
    add_flag(answer, "valid", false);
    add_text(answer, "reason", reason.word);
    return image.err() != 0 ? call.no("%s: %s: %s", call[0], reason.text, strerror(image.err()))
                            : call.no("%s: %s", call[0], reason.text);
}

int check_image(const Call &call, const Image &image, cJSON *answer)
{
    add_text(answer, "file", call[0]);
    if (image.err() == 0) {
        add_number(answer, "size", static_cast<double>(image.status().st_size));
        if (image.type() >= 0) {
            add_number(answer, "type", image.type());
        }
    }
    const int result = image.check();
    if (result < 0) {
        return refuse(call, image, result, answer);
    }
    add_flag(answer, "valid", true);
    return kYes;
}

int run_check(const Call &call, cJSON *answer)
{
    return check_image(call, Image{call[0]}, answer);
}

void show_check(const cJSON *answer, Page &page)
{
    const bool valid = flag_of(answer, "valid");
    if (!valid) {
        return;  // said already
    }
    page.line({text_of(answer, "file"),
               {format("%.0f bytes, type %s", number_of(answer, "size"),
                       word_of(kTypes, int_of(answer, "type"), "unknown")),
                Tone::kFaint},
               {"can be written", Tone::kGood}});
}

// ---- writing ----------------------------------------------------------------------------------

/** Copies a whole file, telling how far it is. @return 0 or errno */
int copy_file(int from, int to, double whole)
{
    static char chunk[65536];
    double done = 0;
    int told = 0;
    for (;;) {
        const ssize_t got = read(from, chunk, sizeof(chunk));
        if (got <= 0) {
            return got < 0 ? errno : 0;
        }
        for (ssize_t written = 0; written < got;) {
            const ssize_t part =
                write(to, chunk + written, static_cast<std::size_t>(got - written));
            if (part < 0) {
                return errno;
            }
            written += part;
        }
        done += static_cast<double>(got);
        const int percent = static_cast<int>(done * 100 / whole);
        if (percent >= told + 10) {
            told = percent - percent % 10;
            fprintf(stderr, "prodctl: %d %% copied\n", told);
        }
    }
}

/** Makes an image the one that the upgrade takes, whole or not at all. @return 0 or errno */
int store_image(const Image &image)
{
    constexpr const char *kNew = PROD_FW_IMAGE ".new";
    struct stat stored;
    if (stat(PROD_FW_IMAGE, &stored) == 0 && stored.st_dev == image.status().st_dev &&
        stored.st_ino == image.status().st_ino) {
        return 0;
    }
    const int fd = open(kNew, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return errno;
    }
    int err = copy_file(image.fd(), fd, static_cast<double>(image.status().st_size));
    if (close(fd) != 0 && err == 0) {
        err = errno;
    }
    if (err == 0 && rename(kNew, PROD_FW_IMAGE) != 0) {
        err = errno;
    }
    if (err != 0) {
        unlink(kNew);
    }
    return err;
}

/**
 * The terminal may be one of telnet, which is stopped as well: from here on, nothing that goes away
 * must leave a device whose daemons are stopped for no upgrade.
 */
void ignore_signals()
{
    for (const int signo : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
        signal(signo, SIG_IGN);
    }
}

constexpr Option kWriteOptions[] = {
    {"--wait", "SECONDS", "longest wait for the restart behind the writing (default: 30)"}};

int run_write(const Call &call, cJSON *answer)
{
    std::optional<int> wait = 30;
    if (!call.read_number("--wait", 0, kDay, wait)) {
        return kUsage;
    }
    {
        const Image image{call[0]};
        const int status = check_image(call, image, answer);
        if (status != kYes) {
            return status;
        }
        const int err = store_image(image);
        if (err != 0) {
            return call.no("%s: %s", PROD_FW_IMAGE, strerror(err));
        }
    }
    ignore_signals();
    fprintf(stderr, "prodctl: stopping the daemons\n");
    prod_systool_write_image(nullptr);
    sleep(static_cast<unsigned int>(*wait));
    add_flag(answer, "restarted", false);
    return call.no("the device does not restart");
}

constexpr Command kCommands[] = {
    {.name = "check",
     .summary = "Whether a file is a firmware image that this device can be given",
     .arguments = "FILE",
     .min_arguments = 1,
     .max_arguments = 1,
     .details =
         "Checks the header and the contents against their checksums, the length, the type,\n"
         "the board that the image is made for and the room in the flash. Changes nothing.",
     .yes = "it can be written",
     .no = "it is refused; standard error and \"reason\" say why",
     .run = run_check,
     .show = show_check,
     .candidates = "@files"},
    {.name = "write",
     .summary = "Write a firmware image to the flash and restart the device",
     .arguments = "FILE",
     .min_arguments = 1,
     .max_arguments = 1,
     .details =
         "Checks the image as \"check\" does; one that is refused changes nothing. Then stops\n"
         "the device's daemons, takes the LAN down, writes the flash, reads it back and\n"
         "restarts the device. There is no way back once the daemons are stopped. Progress\n"
         "goes to standard error.",
     .yes = "never: the device restarts",
     .no = "the image is refused, or the device does not restart",
     .run = run_write,
     .options = kWriteOptions,
     .candidates = "@files"},
};

}  // namespace

constinit const Command kFirmwareGroup = {
    .name = "firmware",
    .summary = "Firmware images: check one, write one",
    .children = kCommands,
};

}  // namespace prodctl

// SPDX-License-Identifier: MIT
// upgrade: writes a firmware image to the flash and restarts the device.
//
// The header is written last, and the old one is wiped first: whatever interrupts the writing, the
// boot loader finds the old image, the new one, or none that it would start.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "firmware_tool.h"
#include "platform/firmware.h"

namespace
{

enum ExitCode : int {
    kDone = 0,
    kRefused = 1,      // nothing was written
    kUsage = 2,        // nothing was done
    kDamaged = 3,      // the partition holds no whole image now
    kNotRestarted = 4  // the image is written, but the device does not restart
};

constexpr const char *kHelp =
    "usage: upgrade TYPE IMAGE PROCESS\n"
    "\n"
    "Writes the firmware image in the file IMAGE to the flash and restarts the device.\n"
    "\n"
    "  TYPE      the image's type: 2, the only one that is written on this device\n"
    "  PROCESS   name of the process that asks for it, for the console\n"
    "  --help    this text\n"
    "\n"
    "The image is checked first; one that is refused changes nothing. What was written is read\n"
    "back and checked; up to three times it is tried again. The device restarts only with a whole\n"
    "image in its flash.\n"
    "\n"
    "Exit status: 0 written, the device restarts; 1 refused, nothing was written; 2 the command\n"
    "line makes no sense; 3 the flash holds no whole image now; 4 written, but the device does "
    "not\n"
    "restart.\n";

constexpr std::size_t kHeaderSize = 64;
constexpr std::size_t kChunk = std::size_t{64} * 1024;
constexpr int kTries = 3;
constexpr int kProgressStep = 10;  // per cent

/** Closed by the end of the process: this tool has only two, and needs both to the end. */
struct File {
    int fd = -1;
    const char *path = "";
};

struct Image {
    File file;
    int type = 0;
    std::size_t size = 0;
    char header[kHeaderSize] = {};  // as it was when it was checked
};

[[gnu::format(printf, 1, 2)]] void say(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    printf("upgrade: ");
    vprintf(format, args);
    putchar('\n');
    fflush(stdout);  // a console that is gone is no reason to stop
    va_end(args);
}

[[gnu::format(printf, 2, 3)]] int complain(int status, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fprintf(stderr, "upgrade: ");
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
    return status;
}

// ---- reading and writing -----------------------------------------------------------------------

/** Does all of a transfer, over interrupted and short ones. */
template <typename Transfer, typename Byte>
bool transfer_all(Transfer transfer, int fd, Byte *bytes, std::size_t size, std::size_t at)
{
    while (size > 0) {
        const ssize_t done = transfer(fd, bytes, size, static_cast<off_t>(at));
        if (done < 0 && errno == EINTR) {
            continue;
        }
        if (done <= 0) {
            errno = done == 0 ? EIO : errno;  // it has become shorter, or takes no more
            return false;
        }
        bytes += done;
        size -= static_cast<std::size_t>(done);
        at += static_cast<std::size_t>(done);
    }
    return true;
}

bool read_all(const File &file, char *bytes, std::size_t size, std::size_t at)
{
    return transfer_all(pread, file.fd, bytes, size, at);
}

bool write_all(const File &file, const char *bytes, std::size_t size, std::size_t at)
{
    return transfer_all(pwrite, file.fd, bytes, size, at);
}

bool settle(const File &file)
{
    int result = 0;
    do {
        result = fsync(file.fd);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

/** The start of a file, mapped. */
class Mapping
{
  public:
    Mapping(const File &file, std::size_t size)
        : start_(mmap(nullptr, size, PROT_READ, MAP_SHARED, file.fd, 0)), size_(size)
    {
    }
    ~Mapping()
    {
        if (start_ != MAP_FAILED) {
            munmap(start_, size_);
        }
    }
    Mapping(const Mapping &) = delete;
    Mapping &operator=(const Mapping &) = delete;

    const char *start() const
    {
        return start_ != MAP_FAILED ? static_cast<const char *>(start_) : nullptr;
    }
    long size() const { return static_cast<long>(size_); }

  private:
    void *start_;
    std::size_t size_;
};

bool is_regular(const File &file)
{
    struct stat status;
    return fstat(file.fd, &status) == 0 && S_ISREG(status.st_mode);
}

// ---- the image ---------------------------------------------------------------------------------

/** What the checks say of an opened image: 0, or why it is refused. */
int check(const Image &image)
{
    const Mapping mapping{image.file, image.size};
    if (mapping.start() == nullptr) {
        return FW_CHECK_READ;
    }
    const int type = check_fw_type(mapping.start(), mapping.size());
    if (type != image.type) {
        return type < 0 ? type : FW_CHECK_TYPE;
    }
    int result = check_fw_crc(type, mapping.start(), mapping.size());
    if (result < 0) {
        return result;
    }
    // By descriptor: the name may stand for another file by now.
    char path[64];
    snprintf(path, sizeof(path), "/proc/self/fd/%d", image.file.fd);
    result = check_fw_valid(type, path);
    return result < 0 ? result : check_mtd_size(type, path);
}

/** Opens and checks; false, and said why, when the image is refused. */
bool accept(Image &image)
{
    struct stat status;
    image.file.fd = open(image.file.path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (image.file.fd < 0 || fstat(image.file.fd, &status) != 0) {
        complain(kRefused, "%s: %s", image.file.path, strerror(errno));
        return false;
    }
    int result = FW_CHECK_FORMAT;
    if (S_ISREG(status.st_mode) && status.st_size >= static_cast<off_t>(kHeaderSize)) {
        image.size = static_cast<std::size_t>(status.st_size);
        result = read_all(image.file, image.header, sizeof(image.header), 0) ? check(image)
                                                                             : FW_CHECK_READ;
    }
    if (result < 0) {
        complain(kRefused, "%s is refused: %s", image.file.path, fw_failure_text(result));
    }
    return result >= 0;
}

// ---- the partition -----------------------------------------------------------------------------

/** Makes sure of the room in a partition that is a file, which keeps its length for now. */
bool has_room(const File &partition, std::size_t size)
{
    return !is_regular(partition) ||
           fallocate(partition.fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0 ||
           errno == EOPNOTSUPP;
}

/** Opens the partition for this process alone; false, and said why, when it cannot be had. */
bool take_partition(File &partition, std::size_t size)
{
    partition.fd = open(partition.path, O_RDWR | O_CLOEXEC);
    if (partition.fd < 0) {
        complain(kRefused, "%s: %s", partition.path, strerror(errno));
        return false;
    }
    if (flock(partition.fd, LOCK_EX | LOCK_NB) != 0) {
        complain(kRefused, "%s: another upgrade is writing it", partition.path);
        return false;
    }
    if (!has_room(partition, size)) {
        complain(kRefused, "%s: %s", partition.path, strerror(errno));
        return false;
    }
    return true;
}

bool write_contents(const Image &image, const File &partition)
{
    static char chunk[kChunk];
    int told = 0;
    for (std::size_t at = kHeaderSize; at < image.size;) {
        const std::size_t size = image.size - at < kChunk ? image.size - at : kChunk;
        if (!read_all(image.file, chunk, size, at) || !write_all(partition, chunk, size, at)) {
            return false;
        }
        at += size;
        const int done = static_cast<int>(at * 100ULL / image.size);
        if (done >= told + kProgressStep) {
            told = done - done % kProgressStep;
            say("%d %% written", told);
        }
    }
    return true;
}

bool write_image(const Image &image, const File &partition)
{
    constexpr char kNoHeader[kHeaderSize] = {};
    return write_all(partition, kNoHeader, kHeaderSize, 0) && settle(partition) &&
           write_contents(image, partition) &&
           (!is_regular(partition) ||
            ftruncate(partition.fd, static_cast<off_t>(image.size)) == 0) &&
           settle(partition) && write_all(partition, image.header, kHeaderSize, 0) &&
           settle(partition);
}

/** Whether the flash holds the image that was checked, read from the flash itself. */
bool holds(const File &partition, const Image &image)
{
    posix_fadvise(partition.fd, 0, 0, POSIX_FADV_DONTNEED);
    const Mapping mapping{partition, image.size};
    return mapping.start() != nullptr &&
           memcmp(mapping.start(), image.header, sizeof(image.header)) == 0 &&
           check_fw_crc(image.type, mapping.start(), mapping.size()) >= 0;
}

bool write_until_it_holds(const Image &image, const File &partition)
{
    for (int attempt = 1; attempt <= kTries; ++attempt) {
        if (!write_image(image, partition)) {
            complain(kDamaged, "%s: %s (attempt %d of %d)", partition.path, strerror(errno),
                     attempt, kTries);
        } else if (!holds(partition, image)) {
            complain(kDamaged, "%s: what is read back differs (attempt %d of %d)", partition.path,
                     attempt, kTries);
        } else {
            return true;
        }
    }
    return false;
}

/** Without these, the partition could be what "standard output" is, and take the messages. */
void fill_standard_descriptors()
{
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

/** From here on a terminal or an initiator that goes away must not cut the writing short. */
void ignore_signals()
{
    for (const int signo : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
        signal(signo, SIG_IGN);
    }
}

int upgrade(Image &image, const char *process)
{
    char path[FW_PATH_SIZE];
    u64 room = 0;
    File partition;
    if (!accept(image)) {
        return kRefused;
    }
    if (fw_partition(path, &room) != 0) {
        return complain(kRefused, "%s", fw_failure_text(FW_CHECK_NO_PARTITION));
    }
    partition.path = path;
    if (!take_partition(partition, image.size)) {
        return kRefused;
    }
    ignore_signals();
    say("%s, %zu bytes, goes to %s, asked for by %s", image.file.path, image.size, path, process);
    if (!write_until_it_holds(image, partition)) {
        return complain(kDamaged,
                        "FAILED: %s HOLDS NO WHOLE IMAGE NOW. The device does not restart by "
                        "itself: do not switch it off, run the upgrade again.",
                        path);
    }
    say("written and read back, the device restarts");
    sync();
    if (system("reboot") != 0) {
        return complain(kNotRestarted, "the image is written, but the device does not restart");
    }
    return kDone;
}

/** A name that neither a terminal nor a log can be tricked with. */
bool is_plain(std::string_view name)
{
    return !name.empty() && name.find_first_not_of(
                                "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                "0123456789_.:-") == std::string_view::npos;
}

}  // namespace

int main(int argc, char **argv)
{
    fill_standard_descriptors();
    const std::string_view first = argc > 1 ? argv[1] : "";
    if (first == "--help" || first == "-h") {
        fputs(kHelp, stdout);
        return kDone;
    }
    if (argc != 4) {
        complain(kUsage, "TYPE, IMAGE and PROCESS are needed, and nothing else");
        fputs(kHelp, stderr);
        return kUsage;
    }
    if (first != "2") {
        return complain(kUsage, "type %s is not written on this device, only 2 is", argv[1]);
    }
    if (!is_plain(argv[3])) {
        return complain(kUsage, "PROCESS is no name of a process");
    }
    Image image;
    image.type = FW_TYPE_FLASH;
    image.file.path = argv[2];
    return upgrade(image, argv[3]);
}

// SPDX-License-Identifier: MIT
#include "prod_common_usb.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

#include "internal/handle.hpp"
#include "internal/log.hpp"
#include "internal/text.hpp"
#include "internal/usb.hpp"

using namespace prod;

namespace
{

constexpr const char *kVolumeFile = "/tmp/UsbVolumeInfo";
constexpr mode_t kNewFileMode = 0644;
constexpr std::size_t kDiskList = 128;
constexpr std::size_t kVolumeList = 1024;
constexpr std::size_t kPathSize = 127;
constexpr std::size_t kDiskNameLength = 3;  // "sda", the start of all its partitions' names

/** The room on a partition, in units of 2^30 bytes. */
struct Room {
    explicit Room(const struct statfs &fs)
        : total(in_gib(fs.f_bsize, fs.f_blocks)),
          unused(in_gib(fs.f_bsize, fs.f_bfree)),
          available(in_gib(fs.f_bsize, fs.f_bavail))
    {
    }
    double used() const { return total - unused; }

    double total;
    double unused;
    double available;

  private:
    template <typename Size, typename Count>
    static double in_gib(Size block, Count blocks)
    {
        return static_cast<double>(block) * to_double(blocks) / (1 << 30);
    }

    // In halves, which round no differently: the compiler's own conversion of 64 bits brings a
    // software arithmetic of doubles with it where the processor knows 32 bits only.
    static double to_double(std::uint64_t count)
    {
        constexpr double kUpperUnit = 4294967296.0;
        return static_cast<double>(static_cast<std::uint32_t>(count >> 32)) * kUpperUnit +
               static_cast<double>(static_cast<std::uint32_t>(count));
    }
};

using Record = Text<PROD_USB_RECORD_SIZE>;

/** The figures behind the total, which each have a star in front. */
void append_figures(Record &record, double used, double unused, double available)
{
    record.appendf("*%.6fG*%.6fG*%.6fG~", used, unused, available);
}

/** The block devices, which the kernel may be about to show. */
Dir open_block_devices()
{
    Dir devices{opendir("/sys/block")};
    if (devices == nullptr) {
        sleep(1);
        devices.reset(opendir("/sys/block"));
    }
    return devices;
}

using Volumes = Text<kVolumeList>;

/** Adds the record of a partition, unless it does not fit. */
void add_volume(Volumes &volumes, const char *name)
{
    char record[PROD_USB_RECORD_SIZE];
    const int length = prod_common_write_usb_volume_to_file(name, record, 0);
    const std::string_view text{record, static_cast<std::size_t>(length)};
    if (volumes.size() + text.size() < Volumes::capacity()) {
        volumes.append(text);
    }
}

/** Adds the partitions of a disk, or the disk itself, mounted whole. */
bool add_volumes_of(Volumes &volumes, const char *disk)
{
    const Dir partitions{opendir(kPartitionFolder)};
    if (partitions == nullptr) {
        return false;
    }
    bool found = false;
    while (const dirent *const entry = readdir(partitions.get())) {
        if (strncmp(entry->d_name, disk, kDiskNameLength) == 0) {
            add_volume(volumes, entry->d_name);
            found = true;
        }
    }
    if (!found) {
        add_volume(volumes, disk);
    }
    return true;
}

bool lock_exclusively(const Fd &fd)
{
    int rc;
    do {
        rc = flock(fd.get(), LOCK_EX);
    } while (rc != 0 && errno == EINTR);
    return rc == 0;
}

/** The lock comes first: whoever reads under it never finds the file cut. */
void save_volumes(std::string_view text)
{
    const Fd fd{open(kVolumeFile, O_WRONLY | O_CREAT | O_CLOEXEC, kNewFileMode)};
    if (!fd || !lock_exclusively(fd)) {
        return;
    }
    if (ftruncate(fd.get(), 0) == 0) {
        [[maybe_unused]] const ssize_t written = write(fd.get(), text.data(), text.size());
    }
    flock(fd.get(), LOCK_UN);
}

}  // namespace

HLX_RETURN_CODE prod_common_usb_get_diskname(char *DiskName, int buf_size)
{
    if (DiskName == nullptr || buf_size <= 0) {
        PROD_LOG_ERROR(kProd, "Null param.");
        return HLX_ERR;
    }
    const auto room = static_cast<std::size_t>(buf_size);
    memset(DiskName, 0, room);
    const Dir devices = open_block_devices();
    if (devices == nullptr) {
        return HLX_ERR;
    }
    std::size_t wanted = 0;
    std::size_t used = 0;
    while (const dirent *const entry = readdir(devices.get())) {
        const std::string_view name{entry->d_name};
        if (!name.starts_with("sd")) {
            continue;
        }
        wanted += name.size() + 1;
        if (wanted < room) {
            memcpy(DiskName + used, name.data(), name.size());
            DiskName[used + name.size()] = ' ';
            used = wanted;
        }
    }
    if (used > 0) {
        DiskName[used - 1] = '\0';
    }
    return wanted > 0 ? HLX_OK : HLX_ERR;
}

int prod_common_write_usb_volume_to_file(const char *partitionName, char *tmpInfobuf, int totalSize)
{
    if (partitionName == nullptr || tmpInfobuf == nullptr || totalSize < 0) {
        PROD_LOG_ERROR(kProd, "param error.");
        return 0;
    }
    const Text<kPathSize> path{"%s/%s", kPartitionFolder, partitionName};
    struct statfs fs = {};
    Record record{"%.*s:", NAME_MAX, partitionName};
    if (statfs(path.c_str(), &fs) == 0) {
        const Room room{fs};
        record.appendf("%.6fG", room.total);
        append_figures(record, room.used(), room.unused, room.available);
        PROD_LOG_INFO(kProd, "%s:total:%.6fG", partitionName, room.total);
        PROD_LOG_INFO(kProd, "User space:%.6fG", room.used());
        PROD_LOG_INFO(kProd, "free space:%.6fG", room.unused);
        PROD_LOG_INFO(kProd, "avail space:%.6fG", room.available);
    } else {
        PROD_LOG_ERROR(kProd, "Statfs error %s/%s.", kPartitionFolder, partitionName);
        record.append("0.0G");
        append_figures(record, 0, 0, 0);
    }
    memcpy(tmpInfobuf + totalSize, record.c_str(), record.size() + 1);
    return totalSize + static_cast<int>(record.size());
}

HLX_RETURN_CODE prod_common_get_usbvolume(void)
{
    char disks[kDiskList] = "";
    if (prod_common_usb_get_diskname(disks, sizeof(disks)) != HLX_OK) {
        PROD_LOG_DEBUG(kProd, "Can't get DiskName.");
        return HLX_ERR;
    }
    Volumes volumes;
    char *state = nullptr;
    for (const char *disk = strtok_r(disks, " ", &state); disk != nullptr;
         disk = strtok_r(nullptr, " ", &state)) {
        if (!add_volumes_of(volumes, disk)) {
            PROD_LOG_ERROR(kProd, "Can't open DiskNode.");
            return HLX_ERR;
        }
    }
    save_volumes(volumes.view());
    return HLX_OK;
}

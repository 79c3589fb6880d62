// SPDX-License-Identifier: MIT
#include "prod_common_check.h"

#include <dirent.h>
#include <linux/if_bridge.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "internal/config.hpp"
#include "internal/handle.hpp"
#include "internal/line_reader.hpp"
#include "internal/log.hpp"
#include "internal/proc.hpp"
#include "internal/text.hpp"
#include "internal/usb.hpp"
#include "platform/cfm.h"

using namespace prod;

namespace
{

// ---- address ranges that clash --------------------------------------------------------------

// ---- the LAN moves --------------------------------------------------------------------------

// ---- presence -------------------------------------------------------------------------------

constexpr const char *kDiskNameFile = "/tmp/UDiskname";
constexpr int kBridgePorts = 32;
constexpr std::size_t kMountLine = 255;

/** The interface numbers of a bridge's first ports, 0 where there is none. */
bool bridge_ports(const char *bridge, int (&ports)[kBridgePorts])
{
    const Fd fd{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!fd) {
        return false;
    }
    unsigned long args[4] = {BRCTL_GET_PORT_LIST, reinterpret_cast<unsigned long>(ports),
                             kBridgePorts, 0};
    ifreq request{};
    copy_text(request.ifr_name, bridge);
    request.ifr_data = reinterpret_cast<char *>(args);
    return ioctl(fd.get(), SIOCDEVPRIVATE, &request) >= 0;
}

/** Whether a blank-delimited word that starts somewhere in the line is exactly the path. */
bool names_path(const char *line, const char *path)
{
    const std::size_t length = strlen(path);
    for (const char *at = strstr(line, path); at != nullptr; at = strstr(at + 1, path)) {
        const auto after = static_cast<unsigned char>(at[length]);
        if (after == '\0' || isspace(after)) {
            return true;
        }
    }
    return false;
}

/** The folder of the USB partitions, which the USB daemon may be about to make. */
Dir open_partition_folder()
{
    Dir folder{opendir(kPartitionFolder)};
    if (folder == nullptr) {
        sleep(1);
        folder.reset(opendir(kPartitionFolder));
    }
    return folder;
}

void append_partition(char *out, int size, const char *name)
{
    if (out == nullptr || size <= 0) {
        return;
    }
    const auto room = static_cast<std::size_t>(size);
    const std::size_t used = strnlen(out, room);
    if (used < room) {
        snprintf(out + used, room - used, "%s~", name);
    }
}

/** The item of a number, as it stands in a text that is cut up for it; nullptr beyond the last. */
char *find_item(char *text, const char *delimiters, int index)
{
    char *state = nullptr;
    char *item = strtok_r(text, delimiters, &state);
    for (int i = 0; i < index && item != nullptr; ++i) {
        item = strtok_r(nullptr, delimiters, &state);
    }
    return item;
}

}  // namespace

// ---- address ranges that clash --------------------------------------------------------------

// ---- the LAN moves --------------------------------------------------------------------------

// ---- presence -------------------------------------------------------------------------------

int prod_check_file_exist(const char *path)
{
    struct stat status;
    return path != nullptr && stat(path, &status) == 0;
}

int check_usbdevice_working(void)
{
    const FunctionTrace trace{PROD_SITE};
    struct stat status;
    return trace.leave(stat(kDiskNameFile, &status) == 0 && status.st_size != 0 ? 1 : 0);
}

int prod_check_app_exist(const char *name)
{
    const Dir proc{name != nullptr ? opendir("/proc") : nullptr};
    if (proc == nullptr) {
        return 0;
    }
    while (const dirent *const entry = readdir(proc.get())) {
        if (isdigit(static_cast<unsigned char>(entry->d_name[0])) == 0) {
            continue;
        }
        const ProcessStat stat{static_cast<int>(strtol(entry->d_name, nullptr, 10))};
        const std::string_view found = stat.name();
        if (!found.empty() && found == name) {
            return 1;
        }
    }
    return 0;
}

int prod_check_mount_exist(const char *text)
{
    constexpr std::string_view kBefore = "/bin/mount | grep '";
    constexpr std::string_view kAfter = "'";
    constexpr std::string_view kDash = "[-]";  // grep takes a text that starts with one for options
    Text<128> command;
    // A quote would end the text early, and a cut command would not end it at all.
    if (text == nullptr || strchr(text, '\'') != nullptr) {
        return 0;
    }
    std::string_view rest{text};
    command.append(kBefore);
    if (rest.starts_with('-')) {
        command.append(kDash);
        rest.remove_prefix(1);
    }
    if (command.size() + rest.size() + kAfter.size() >= command.capacity()) {
        return 0;
    }
    command.append(rest);
    command.append(kAfter);
    const Pipe mounts{popen(command.c_str(), "re")};
    if (mounts == nullptr) {
        return 0;
    }
    const int first = fgetc(mounts.get());
    return first != EOF && first != '\n';
}

int prod_check_device_exist(const char *ifname)
{
    return ifname != nullptr && if_nametoindex(ifname) != 0;
}

int prod_check_device_in_bridge(const char *ifname, const char *bridge)
{
    if (ifname == nullptr || bridge == nullptr) {
        return 0;
    }
    int ports[kBridgePorts] = {};
    if (!bridge_ports(bridge, ports)) {
        return 0;
    }
    for (const int port : ports) {
        char name[IF_NAMESIZE];
        if (port != 0 && if_indextoname(static_cast<unsigned int>(port), name) != nullptr &&
            strcmp(name, ifname) == 0) {
            return 1;
        }
    }
    return 0;
}

int check_dir_is_mounts(const char *name)
{
    if (name == nullptr) {
        return 0;
    }
    const Text<256> path{"%s/%s", kPartitionMounts, name};
    LineReader<kMountLine> mounts{"/proc/mounts"};
    while (const char *const line = mounts.next()) {
        if (names_path(line, path.c_str())) {
            return 1;
        }
    }
    return 0;
}

int find_usb_partitions(char *out, int size)
{
    const Dir folder = open_partition_folder();
    if (folder == nullptr) {
        return 0;
    }
    int count = 0;
    while (const dirent *const entry = readdir(folder.get())) {
        if (check_dir_is_mounts(entry->d_name) == 1) {
            ++count;
            append_partition(out, size, entry->d_name);
        }
    }
    return count;
}

void check_modify_item_in_rule(char *pRule, const char *pDelimiter, int iItemIndex,
                               const char *pItem)
{
    if (pRule == nullptr || pDelimiter == nullptr || pItem == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return;
    }
    if (iItemIndex < 0) {
        PROD_LOG_ERROR(kProd, "index is error.");
        return;
    }
    char items[PROD_RULE_SIZE];
    std::string_view rest{pRule, strnlen(pRule, PROD_RULE_SIZE - 1)};
    copy_text(items, rest);
    const char *const item = find_item(items, pDelimiter, iItemIndex);
    if (item == nullptr) {
        return;
    }
    const auto start = static_cast<std::size_t>(item - items);
    rest.remove_prefix(start + strlen(item));
    if (*pItem == '\0' && !rest.empty()) {
        rest.remove_prefix(1);  // an item goes with the delimiter after it
    }
    Text<PROD_RULE_SIZE> result;
    result.append(std::string_view{pRule, start});
    result.append(std::string_view{pItem});
    result.append(rest);
    memcpy(pRule, result.c_str(), result.size() + 1);
}

void update_timestamps(const char *key)
{
    constexpr long long kStep = 2;  // more than one, so that a reader with whole seconds sees it
    constexpr long long kZoneWithoutOffset = 12;
    if (key == nullptr) {
        return;
    }
    const long long stored = strtoll(ConfigValue{key}.c_str(), nullptr, 10);
    const long long zone = config_int("sys.timezone");
    const long long now =
        static_cast<long long>(time(nullptr)) - 3600 * (zone - kZoneWithoutOffset);
    const u64 next = static_cast<u64>(stored >= now ? stored : now) + kStep;
    SetValue(key, Text<32>{"%llu", next}.c_str());
    CommitCfm();
}

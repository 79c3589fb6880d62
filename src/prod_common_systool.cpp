// SPDX-License-Identifier: MIT
#include "prod_common_systool.h"

#include <pthread.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <optional>

#include "internal/config.hpp"
#include "internal/console.hpp"
#include "internal/daemons.hpp"
#include "internal/line_reader.hpp"
#include "internal/local_time.hpp"
#include "internal/log.hpp"
#include "internal/policy.hpp"
#include "internal/shell.hpp"
#include "internal/text.hpp"
#include "platform/database.h"
#include "platform/process.h"
#include "prod_common_cfm.h"
#include "prod_common_file.h"
#include "prod_common_time.h"

using namespace prod;

namespace
{

// ---- configuration backup -------------------------------------------------------------------

constexpr char kBackup[] = "/etc/tmp.cfg";
static_assert(sizeof(kBackup) == PROD_BACKUP_NAME_SIZE);

constexpr const char *kTrailer = "crc=";
constexpr const char *kPublicMarker = "##the public configure end##";
constexpr const char *kUrlMarker = "##the url configure end##";

// Where the configuration manager looks for what was uploaded.
constexpr const char *kPublicFile = "/webroot/default.cfg";
constexpr const char *kUrlFile = "/webroot/default_url.cfg";

/** A section of policies and the line that ends it. */
struct PolicySection {
    const char *file;
    const char *marker;
};
constexpr PolicySection kPolicySections[] = {
    {kWirelessPolicy.file, "##the wl configure end##"},
    {kRadioPolicy.file, "##the rf configure end##"},
    {kRebootPolicy.file, "##the reboot configure end##"},
    {kDeployPolicy.file, "##the wldeploy configure end##"},
    {kVlanPolicy.file, "##the qvlan configure end##"},
};

constexpr std::size_t kPictureNameSize = 64;
constexpr std::size_t kWebAddressSize = 256;

void append_public_section()
{
    doSystemCmd("cfm show /etc/tmp.cfg");
    const ConfigValue picture{"web.default.pic.name", kPictureNameSize};
    if (!picture.empty()) {
        doSystemCmd("echo \"web.pic.name=%s\" >> /etc/tmp.cfg",
                    QuotedShellText{picture.c_str()}.c_str());
    }
    doSystemCmd("echo -e \"\n%s\n\" >> /etc/tmp.cfg", kPublicMarker);
}

/** A line break of its own ends a last record, which has none. */
void append_marker(const char *marker)
{
    doSystemCmd("echo  \"\n%s\n\" >> /etc/tmp.cfg", marker);
}

void append_policies()
{
    for (const PolicySection &section : kPolicySections) {
        doSystemCmd("rm -rf %s", section.file);
    }
    prod_download_ac_policy();
    append_marker(kUrlMarker);
    for (const PolicySection &section : kPolicySections) {
        doSystemCmd("cat %s >> /etc/tmp.cfg", section.file);
        append_marker(section.marker);
    }
}

void append_checksum()
{
    void *data = nullptr;
    u32 size = 0;
    if (get_file_content(kBackup, &data, &size) == 1) {
        const Allocated<char> content{static_cast<char *>(data)};
        doSystemCmd("echo \"crc=%lu\" >> /etc/tmp.cfg",
                    crc32(0, reinterpret_cast<const Bytef *>(content.get()), size));
    }
}

/** The checksummed part of a backup file; nothing when the file is none, which is told. */
std::optional<std::string_view> checked_part(const char *file, long size)
{
    const char *const trailer = strstr(file, kTrailer);
    if (trailer == nullptr) {
        puts("CRC not found 1!");
        return std::nullopt;
    }
    const char *const digits = trailer + strlen(kTrailer);
    char *end;
    const unsigned long expected = strtoul(digits, &end, 10);
    if (end == digits) {
        puts("CRC not found 2!");
        return std::nullopt;
    }
    const long covered = size - static_cast<long>(strlen(trailer));
    if (covered < 0) {
        return std::nullopt;
    }
    const unsigned long actual =
        crc32_z(0, reinterpret_cast<const Bytef *>(file), static_cast<std::size_t>(covered));
    if (expected != actual) {
        printf("expected crc=%lu, actual crc=%lu\n", expected, actual);
        return std::nullopt;
    }
    return std::string_view{file, static_cast<std::size_t>(trailer - file)};
}

std::string_view between(std::string_view text, std::size_t from, std::size_t to)
{
    return {text.data() + from, to - from};
}

/** False when the medium did not take all of it. */
bool put(const Stream &file, std::string_view text)
{
    return fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
           fflush(file.get()) == 0;
}

/** The files that a backup is split into. */
struct SplitFiles {
    Stream configuration{fopen(kPublicFile, "wbe")};
    Stream url{fopen(kUrlFile, "wbe")};
    Stream policies[std::size(kPolicySections)];

    SplitFiles()
    {
        for (std::size_t i = 0; i < std::size(policies); ++i) {
            policies[i].reset(fopen(kPolicySections[i].file, "w+e"));
        }
    }

    bool has_policies() const
    {
        return std::all_of(std::begin(policies), std::end(policies),
                           [](const Stream &file) { return file != nullptr; });
    }
};

/**
 * Splits a backup at its markers, each looked for behind the one before. A policy file begins with
 * the marker of the section before it, which readers of records pass over. False when a marker is
 * missing or a file was not written; what was written so far stays.
 */
bool split(std::string_view backup, const SplitFiles &files)
{
    constexpr std::size_t kMissing = std::string_view::npos;
    const std::size_t public_end = backup.find(kPublicMarker);
    const bool has_public = public_end != kMissing;
    if (has_public && !put(files.configuration, between(backup, 0, public_end))) {
        return false;
    }
    if (!files.has_policies()) {
        return false;
    }
    const std::size_t url = has_public ? public_end + strlen(kPublicMarker) : 0;
    std::size_t start = backup.find(kUrlMarker, url);
    if (start == kMissing || (has_public && !put(files.url, between(backup, url, start)))) {
        return false;
    }
    std::size_t behind = start + strlen(kUrlMarker);
    for (std::size_t i = 0; i < std::size(kPolicySections); ++i) {
        const char *const marker = kPolicySections[i].marker;
        const std::size_t end = backup.find(marker, behind);
        if (end == kMissing || !put(files.policies[i], between(backup, start, end))) {
            return false;
        }
        start = end;
        behind = end + strlen(marker);
    }
    return true;
}

/** Lays the parts of a backup out where they are loaded from. */
bool lay_out(std::string_view backup)
{
    const SplitFiles files;
    if (files.configuration == nullptr || files.url == nullptr || !split(backup, files)) {
        return false;
    }
    // The last line of a key counts, so the device keeps this value whatever the backup says.
    constexpr const char *kWebAddress = "wans.wanwebaddr";
    const ConfigValue address{kWebAddress, kWebAddressSize};
    return put(files.configuration,
               Text<kWebAddressSize + 32>{"%s=%s\n", kWebAddress, address.c_str()}.view());
}

// ---- figures --------------------------------------------------------------------------------

constexpr const char *kMemoryFile = "/proc/meminfo";
constexpr const char *kCpuFile = "/proc/stat";
constexpr std::size_t kMemoryLine = 63;
constexpr std::size_t kCpuLine = 255;  // ten numbers of any size

/** What follows the first word of a line, or nullptr when it has none. */
const char *behind_first_word(const char *line)
{
    line += strspn(line, kBlanks);
    const std::size_t length = strcspn(line, kBlanks);
    return length > 0 ? line + length : nullptr;
}

/** The number behind the name of a line "MemTotal:  16384 kB". */
std::optional<long long> figure_of(const char *line)
{
    const char *rest = line != nullptr ? behind_first_word(line) : nullptr;
    return rest != nullptr ? take_number(rest, "") : std::nullopt;
}

/** What the processors have done since the device started, in ticks. */
struct Jiffies {
    long long total = 0;
    long long idle = 0;
};

/**
 * Reads the line of all processors together: user, nice, system, idle and six more, the last of
 * which older kernels lack.
 * @return how many numbers the line has
 */
int read_jiffies(const char *line, Jiffies &jiffies)
{
    constexpr int kIdle = 3;
    constexpr int kNumbers = 10;
    constexpr long long kMost = 1LL << 50;  // ages; ten of them a hundredfold still fit
    jiffies = {};
    const char *rest = line != nullptr ? behind_first_word(line) : nullptr;
    int count = 0;
    for (; rest != nullptr && count < kNumbers; ++count) {
        char *end;
        const long long number = std::clamp(strtoll(rest, &end, 10), 0LL, kMost);
        if (end == rest) {
            break;
        }
        rest = end;
        jiffies.total += number;
        if (count == kIdle) {
            jiffies.idle = number;
        }
    }
    return count;
}

/** The share of the time between two samples in which the processors were not idle. */
int load_between(const Jiffies &one, const Jiffies &other)
{
    const long long passed = std::abs(one.total - other.total);
    const long long idle = std::abs(one.idle - other.idle);
    // One more, so that no time at all is no load.
    return static_cast<int>(std::clamp((passed - idle) * 100 / (passed + 1), 0LL, 100LL));
}

/** What the process remembers between two questions for the load. */
struct CpuLoad {
    Jiffies samples[2];
    unsigned int count = 0;  // of samples taken; the next one goes to its last bit's place
    u64 last_ms = 0;
    int percent = 0;
};

}  // namespace

// ---- configuration backup -------------------------------------------------------------------

int prod_systool_sys_cfg_download(char *filename)
{
    if (filename == nullptr) {
        return -1;
    }
    memcpy(filename, kBackup, sizeof(kBackup));
    append_public_section();
    append_policies();
    for (const char *const database : {"default", "auth", "ac", "client"}) {
        db_backup_save(database, filename);
    }
    append_checksum();
    sleep(1);
    return 0;
}

int prod_systool_cfg_upload(const char *pbuf, long size)
{
    if (pbuf == nullptr || size <= 0) {
        return CFG_FILE_INVALID;
    }
    const std::optional<std::string_view> backup = checked_part(pbuf, size);
    if (!backup) {
        return CFG_FILE_INVALID;
    }
    // The databases "ac" and "client" hold what was seen, not what was set: they are not restored.
    db_backup_load("default", pbuf);
    db_backup_load("auth", pbuf);
    if (!lay_out(*backup)) {
        return CFG_UPLOAD_ERR;
    }
    upload_ac_policy();
    sleep(2);
    doSystemCmd("cfm Upload");
    printf("%s_Exit\n", __func__);
    return CFG_UPGRADE_OK;
}

int prod_backup_file_handle(FILE_OPERATE_ENUM type, char *buf, long size)
{
    switch (type) {
        case FILE_OPERATE_DOWNLOAD:
            return prod_systool_sys_cfg_download(buf);
        case FILE_OPERATE_UPLOAD:
            return prod_systool_cfg_upload(buf, size);
        default:
            puts("invalid type!");
            return -1;
    }
}

// ---- figures --------------------------------------------------------------------------------

HLX_RETURN_CODE systool_get_memInfo(int *memuse)
{
    if (memuse == nullptr) {
        return HLX_ERR;
    }
    LineReader<kMemoryLine> lines{kMemoryFile};
    if (!lines.is_open()) {
        PROD_LOG_ERROR(kProd, "getMemInfo: open file error.");
        return HLX_ERR;
    }
    const std::optional<long long> total = figure_of(lines.next());
    const std::optional<long long> free_kb = figure_of(lines.next());
    *memuse = total && free_kb && *total != 0 ? static_cast<int>((*total - *free_kb) * 100 / *total)
                                              : 100;
    return HLX_OK;
}

int systool_get_memfree(void)
{
    LineReader<kMemoryLine> lines{kMemoryFile};
    lines.next();  // the total
    return static_cast<int>(figure_of(lines.next()).value_or(-1));
}

int systool_get_cpu_percent(void)
{
    constexpr u64 kFreshMs = 949;
    constexpr u64 kStaleMs = 3600001;
    constexpr u64 kWhileAgoMs = 10000;  // neither fresh nor stale
    static CpuLoad load;

    for (;;) {
        const u64 now = get_now_ms();
        const bool first = load.count == 0;
        if (!first && now - load.last_ms <= kFreshMs) {
            return load.percent;
        }
        LineReader<kCpuLine> lines{kCpuFile};
        if (!lines.is_open()) {
            const int err = errno;
            log_failure(PROD_SITE, err, "fopen");
            return 0;
        }
        if (read_jiffies(lines.next(), load.samples[load.count & 1]) < 4) {
            return 0;
        }
        load.percent = load_between(load.samples[0], load.samples[1]);
        ++load.count;
        if (!first && now - load.last_ms < kStaleMs) {
            load.last_ms = now;
            return load.percent;
        }
        // The other sample is none, or of another time: a second one is taken in a second.
        load.last_ms = now - kWhileAgoMs;
        sleep(1);
    }
}

void systool_get_curtime(char *CurDatetime)
{
    if (CurDatetime == nullptr) {
        return;
    }
    const std::optional<struct tm> now = local_time(time(nullptr));
    if (!now) {
        copy_text(CurDatetime, PROD_CURTIME_SIZE, "2007-09-06 10:01:06");
        return;
    }
    copy_text(CurDatetime, PROD_CURTIME_SIZE, date_time_text(*now).view());
}

// ---- reboot ---------------------------------------------------------------------------------

void systool_reboot(void)
{
    pthread_t thread;  // nobody waits for it: the device goes down at its end
    const int err = pthread_create(&thread, nullptr, systool_reboot_thread, nullptr);
    if (err != 0) {
        log_failure(PROD_SITE, err, "start the reboot");
    }
}

void *systool_reboot_thread(void *)
{
    proc_send_signal(kL2tpPppDaemon, SIGHUP);  // it hangs up
    sleep(3);
    monitor_stop(kMultiWanManager);
    sleep(2);
    console_line(PROD_SITE, kYellow, "rebooting ...");
    run_command("date;reboot");
    return nullptr;
}

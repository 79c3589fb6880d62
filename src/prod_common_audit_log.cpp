// SPDX-License-Identifier: MIT
#include "prod_common_audit_log.h"

#include <dirent.h>
#include <sys/time.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "internal/handle.hpp"
#include "internal/local_time.hpp"
#include "internal/log.hpp"
#include "internal/text.hpp"
#include "internal/usb.hpp"
#include "prod_common_cfm.h"
#include "prod_common_check.h"
#include "prod_common_time.h"

using namespace prod;

namespace
{

constexpr const char *kStorageKey = "audit.usb.storage.dir";
constexpr int kTimeSize = 32;

constexpr int kDay = 86400;
constexpr int kHour = 3600;
constexpr int kMinute = 60;

/** What stands in front of the caller's text in the messages of one application. */
struct Wording {
    uint32_t app_id;
    const char *before;  // nullptr: no message
};

constexpr Wording kWordings[] = {
    {4, "user "},
    {5, "user staying:"},
    {6, "user sms auth info:"},
    {7, "user web auth info:"},
    {8, nullptr},
    {9, "user "},
    {10, "user "},
};

const Wording *wording_of(uint32_t app_id)
{
    const auto *const found = std::find_if(std::begin(kWordings), std::end(kWordings),
                                           [=](const Wording &w) { return w.app_id == app_id; });
    return found != std::end(kWordings) ? found : nullptr;
}

/** Room that a caller gave as an int; none when it is negative. */
std::size_t room_of(int length)
{
    return length > 0 ? static_cast<std::size_t>(length) : 0;
}

/** A text of which so much counts, whether it ends there or not. */
std::string_view at_most(std::size_t length, const char *text)
{
    return {text, strnlen(text, length)};
}

/** Fills a caller's room with a text, cut to fit, and zero bytes. */
void fill_room(char *out, std::size_t room, std::string_view text)
{
    memset(out, 0, room);
    copy_text(out, room, text);
}

/** The entries of a folder in alphabetical order. */
class SortedFolder
{
  public:
    explicit SortedFolder(const char *path) : count_(scandir(path, &entries_, nullptr, alphasort))
    {
    }
    ~SortedFolder()
    {
        for (int i = 0; i < count_; ++i) {
            free(entries_[i]);
        }
        free(entries_);
    }
    SortedFolder(const SortedFolder &) = delete;
    SortedFolder &operator=(const SortedFolder &) = delete;

    /** How many there are; negative when the folder cannot be listed. */
    int count() const { return count_; }
    const char *name(int place) const { return entries_[place]->d_name; }

  private:
    dirent **entries_ = nullptr;
    int count_;
};

/** Whether an entry of the partitions' folder holds a file system with room for anything. */
bool holds_blocks(Site site, const char *name)
{
    const Text<256> path{"%s/%s", kPartitionFolder, name};
    struct statfs room = {};
    if (statfs(path.c_str(), &room) != 0) {
        PROD_LOG_ERROR_AT(site, kProd, "Statfs error '%s'.", path.c_str());
        return false;
    }
    return room.f_blocks != 0;
}

}  // namespace

int fill_stay_str_by_ontime(int on_time, char *msg, int msg_len)
{
    if (on_time <= 0) {
        PROD_LOG_ERROR(kProd, "invalid param");
        return 0;
    }
    if (msg == nullptr || msg_len <= 0) {
        return 0;
    }
    const int stay = get_sys_uptime() - on_time;
    const Text<128> text{"[%d]day [%d]hour [%d]minute [%d]second", stay / kDay, stay % kDay / kHour,
                         stay % kHour / kMinute, stay % kMinute};
    fill_room(msg, room_of(msg_len), text.view());
    return 1;
}

void audit_log_get_time(char *buff, int buff_len)
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    const std::optional<struct tm> local = local_time(now.tv_sec);
    if (buff == nullptr || buff_len <= 0 || !local) {
        return;
    }
    Text<64> text = date_time_text(*local);
    text.append(' ');
    copy_text(buff, room_of(buff_len), text.view());
}

int fill_audit_log_msg_by_appid(uint32_t app_id, char *msg, int msg_len)
{
    if (msg == nullptr) {
        PROD_LOG_ERROR(kProd, "invalid param");
        return 0;
    }
    PROD_LOG_INFO(kProd, "app_id %d ,msg_len %d", static_cast<int>(app_id), msg_len);
    char when[kTimeSize] = "";
    audit_log_get_time(when, kTimeSize);
    const Wording *const wording = wording_of(app_id);
    if (wording == nullptr) {
        PROD_LOG_ERROR(kProd, "app_id[%d] invalid param", static_cast<int>(app_id));
        return 0;
    }
    if (msg_len <= 0) {
        return 0;
    }
    Text<PROD_AUDIT_MSG_SIZE> worded;
    if (wording->before != nullptr) {
        worded.append(std::string_view{wording->before});
        worded.append(at_most(room_of(msg_len), msg));
        worded.appendf(" time:%s", when);
    }
    fill_room(msg, room_of(msg_len), worded.view());
    return 1;
}

int fill_audit_log_info(audit_save_log_info *log_info, const char *mac, const char *ip,
                        uint32_t app_id, char *msg, int msg_len)
{
    if (log_info == nullptr || mac == nullptr || ip == nullptr || msg == nullptr) {
        PROD_LOG_ERROR(kProd, "invalid param");
        return 0;
    }
    *log_info = {};
    fill_audit_log_msg_by_appid(app_id, msg, msg_len);
    copy_text(reinterpret_cast<char *>(log_info->mac_addr), sizeof(log_info->mac_addr),
              at_most(sizeof(log_info->mac_addr) - 1, mac));
    copy_text(log_info->ipaddr, at_most(sizeof(log_info->ipaddr) - 1, ip));
    // One that was refused may have no end.
    copy_text(log_info->msg, at_most(msg_len > 0 ? room_of(msg_len) : sizeof(log_info->msg), msg));
    log_info->appid = app_id;
    return 1;
}

int audit_log_set_new_usb_dir(void)
{
    const SortedFolder partitions{kPartitionFolder};
    if (partitions.count() < 0) {
        PROD_LOG_ERROR(kProd, "scandir return %d \n", partitions.count());
        return 0;
    }
    bool chosen = false;
    for (int i = 0; i < partitions.count(); ++i) {
        const char *const name = partitions.name(i);
        if (!holds_blocks(PROD_SITE, name) || chosen || check_dir_is_mounts(name) != 1) {
            continue;
        }
        prod_cfm_set_val(kStorageKey, name);
        prod_cfm_commit();
        PROD_LOG_DEBUG(kProd, "name: %s\n", name);
        chosen = true;
    }
    return chosen ? 1 : 0;
}

// SPDX-License-Identifier: MIT
// The audit trail: messages, records, storage.
#include <climits>

#include "groups.hpp"
#include "prod_common_audit_log.h"
#include "prod_common_ifaddrs.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr int kFirstId = 4;
constexpr int kLastId = 10;

std::optional<int> app_id_of(const char *text)
{
    return number(text, kFirstId, kLastId);
}

int no_app_id(const Call &call, const char *text)
{
    return call.usage("'%s' is no application id from %d to %d", text, kFirstId, kLastId);
}

/** A text in the room that messages have; a longer one is cut as the message would be. */
struct Message {
    explicit Message(const char *words)
    {
        const std::string cut = std::string{words}.substr(0, sizeof(text) - 1);
        cut.copy(text, cut.size());
    }
    char text[PROD_AUDIT_MSG_SIZE] = "";
};

int run_word(const Call &call, cJSON *answer)
{
    const std::optional<int> app_id = app_id_of(call[0]);
    if (!app_id) {
        return no_app_id(call, call[0]);
    }
    Message message{call[1]};
    fill_audit_log_msg_by_appid(static_cast<uint32_t>(*app_id), message.text, sizeof(message.text));
    add_text(answer, "message", message.text);
    return kYes;
}

void show_word(const cJSON *answer, Page &page)
{
    page.line({text_of(answer, "message")});
}

int run_record(const Call &call, cJSON *answer)
{
    const std::optional<int> app_id = app_id_of(call[0]);
    unsigned char mac[6];
    if (!app_id) {
        return no_app_id(call, call[0]);
    }
    if (mac_str_to_bin(call[1], mac) != 1) {
        return call.usage("'%s' is no MAC address", call[1]);
    }
    if (!is_dotted_quad(call[2])) {
        return call.usage("'%s' is no IPv4 address", call[2]);
    }
    Message message{call[3]};
    audit_save_log_info record;
    fill_audit_log_info(&record, call[1], call[2], static_cast<uint32_t>(*app_id), message.text,
                        sizeof(message.text));
    add_text(answer, "mac", reinterpret_cast<const char *>(record.mac_addr));
    add_text(answer, "address", record.ipaddr);
    add_number(answer, "app_id", record.appid);
    add_text(answer, "message", record.msg);
    return kYes;
}

void show_record(const cJSON *answer, Page &page)
{
    page.fields({{"MAC", text_of(answer, "mac")},
                 {"address", text_of(answer, "address")},
                 {"application", format("%d", int_of(answer, "app_id"))},
                 {"message", text_of(answer, "message")}});
}

int run_stay(const Call &call, cJSON *answer)
{
    const std::optional<int> since = number(call[0], 1, INT_MAX);
    if (!since) {
        return call.usage("'%s' is no up-time in seconds from 1 to %d", call[0], INT_MAX);
    }
    char text[PROD_AUDIT_MSG_SIZE] = "";
    fill_stay_str_by_ontime(*since, text, sizeof(text));
    add_text(answer, "stay", text);
    return kYes;
}

void show_stay(const cJSON *answer, Page &page)
{
    page.line({text_of(answer, "stay")});
}

int run_storage(const Call &call, cJSON *answer)
{
    if (audit_log_set_new_usb_dir() != 1) {
        return call.no("no USB partition is mounted");
    }
    add_text(answer, "partition", config_value("audit.usb.storage.dir").value_or(""));
    return kYes;
}

void show_storage(const cJSON *answer, Page &page)
{
    page.line({text_of(answer, "partition")});
}

constexpr Command kCommands[] = {
    {.name = "word",
     .summary = "The message that the trail keeps for a text",
     .arguments = "APP-ID TEXT",
     .min_arguments = 2,
     .max_arguments = 2,
     .details = "APP-ID tells what the text is about: 5 the length of a stay, 6 an authentication\n"
                "by SMS, 7 one by a web page; 4, 9 and 10 the user; with 8 the message is empty.",
     .run = run_word,
     .show = show_word},
    {.name = "record",
     .summary = "A record of the trail, worded",
     .arguments = "APP-ID MAC ADDRESS TEXT",
     .min_arguments = 4,
     .max_arguments = 4,
     .run = run_record,
     .show = show_record},
    {.name = "stay",
     .summary = "How long a user has stayed who came at an up-time of the device",
     .arguments = "UP-TIME",
     .min_arguments = 1,
     .max_arguments = 1,
     .run = run_stay,
     .show = show_stay},
    {.name = "storage",
     .summary = "Choose the USB partition of the trail: the first that is mounted",
     .details = "The choice is stored under audit.usb.storage.dir and committed.",
     .no = "no USB partition is mounted",
     .run = run_storage,
     .show = show_storage},
};

}  // namespace

constinit const Command kAuditGroup = {
    .name = "audit",
    .summary = "The audit trail of user access: messages, records, storage",
    .children = kCommands,
};

}  // namespace prodctl

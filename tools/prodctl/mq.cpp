// SPDX-License-Identifier: MIT
// Message queues between the device's programs.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "groups.hpp"
#include "ipc/msg_queue.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr Word kQueues[] = {{MQ_PORTAL_SEND_SMS, "portal-sms"},
                            {MQ_PORTAL_SEND_EMAIL, "portal-email"},
                            {MQ_PORTAL_SEND_FACEBOOK, "portal-facebook"}};

constexpr int kDefaultSize = 256;
constexpr int kLargestSize = 65536;  // far beyond what the kernel lets into one message

constexpr const char *kSize = "--size";
constexpr const char *kWait = "--wait";

/** The queue of a word or of a number, decimal or hexadecimal; 0 is none that could be shared. */
std::optional<mq_id_t> queue_of(const char *text)
{
    if (const std::optional<int> known = value_of(kQueues, text)) {
        return static_cast<mq_id_t>(*known);
    }
    char *end = nullptr;
    errno = 0;
    const unsigned long long id = strtoull(text, &end, 0);
    if (*text < '0' || *text > '9' || *end != '\0' || errno != 0 || id == 0 || id > UINT_MAX) {
        return std::nullopt;
    }
    return static_cast<mq_id_t>(id);
}

/** What the words of both commands say. */
struct Request {
    mq_id_t queue;
    std::size_t size;
    int wait;
};

/** @return nothing, after a complaint, when the words are wrong */
std::optional<Request> request_of(const Call &call)
{
    const std::optional<mq_id_t> queue = queue_of(call[0]);
    if (!queue) {
        static_cast<void>(call.usage("'%s' is no queue: %s, or a number above 0", call[0],
                                     listed(kQueues).c_str()));
        return std::nullopt;
    }
    std::optional<int> size = kDefaultSize;
    if (!call.read_number(kSize, 1, kLargestSize, size)) {
        return std::nullopt;
    }
    return Request{*queue, static_cast<std::size_t>(*size), call.given(kWait)};
}

/** Standard input, up to one byte more than fits. */
std::string input(std::size_t fits)
{
    std::string bytes(fits + 1, '\0');
    std::size_t length = 0;
    ssize_t got;
    while (length < bytes.size() &&
           (got = read(STDIN_FILENO, bytes.data() + length, bytes.size() - length)) > 0) {
        length += static_cast<std::size_t>(got);
    }
    bytes.resize(length);
    return bytes;
}

void add_queue(cJSON *answer, mq_id_t queue)
{
    add_number(answer, "queue", queue);
}

int run_put(const Call &call, cJSON *answer)
{
    const std::optional<Request> request = request_of(call);
    if (!request) {
        return kUsage;
    }
    std::string record = call[1] != nullptr ? call[1] : input(request->size);
    if (record.size() > request->size) {
        return call.usage("the text is longer than the record of %zu bytes", request->size);
    }
    record.resize(request->size);
    if (mq_put(request->queue, record.data(), static_cast<int>(record.size()), request->wait) ==
        0) {
        return call.no("the record was not queued");
    }
    add_queue(answer, request->queue);
    add_number(answer, "size", static_cast<double>(record.size()));
    return kYes;
}

int run_get(const Call &call, cJSON *answer)
{
    const std::optional<Request> request = request_of(call);
    if (!request) {
        return kUsage;
    }
    std::string record(request->size, '\0');
    if (mq_get(request->queue, record.data(), static_cast<int>(record.size()), request->wait) ==
        0) {
        return call.no("no record was taken");
    }
    record.resize(record.find_last_not_of('\0') + 1);
    add_queue(answer, request->queue);
    add_text(answer, "text", record.substr(0, record.find('\0')));
    std::string hex;
    for (const char byte : record) {
        hex += format("%02x", static_cast<unsigned char>(byte));
    }
    add_text(answer, "hex", hex);
    return kYes;
}

void show_get(const cJSON *answer, Page &page)
{
    page.line({{text_of(answer, "text")}});
}

constexpr Option kPutOptions[] = {
    {kSize, "BYTES", "the size of the queue's records (default: 256)"},
    {kWait, nullptr, "while the queue is full, try for about 3 seconds"},
};

constexpr Option kGetOptions[] = {
    {kSize, "BYTES", "the size of the queue's records (default: 256)"},
    {kWait, nullptr, "wait for a record without limit"},
};

constexpr char kCandidates[] = "portal-sms portal-email portal-facebook|";

constexpr Command kCommands[] = {
    {.name = "get",
     .summary = "Take the oldest record out of a queue",
     .arguments = "QUEUE",
     .min_arguments = 1,
     .max_arguments = 1,
     .details = "QUEUE is portal-sms, portal-email, portal-facebook or a queue's number. Shown is\n"
                "the text up to the first zero byte; --json also has all bytes, without the zeros\n"
                "at the end. A record larger than --size stays where it is.",
     .yes = "a record was taken",
     .no = "the queue is empty, or it failed",
     .run = run_get,
     .show = show_get,
     .options = kGetOptions,
     .candidates = kCandidates},
    {.name = "put",
     .summary = "Put a record into a queue",
     .arguments = "QUEUE [TEXT]",
     .min_arguments = 1,
     .max_arguments = 2,
     .details = "QUEUE is portal-sms, portal-email, portal-facebook or a queue's number. Without\n"
                "TEXT the record is read from standard input; zeros fill it up to --size, which\n"
                "both sides must agree on.",
     .no = "the queue is full, or it failed",
     .run = run_put,
     .options = kPutOptions,
     .candidates = kCandidates},
};

}  // namespace

constinit const Command kMqGroup = {
    .name = "mq",
    .summary = "Message queues between the device's programs",
    .children = kCommands,
};

}  // namespace prodctl

// SPDX-License-Identifier: MIT
#include "ipc/thread.h"

#include <sys/prctl.h>

#include <cerrno>
#include <cstring>

#include "internal/log.hpp"
#include "internal/text.hpp"

using namespace prod;

namespace
{

constexpr std::size_t kNameSize = 32;  // what get_thread_name() hands out; the kernel writes 16

/** What a new thread is to run. */
struct Start {
    thread_body_t body;
    void *args;
};

void *thread_entry(void *block)
{
    const Start start = *static_cast<Start *>(block);
    set_thread_name("thread");
    free(block);
    start.body(start.args);
    return nullptr;
}

}  // namespace

pthread_t start_thread(thread_body_t handler, void *args)
{
    constexpr auto kFailed = static_cast<pthread_t>(-1);
    if (handler == nullptr) {
        return kFailed;
    }
    Allocated<Start> start{static_cast<Start *>(malloc(sizeof(Start)))};
    if (start == nullptr) {
        PROD_LOG_ERROR(kProd, "Out of memory.");
        return kFailed;
    }
    *start = {handler, args};
    pthread_t id;
    const int err = pthread_create(&id, nullptr, thread_entry, start.get());
    if (err != 0) {
        log_failure(PROD_SITE, err, "create thread");
        errno = err;
        return kFailed;
    }
    static_cast<void>(start.release());  // the thread frees it
    return id;
}

int set_thread_name(const char *format, ...)
{
    if (format == nullptr) {
        return 0;
    }
    Text<128> name;
    va_list args;
    va_start(args, format);
    name.vappend(format, args);
    va_end(args);
    if (prctl(PR_SET_NAME, name.c_str()) != 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "set thread name '%s'", name.c_str());
        return 0;
    }
    return 1;
}

char *get_thread_name(void)
{
    [[gnu::tls_model("initial-exec")]] static thread_local char name[kNameSize];
    memset(name, 0, sizeof(name));
    if (prctl(PR_GET_NAME, name) != 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "get thread name");
    }
    return name;
}

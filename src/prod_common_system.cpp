// SPDX-License-Identifier: MIT
#include "prod_common_system.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "internal/config.hpp"
#include "internal/console.hpp"
#include "internal/handle.hpp"
#include "internal/line_reader.hpp"
#include "internal/log.hpp"
#include "internal/text.hpp"
#include "internal/trace.hpp"
#include "platform/debug.h"
#include "platform/km.h"
#include "platform/process.h"
#include "platform/text.h"
#include "prod_common_file.h"
#include "prod_common_hal.h"
#include "prod_common_string.h"
#include "prod_common_wifi.h"

using namespace prod;

namespace
{

constexpr const char *kCmd = "cmd";            // the module of commands
constexpr const char *kWatchdog = "watchdog";  // the module of the soft watchdog
constexpr std::size_t kCommandSize = 2048;
constexpr std::size_t kWorkModeSize = 16;

/** The work mode of one radio: "wlan0_workmode". */
ConfigValue radio_work_mode(const char *radio)
{
    char key[256] = {};
    wifi_get_mibname(radio, "workmode", key);
    return ConfigValue{key, kWorkModeSize};
}

QX_SYSMODE tell_mode(QX_SYSMODE mode, std::string_view name, char *out)
{
    copy_text(out, PROD_MODE_NAME_SIZE, name);
    return mode;
}

// ---- other daemons --------------------------------------------------------------------------

bool set_time_limit(int fd, int which, int seconds)
{
    const timeval limit{seconds, 0};
    return setsockopt(fd, SOL_SOCKET, which, &limit, sizeof(limit)) == 0;
}

/** Sends all at once or fails; a daemon that has gone raises no signal. */
bool send_whole(int fd, const void *data, std::size_t size)
{
    errno = 0;  // a short write leaves none
    return send(fd, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

/** Takes all with a single read or fails. */
bool read_whole(int fd, void *data, std::size_t size)
{
    errno = 0;  // neither a short read nor the end leaves one
    return read(fd, data, size) == static_cast<ssize_t>(size);
}

/** Logs which step of an exchange failed, and the error that the step left. */
void log_step(Site site, const char *step)
{
    const int err = errno;
    PROD_LOG_ERROR_AT(site, kProd, "%s: %s\n", step, strerror(err));
}

bool connect_to(Site site, const Fd &fd, const char *path)
{
    if (!fd) {
        log_step(site, "socket");
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    copy_text(address.sun_path, path);
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        log_step(site, "connect");
        return false;
    }
    return true;
}

bool limit_waits(Site site, const Fd &fd, int timeout)
{
    if (timeout <= 0) {
        return true;
    }
    if (!set_time_limit(fd.get(), SO_SNDTIMEO, timeout)) {
        log_step(site, "SO_SNDTIMEO");
        return false;
    }
    if (!set_time_limit(fd.get(), SO_RCVTIMEO, timeout)) {
        log_step(site, "SO_RCVTIMEO");
        return false;
    }
    return true;
}

bool send_request(Site site, const Fd &fd, const char *request)
{
    const auto length = static_cast<u32>(strlen(request));
    if (!send_whole(fd.get(), &length, sizeof(length)) || !send_whole(fd.get(), request, length)) {
        log_step(site, "write ");
        return false;
    }
    return true;
}

bool receive_response(Site site, const Fd &fd, char (&response)[PROD_RESPONSE_SIZE])
{
    u32 length = 0;
    if (!read_whole(fd.get(), &length, sizeof(length))) {
        log_step(site, "Failed to read response len ");
        return false;
    }
    if (length >= sizeof(response)) {
        PROD_LOG_ERROR_AT(site, kProd, "Response too big\n");
        return false;
    }
    if (!read_whole(fd.get(), response, length)) {
        log_step(site, "Failed to read response body ");
        return false;
    }
    return true;
}

// ---- versions -------------------------------------------------------------------------------

constexpr const char *kVersionFile = "/etc/prodversion.cfg";
constexpr const char *kPolicyFile = "/etc/policy_bak.cfg";
constexpr const char *kHardwareVersion = "1.0.0.0";
constexpr std::size_t kPolicyLine = PROD_POLICY_VERSION_SIZE - 1;

/** The version file's text; nullptr when it cannot be read. */
Allocated<char> version_text()
{
    void *text = nullptr;
    return Allocated<char>{
        get_file_content(kVersionFile, &text, nullptr) == 1 ? static_cast<char *>(text) : nullptr};
}

/**
 * The second of the fields between ";". The first must have a character, or the line has no second
 * one.
 */
std::string_view second_field(const char *line)
{
    const std::size_t first = strcspn(line, ";");
    if (first == 0 || line[first] == '\0') {
        return {};
    }
    const char *const second = line + first + 1;
    return {second, strcspn(second, ";")};
}

// ---- DNS redirection ------------------------------------------------------------------------

/** A rule as the kernel-module control takes it; nullptr when it cannot be built. */
Json redirect_rule(const char *domain)
{
    Json rule{domain != nullptr ? cJSON_CreateObject() : nullptr};
    if (rule != nullptr && cJSON_AddStringToObject(rule.get(), "Domain", domain) == nullptr) {
        rule.reset();
    }
    return rule;
}

// ---- soft watchdog --------------------------------------------------------------------------

/** Ends the process although its last words cannot be said, because nobody takes its output. */
[[noreturn]] void end_process(int)
{
    _exit(PROD_WATCHDOG_STATUS);
}

/** Gives what follows one second; safe in a signal handler. */
void end_process_in_a_second()
{
    sigset_t alarm_signal;
    sigemptyset(&alarm_signal);
    sigaddset(&alarm_signal, SIGALRM);
    signal(SIGALRM, end_process);
    sigprocmask(SIG_UNBLOCK, &alarm_signal, nullptr);
    alarm(1);
}

}  // namespace

QX_SYSMODE get_systerm_mode(char *out)
{
    if (out == nullptr) {
        return QX_FAULT;
    }
    const ConfigValue radio0 = radio_work_mode("wlan0");
    const ConfigValue radio1 = radio_work_mode("wlan1");
    const ConfigValue device{"sys.workmode", kWorkModeSize};
    if (radio0 == "ap" && radio1 == "ap" && device == "router") {
        return tell_mode(QX_ROUTE_MODE, "router", out);
    }
    if (device == "ap") {
        return tell_mode(QX_AP_MODE, "ap", out);
    }
    if (radio0 == "apclient" || radio1 == "apclient") {
        return tell_mode(QX_APCLIENT_MODE, "apclient", out);
    }
    if (radio0 == "wisp" || radio1 == "wisp") {
        return tell_mode(QX_WISP_MODE, "wisp", out);
    }
    return QX_ROUTE_MODE;  // deliberate: without its name, callers zero theirs first
}

HLX_SYS_WORK_MODE_ENUM get_sys_mode(void)
{
    const ConfigValue mode{"sys.mode", 8};
    return mode.found() ? static_cast<HLX_SYS_WORK_MODE_ENUM>(mode.to_int()) : HLX_SYS_MODE_BUTT;
}

int brand_is_kavro(void)
{
    return 1;
}

int lang_is_cn(void)
{
    const ConfigValue language{"sys.language", 64};
    return language.empty() || strcasecmp(language.c_str(), "cn") == 0;
}

// ---- versions -------------------------------------------------------------------------------

int get_prod_version(char *product_version, unsigned int len)
{
    if (product_version == nullptr || len == 0) {
        return 0;
    }
    const Allocated<char> text = version_text();
    if (text == nullptr || *text == '\0') {
        return 0;
    }
    copy_text(product_version, len, text.get());
    std::size_t length = strlen(product_version);
    while (length > 0 && product_version[length - 1] == '\n') {
        product_version[--length] = '\0';
    }
    return 1;
}

int get_hard_version(char *hard_version, unsigned int len)
{
    if (hard_version != nullptr) {
        copy_text(hard_version, len, kHardwareVersion);
    }
    return 0;  // deliberate: what other functions call a failure is this one's only result
}

int get_svn_version(void)
{
    const Allocated<char> text = version_text();
    const char *const number = text != nullptr ? strchr(text.get(), '(') : nullptr;
    if (number == nullptr || number == text.get()) {
        return 0;
    }
    const char *rest = number;
    return static_cast<int>(take_number(rest, "(").value_or(0));
}

int get_policy_version(char *policy_version, unsigned int)
{
    if (policy_version == nullptr) {
        return 1;
    }
    LineReader<kPolicyLine> lines{kPolicyFile};
    if (!lines.is_open()) {
        return 1;
    }
    const char *line;
    do {
        line = lines.next();
    } while (line != nullptr && strstr(line, "ver") == nullptr);
    const std::string_view version = line != nullptr ? second_field(line) : std::string_view{};
    if (!version.empty()) {
        copy_text(policy_version, PROD_POLICY_VERSION_SIZE, version);
        string_str_trim(policy_version);
    }
    return 0;
}

// ---- DNS redirection ------------------------------------------------------------------------

void add_dns_redirect_rule(const char *domain, const char *ip)
{
    const Json rule = redirect_rule(domain);
    if (rule == nullptr || ip == nullptr ||
        cJSON_AddStringToObject(rule.get(), "Ip", ip) == nullptr) {
        PROD_LOG_ERROR(kProd, "Failed to add dns_redirect rule");
        return;
    }
    kernel_json_trace(PROD_SITE, rule.get());
    km_dns_redirect_add_rule(rule.get());
}

void del_dns_redirect_rule(const char *domain)
{
    const Json rule = redirect_rule(domain);
    if (rule == nullptr) {
        PROD_LOG_ERROR(kProd, "Failed to del rule by domain");
        return;
    }
    kernel_json_trace(PROD_SITE, rule.get());
    km_dns_redirect_del_rule(rule.get());
}

// ---- factory restore and other daemons ------------------------------------------------------

void systool_restore_db(void)
{
    console_line(PROD_SITE, kYellow, "restoring database ...");
    doSystemCmd("rm -f %s/*.db", "/cfg/database");
    doSystemCmd("rm -f /cfg/prod-script");
    doSystemCmd("rm -f /cfg/s_brcmnand/Dcg_database.db");
    doSystemCmd("rm -f /cfg/l_brcmnand/Dcg_database.db");
}

void systool_restore_pic(void)
{
    console_line(PROD_SITE, kYellow, "restoring images ...");
    doSystemCmd("rm -rf /cfg/webpush");
    doSystemCmd("cp -a /webroot_ro/default_images /cfg/webpush");
}

int systool_restore(void)
{
    hal_set_all_led(1);
    doSystemCmd("/usr/bin/led_ctrl.sh 1 ");
    systool_restore_db();
    systool_restore_pic();
    if (RestoreValue() == 0) {
        PROD_LOG_ERROR(kProd, "restore value is fail.");
    }
    hal_set_all_led(0);
    doSystemCmd("/usr/bin/led_ctrl.sh 0 ");
    return 1;
}

HLX_RETURN_CODE system_qx_gethostbyname(const char *hostname, char *ip)
{
    if (hostname == nullptr || *hostname == '\0' || ip == nullptr) {
        PROD_LOG_DEBUG(kProd, "arg is null.");
        return HLX_ERR;
    }
    const hostent *const host = gethostbyname(hostname);
    if (host == nullptr || host->h_addrtype != AF_INET || host->h_addr_list[0] == nullptr) {
        PROD_LOG_ERROR(kProd, "Unknown host:%s.", hostname);
        return HLX_ERR;
    }
    in_addr address;
    memcpy(&address, host->h_addr_list[0], sizeof(address));
    const char *const text = inet_ntoa(address);
    if (text == nullptr) {
        PROD_LOG_ERROR(kProd, "inet_ntoa error.");
        return HLX_ERR;
    }
    copy_text(ip, INET_ADDRSTRLEN, text);
    return HLX_OK;
}

int send_and_recv_from_program(const char *sun_path, const char *req, char *resp, int resp_len,
                               int timeout)
{
    if (sun_path == nullptr || req == nullptr) {
        return -1;
    }
    const Fd fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!connect_to(PROD_SITE, fd, sun_path) || !limit_waits(PROD_SITE, fd, timeout) ||
        !send_request(PROD_SITE, fd, req)) {
        return -1;
    }
    if (resp == nullptr) {
        return 0;
    }
    char body[PROD_RESPONSE_SIZE] = {};
    if (!receive_response(PROD_SITE, fd, body)) {
        return -1;
    }
    if (resp_len > 0) {
        // Fills all of the caller's room, and terminates only when there is some left.
        strncpy(resp, body, static_cast<std::size_t>(resp_len));
    }
    return 0;
}

int exec_sys_cmd(const char *func, int line, const char *cmd, ...)
{
    if (cmd == nullptr) {
        return -1;
    }
    const Site site{func, line};
    Text<kCommandSize> command;
    va_list args;
    va_start(args, cmd);
    command.vappend(cmd, args);
    va_end(args);
    PROD_LOG_GATED_AT(site, PROD_DBG_INFO, kCmd, "%s", command.c_str());
    return system(command.c_str());
}

void feed_soft_watchdog(int timeout)
{
    if (dbg_enabled(kWatchdog, PROD_DBG_INFO)) {
        console_line(PROD_SITE, kCyan, "feed dog (timeout=%d):", timeout);
        show_backtrace();
    }
    get_self_pname();  // remembered from here on, so that the handler need not look it up
    signal(SIGALRM, sotf_watchdog_bark);
    alarm(timeout > 0 ? static_cast<unsigned int>(timeout) : 0);
}

void sotf_watchdog_bark(int)
{
    end_process_in_a_second();
    console_last_line(PROD_SITE, kYellow, "Soft Watchdog of %d(%s) barked.",
                      static_cast<int>(getpid()), get_self_pname());
    _exit(PROD_WATCHDOG_STATUS);
}

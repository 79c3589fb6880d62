// SPDX-License-Identifier: MIT
//
// Rates need two looks at the counters. One is remembered in a small file, so that a caller who
// asks now and then never waits: the rate is that since the remembered look. Only when there is
// none of a sensible age does a call take both looks itself.
//
// A DNS redirection is a hosts file of one line in the directory that dnsmasq was started with as
// --hostsdir. dnsmasq sees the file come and, as of 2.87, go; a SIGHUP besides makes it forget what
// it has cached for the name, and makes an older one notice the removal.
#include "platform/km.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include "board.hpp"
#include "file.hpp"
#include "platform/process.h"

using platform::Fd;
using platform::Json;
using platform::member;
using platform::take_number;

namespace
{

// ---- rates of the WANs -------------------------------------------------------------------------

constexpr const char *kSamplesFile = "/var/run/wan_flow.samples";
constexpr int kWans = 16;  // more than any board has
constexpr long long kSecond = 1000000000;
constexpr long long kShortest = kSecond / 10;  // counters move in bursts; less would be noise
constexpr long long kLongest = 10 * kSecond;   // more would not be the current rate
constexpr timespec kOwnWindow{0, 150000000};

/** One look at a WAN's counters. */
struct Sample {
    int wan = 0;  // 0: none
    char ifname[IFNAMSIZ] = "";
    long long at = 0;  // monotonic nanoseconds
    u64 received = 0;
    u64 sent = 0;
};

/** The last two looks: when the last is too young, the one before it serves. */
struct History {
    Sample before;
    Sample last;
};

struct Histories {
    History wans[kWans];
};

long long now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * kSecond + time.tv_nsec;
}

bool read_counter(const char *ifname, const char *counter, u64 &value)
{
    char path[64 + IFNAMSIZ];
    snprintf(path, sizeof(path), "/sys/class/net/%s/statistics/%s", ifname, counter);
    const Fd fd{open(path, O_RDONLY | O_CLOEXEC)};
    char text[32];
    const ssize_t got = fd ? read(fd.get(), text, sizeof(text)) : -1;
    std::string_view digits{text, got > 0 ? static_cast<std::size_t>(got) : 0};
    return take_number(digits, value);
}

/** The first of a WAN's interfaces that exists: its PPP link while that is up. */
const char *traffic_interface(const cJSON *wan)
{
    const cJSON *entry;
    cJSON_ArrayForEach(entry, member(wan, "interfaces"))
    {
        const char *const ifname = platform::interface_of(entry);
        if (ifname != nullptr && if_nametoindex(ifname) != 0) {
            return ifname;
        }
    }
    return nullptr;
}

/** A look at a WAN now; with no interface it stays without a name. */
Sample look(const cJSON *wan)
{
    Sample sample;
    sample.wan = member(wan, "id")->valueint;
    const char *const ifname = traffic_interface(wan);
    if (ifname != nullptr && read_counter(ifname, "rx_bytes", sample.received) &&
        read_counter(ifname, "tx_bytes", sample.sent)) {
        platform::copy_text(sample.ifname, ifname);
        sample.at = now();
    }
    return sample;
}

/** Whether the rate between two looks is the current one. */
bool spans(const Sample &from, const Sample &to, long long shortest = kShortest)
{
    return from.wan == to.wan && strcmp(from.ifname, to.ifname) == 0 &&
           to.at - from.at >= shortest && to.at - from.at <= kLongest &&
           from.received <= to.received && from.sent <= to.sent;
}

/** Descriptor of the samples file, locked, or none when another caller is at it just now. */
Fd open_samples(int how, int lock)
{
    Fd fd{open(kSamplesFile, how | O_CLOEXEC | O_NOFOLLOW, 0644)};
    return fd && flock(fd.get(), lock | LOCK_NB) == 0 ? Fd{fd.release()} : Fd{};
}

bool take_blank(std::string_view &text)
{
    const bool there = !text.empty() && text.front() == ' ';
    text = platform::after(text, there ? 1 : 0);
    return there;
}

bool take_name(std::string_view &text, char (&name)[IFNAMSIZ])
{
    const std::size_t length = text.find(' ');
    if (length == 0 || length >= IFNAMSIZ) {
        return false;
    }
    platform::copy_text(name, platform::first_of(text, length));
    text.remove_prefix(length);
    return true;
}

/** A damaged line is none. */
bool parse_sample(std::string_view line, Sample &sample)
{
    Sample parsed;
    const bool sound = take_number(line, parsed.wan) && parsed.wan > 0 && take_blank(line) &&
                       take_name(line, parsed.ifname) && take_blank(line) &&
                       take_number(line, parsed.at) && parsed.at > 0 && take_blank(line) &&
                       take_number(line, parsed.received) && take_blank(line) &&
                       take_number(line, parsed.sent) && line == "\n";
    if (sound) {
        sample = parsed;
    }
    return sound;
}

void remember_in(Histories &histories, const Sample &sample)
{
    for (History &history : histories.wans) {
        if (history.last.wan == 0 || history.last.wan == sample.wan) {
            history.before = history.last;
            history.last = sample;
            return;
        }
    }
}

History recall_of(const Histories &histories, int wan)
{
    for (const History &history : histories.wans) {
        if (history.last.wan == wan) {
            return history;
        }
    }
    return {};
}

Histories recall()
{
    Histories histories;
    Fd fd = open_samples(O_RDONLY, LOCK_SH);
    const platform::Stream stream{fd ? fdopen(fd.get(), "r") : nullptr};
    if (stream != nullptr) {
        static_cast<void>(fd.release());  // the stream closes it, which ends the lock
    }
    char line[256];
    while (stream != nullptr && fgets(line, sizeof(line), stream.get()) != nullptr) {
        Sample sample;
        if (parse_sample(line, sample)) {
            remember_in(histories, sample);
        }
    }
    return histories;
}

/** Appends "wan interface time received sent". */
int print_sample(char *out, std::size_t size, const Sample &sample)
{
    return sample.ifname[0] == '\0'
               ? 0
               : snprintf(out, size, "%d %s %lld %llu %llu\n", sample.wan, sample.ifname, sample.at,
                          sample.received, sample.sent);
}

/** Best effort: who cannot remember takes both looks at the next call. */
void remember(const Histories &histories)
{
    char text[kWans * 2 * 100];
    std::size_t size = 0;
    for (const History &history : histories.wans) {
        for (const Sample *const sample : {&history.before, &history.last}) {
            size +=
                static_cast<std::size_t>(print_sample(text + size, sizeof(text) - size, *sample));
        }
    }
    const Fd fd = open_samples(O_WRONLY | O_CREAT, LOCK_EX);
    if (fd && ftruncate(fd.get(), 0) == 0) {
        platform::write_all(fd.get(), {text, size});
    }
}

bool is_wan(const cJSON *entry)
{
    const cJSON *const id = member(entry, "id");
    return cJSON_IsNumber(id) != 0 && id->valueint > 0;
}

double rate(u64 from, u64 to, long long time)
{
    return time > 0 ? static_cast<double>(static_cast<u64>(static_cast<double>(to - from) *
                                                           static_cast<double>(kSecond) /
                                                           static_cast<double>(time)))
                    : 0;
}

/** One element of "WanFlow"; nullptr when the memory is not to be had. */
Json flow_of(const Sample &from, const Sample &to)
{
    Json flow{cJSON_CreateObject()};
    Json rates{cJSON_CreateObject()};
    const long long time = to.at - from.at;
    if (flow == nullptr || rates == nullptr ||
        cJSON_AddNumberToObject(flow.get(), "WanId", to.wan) == nullptr ||
        cJSON_AddNumberToObject(rates.get(), "UpRate", rate(from.sent, to.sent, time)) == nullptr ||
        cJSON_AddNumberToObject(rates.get(), "DownRate", rate(from.received, to.received, time)) ==
            nullptr ||
        cJSON_AddItemToObject(flow.get(), "WanRate", rates.get()) == 0) {
        return nullptr;
    }
    static_cast<void>(rates.release());
    return flow;
}

// ---- DNS redirection ---------------------------------------------------------------------------

constexpr std::size_t kLongestDomain = 253;
constexpr std::size_t kLongestLabel = 63;

bool is_label_character(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

/** A domain name in lower case, without the dot at its end; also the name of its rule's file. */
class Domain
{
  public:
    explicit Domain(const char *text)
    {
        std::string_view rest{text != nullptr ? text : ""};
        if (rest.ends_with('.')) {
            rest.remove_suffix(1);
        }
        if (rest.size() > kLongestDomain) {
            return;
        }
        std::size_t label = 0;
        for (const char c : rest) {
            const char lower = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
            label = c == '.' ? 0 : label + 1;
            // An empty label has nothing in front of the next dot; no path gets through this.
            if (c == '.' ? size_ == 0 || name_[size_ - 1] == '.' : !is_label_character(lower)) {
                return;
            }
            if (label > kLongestLabel) {
                return;
            }
            name_[size_++] = lower;
        }
        valid_ = label > 0;
    }

    bool is_valid() const { return valid_; }
    const char *c_str() const { return name_; }

  private:
    bool valid_ = false;
    std::size_t size_ = 0;
    char name_[kLongestDomain + 1] = {};
};

/** An address in the notation that everybody agrees on. */
class Address
{
  public:
    explicit Address(const char *text)
    {
        in6_addr address;
        for (const int family : {AF_INET, AF_INET6}) {
            if (text != nullptr && inet_pton(family, text, &address) == 1) {
                valid_ = inet_ntop(family, &address, text_, sizeof(text_)) != nullptr;
                return;
            }
        }
    }

    bool is_valid() const { return valid_; }
    const char *c_str() const { return text_; }

  private:
    bool valid_ = false;
    char text_[INET6_ADDRSTRLEN] = {};
};

/** Where a domain's rule is. */
struct RulePath {
    explicit RulePath(const Domain &domain)
    {
        snprintf(text, sizeof(text), "%s/%s", KM_DNS_REDIRECT_DIR, domain.c_str());
    }
    char text[sizeof(KM_DNS_REDIRECT_DIR) + 1 + kLongestDomain + 1];
};

/** Puts a whole file in the place of another, which nobody ever sees half written. */
bool replace_file(const char *path, std::string_view text)
{
    char fresh[] = KM_DNS_REDIRECT_DIR "/.XXXXXX";  // dnsmasq passes over a leading dot
    const Fd fd{mkostemp(fresh, O_CLOEXEC)};
    if (!fd) {
        return false;
    }
    const bool done = fchmod(fd.get(), 0644) == 0 && platform::write_all(fd.get(), text) &&
                      rename(fresh, path) == 0;
    if (!done) {
        unlink(fresh);
    }
    return done;
}

void tell_name_server()
{
    proc_send_signal("dnsmasq", SIGHUP);
}

}  // namespace

int km_wan_statistic_get_wan_flow(cJSON *object)
{
    const Json board = platform::read_board();
    const cJSON *const list = member(board.get(), "wans");
    if (object == nullptr || cJSON_IsArray(list) == 0) {
        return -1;
    }
    const cJSON *wans[kWans];
    Sample from[kWans];
    Sample to[kWans];
    int count = 0;
    bool wait = false;
    const Histories known = recall();
    Histories fresh;
    const cJSON *entry;
    cJSON_ArrayForEach(entry, list)
    {
        if (!is_wan(entry) || count == kWans) {
            continue;
        }
        const Sample sample = look(entry);
        const History history = recall_of(known, sample.wan);
        wans[count] = entry;
        to[count] = sample;
        if (spans(history.last, sample)) {
            from[count] = history.last;
            remember_in(fresh, history.last);
            remember_in(fresh, sample);
        } else if (spans(history.before, sample)) {
            from[count] = history.before;
            remember_in(fresh, history.before);
            remember_in(fresh, history.last);
        } else {
            wait = wait || sample.ifname[0] != '\0';
        }
        ++count;
    }
    if (wait) {
        nanosleep(&kOwnWindow, nullptr);
    }
    Json flows{cJSON_CreateArray()};
    for (int i = 0; i < count; ++i) {
        if (from[i].wan == 0) {
            from[i] = to[i];
            to[i] = wait ? look(wans[i]) : to[i];
            remember_in(fresh, from[i]);
            remember_in(fresh, to[i]);
            if (!spans(from[i], to[i], 1)) {
                from[i] = to[i];  // the interface has just come or gone: nothing to compare
            }
        }
        Json flow = flow_of(from[i], to[i]);
        if (flow == nullptr || cJSON_AddItemToArray(flows.get(), flow.get()) == 0) {
            return -1;
        }
        static_cast<void>(flow.release());
    }
    remember(fresh);
    cJSON_DeleteItemFromObjectCaseSensitive(object, "WanFlow");
    if (cJSON_AddItemToObject(object, "WanFlow", flows.get()) == 0) {
        return -1;
    }
    static_cast<void>(flows.release());
    return 0;
}

int km_dns_redirect_add_rule(cJSON *rule)
{
    const Domain domain{platform::text_of(member(rule, "Domain"))};
    const Address address{platform::text_of(member(rule, "Ip"))};
    if (!domain.is_valid() || !address.is_valid()) {
        return -1;
    }
    mkdir(KM_DNS_REDIRECT_DIR, 0755);
    char line[INET6_ADDRSTRLEN + kLongestDomain + 3];
    snprintf(line, sizeof(line), "%s %s\n", address.c_str(), domain.c_str());
    if (!replace_file(RulePath{domain}.text, line)) {
        return -1;
    }
    tell_name_server();
    return 0;
}

int km_dns_redirect_del_rule(cJSON *rule)
{
    const Domain domain{platform::text_of(member(rule, "Domain"))};
    if (!domain.is_valid() || unlink(RulePath{domain}.text) != 0) {
        return -1;
    }
    tell_name_server();
    return 0;
}

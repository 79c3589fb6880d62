// SPDX-License-Identifier: MIT
// DHCP clients, the LAN's own lease, and the neighbours' addresses.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/text.h"
#include "prod_common_file.h"
#include "support/allocator.hpp"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/commands.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"

using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::write_text;

namespace
{

/** What the library does with the lease file, and what is done to it meanwhile. */
struct Kernel {
    bool watching = false;
    std::vector<std::string> calls;  // "query 0", "set 2", "rewind"
    std::vector<std::size_t> allocations;
    int failing_command = -1;     // this command of fcntl() fails
    int failing_type = -1;        // for this type of lock
    bool without_memory = false;  // allocations fail
    int interruptions = 0;        // so many calls of read() are ended by a signal
    std::size_t piece = 0;        // what one call of read() gives at most, unless 0
    std::function<void()> between_passes;
};
Kernel kernel;

/** While it lives, calls are noted. */
class Watch
{
  public:
    Watch()
    {
        kernel = {};
        kernel.watching = true;
    }
    ~Watch() { kernel = {}; }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;
};

/** While it lives, none are: what the test itself does meanwhile. */
class Aside
{
  public:
    Aside() { kernel.watching = false; }
    ~Aside() { kernel.watching = true; }
    Aside(const Aside &) = delete;
    Aside &operator=(const Aside &) = delete;
};

}  // namespace

#ifdef OWN_ALLOCATOR
// The address sanitizer allocates before its own state is there to be looked at.
#define AT_ANY_TIME __attribute__((no_sanitize("address")))

namespace
{

/** Notes an allocation. @return whether it is to fail */
AT_ANY_TIME bool refuses(std::size_t size)
{
    if (!kernel.watching) {
        return false;
    }
    const Aside aside;
    kernel.allocations.push_back(size);
    return kernel.without_memory;
}

}  // namespace

extern "C" {

AT_ANY_TIME void *malloc(std::size_t size)
{
    return refuses(size) ? nullptr : test::real_malloc(size);
}

AT_ANY_TIME void *calloc(std::size_t count, std::size_t size)
{
    return refuses(count * size) ? nullptr : test::real_calloc(count, size);
}
}
#endif

extern "C" {

int fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    void *const argument = va_arg(args, void *);
    va_end(args);
    static const auto real = test::next(fcntl, "fcntl64");
    if (!kernel.watching || (command != F_GETLK && command != F_SETLKW)) {
        return real(fd, command, argument);
    }
    auto *const lock = static_cast<struct flock *>(argument);
    const Aside aside;
    kernel.calls.push_back((command == F_GETLK ? "query " : "set ") + std::to_string(lock->l_type));
    EXPECT_EQ(lock->l_whence, SEEK_SET);
    EXPECT_EQ(lock->l_start, 0);
    EXPECT_EQ(lock->l_len, 0);
    EXPECT_EQ(real(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    if (command == kernel.failing_command && lock->l_type == kernel.failing_type) {
        errno = ENOLCK;
        return -1;
    }
    return real(fd, command, argument);
}

ssize_t read(int fd, void *buffer, std::size_t size)
{
    static const auto real = test::next(read, "read");
    if (kernel.watching && kernel.interruptions > 0) {
        --kernel.interruptions;
        errno = EINTR;
        return -1;
    }
    return real(fd, buffer, kernel.piece != 0 ? std::min(size, kernel.piece) : size);
}

off_t lseek(int fd, off_t offset, int whence)
{
    static const auto real = test::next(lseek, "lseek64");
    if (kernel.watching && whence == SEEK_SET) {
        const Aside aside;
        kernel.calls.emplace_back("rewind");
        if (kernel.between_passes) {
            kernel.between_passes();
        }
    }
    return real(fd, offset, whence);
}
}

namespace
{

constexpr const char *kLeases = "/etc/dhcps.leases";
constexpr const char *kMac = "02:00:5e:00:53:01";

struct Client {
    std::string mac;
    std::string address;
    std::string host_name;

    bool operator==(const Client &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const Client &client)
{
    return stream << '"' << testing::PrintToString(client.mac) << "\" \""
                  << testing::PrintToString(client.address) << "\" \""
                  << testing::PrintToString(client.host_name) << '"';
}

using Clients = std::vector<Client>;

/** A field, which is terminated within its room. */
template <std::size_t Size>
std::string text_of(const char (&field)[Size])
{
    EXPECT_LT(strnlen(field, Size), Size);
    return {field, strnlen(field, Size)};
}

/** The list as the library gives it. */
Clients listed()
{
    DHCPS_CLIENT_LIST_STRU *list = nullptr;
    const int count = file_get_dhcps_clients_list(&list);
    const std::unique_ptr<DHCPS_CLIENT_LIST_STRU, decltype(&free)> owner{list, free};
    EXPECT_EQ(count > 0, list != nullptr);
    Clients clients;
    for (int i = 0; i < count; ++i) {
        clients.push_back(
            {text_of(list[i].mac), text_of(list[i].ipaddr), text_of(list[i].hostname)});
    }
    return clients;
}

Clients listed_from(const std::string &leases)
{
    write_text(kLeases, leases);
    return listed();
}

/** A client's host name when the lease file has this one. */
std::string shown(const std::string &host_name)
{
    const Clients clients =
        listed_from("1 02:00:5e:00:53:01 192.168.0.100 n 01:02 " + host_name + "\n");
    EXPECT_EQ(clients.size(), 1U);
    EXPECT_EQ(clients.at(0).mac, kMac);
    EXPECT_EQ(clients.at(0).address, "192.168.0.100");
    return clients.at(0).host_name;
}

const Clients kTwo = {{kMac, "192.168.0.100", "laptop"},
                      {"02:00:5e:00:53:02", "192.168.0.101", "(null)"}};
constexpr const char *kTwoLines =
    "1700000000 02:00:5e:00:53:01 192.168.0.100 laptop 01:02:00:5e:00:53:01 laptop\n"
    "1700000000 02:00:5e:00:53:02 192.168.0.101 * 01:02:00:5e:00:53:02\n";

// ---- the list ---------------------------------------------------------------------------------

TEST(Leases, ClientsWithAndWithoutAHostName)
{
    const int before = test::open_descriptors();
    EXPECT_EQ(listed_from(kTwoLines), kTwo);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(Leases, ThePatternsTurns)
{
    const auto only = [](const std::string &line) { return listed_from(line).at(0); };
    EXPECT_EQ(only("1 m a name * the host\n"), (Client{"m", "a", "the host"}));
    EXPECT_EQ(only("1 m a na|me the host\n"), (Client{"m", "a", "the host"}));
    EXPECT_EQ(only("1 m a several words of it 01:02 host \t\n"), (Client{"m", "a", "host \t"}));
    EXPECT_EQ(only("1   m \t a  n  01:02   host"), (Client{"m", "a", "host"}));
    EXPECT_EQ(only("1 m a n 01:02 \n"), (Client{"m", "a", "(null)"}));
    EXPECT_EQ(only("1 m a n 01:02\n"), (Client{"m", "a", "(null)"}));
    EXPECT_EQ(only("1 m a n id host\n"), (Client{"m", "a", "(null)"})) << "nothing ends the id";
    EXPECT_EQ(only("1 m a"), (Client{"m", "a", "(null)"}));
    EXPECT_EQ(only("1 m"), (Client{"m", "", "(null)"}));
    EXPECT_EQ(only("1 m a n 01:02 a:b*c|d\r\n"), (Client{"m", "a", "a:b*c|d\r"}));
}

TEST(Leases, LinesThatAreNoLeasesAreEmptyRecords)
{
    const Client nobody{"", "", ""};
    EXPECT_EQ(listed_from("\n\ngarbage\n" + std::string{kTwoLines} + " 1 m a n 01:02 host\n   "),
              (Clients{nobody, nobody, nobody, kTwo[0], kTwo[1], nobody, nobody}));
    EXPECT_EQ(listed_from(std::string("1 m a n 01:02 h\0st\n1 \0m a\n\0\n", 27)),
              (Clients{{"m", "a", "h"}, nobody, nobody}));
}

TEST(Leases, LongFieldsAreCut)
{
    EXPECT_EQ(listed_from("1 " + std::string(18, 'm') + " 255.255.255.2550 n 01:02 h\n" + "1 " +
                          std::string(300, 'm') + " " + std::string(300, 'a') + " n 01:02 h\n"),
              (Clients{{std::string(17, 'm'), "255.255.255.255", "h"},
                       {std::string(17, 'm'), std::string(15, 'a'), "h"}}));
}

TEST(Leases, LinesAreTakenInPiecesOf1023Characters)
{
    const std::string head = "1 m a n 01:02 ";
    const auto line = [&](std::size_t length) {
        return head + std::string(length - head.size(), 'h');
    };
    EXPECT_EQ(listed_from(line(1022) + "\n").size(), 1U);
    EXPECT_EQ(listed_from(line(1023)).size(), 1U);
    // The newline alone is the next line, as fgets has it.
    EXPECT_EQ(listed_from(line(1023) + "\n").size(), 2U);
    EXPECT_EQ(listed_from(line(1023) + line(50)),
              (Clients{{"m", "a", std::string(63, 'h')}, {"m", "a", std::string(36, 'h')}}));
    EXPECT_EQ(listed_from(std::string(10000, 'x')).size(), 10U);
}

TEST(Leases, HostNames)
{
    EXPECT_EQ(shown(std::string(63, 'n')), std::string(63, 'n'));
    EXPECT_EQ(shown(std::string(64, 'n')), std::string(63, 'n'));
    EXPECT_EQ(shown(std::string(200, 'n')), std::string(63, 'n'));
    EXPECT_EQ(shown("\033[31mred\a"), "\033[31mred\a");
    EXPECT_EQ(shown("%s%n$(reboot)`x`"), "%s%n$(reboot)`x`");
    EXPECT_EQ(shown("\xE4\xB8\xAD\xE5\x9B\xBD"), "\xE4\xB8\xAD\xE5\x9B\xBD") << "UTF-8";
    EXPECT_EQ(shown("my \xD6\xD0\xB9\xFA"), "my \xE4\xB8\xAD\xE5\x9B\xBD") << "GBK";
}

TEST(Leases, ALongGbkNameIsConvertedWholeAndThenCut)
{
    std::string gbk;
    std::string utf8;
    for (int i = 0; i < 490; ++i) {
        gbk += "\xD6\xD0";
        utf8 += "\xE4\xB8\xAD";
    }
    EXPECT_EQ(shown(gbk), utf8.substr(0, 63));
}

TEST(Leases, WhatCannotBeConvertedStaysAsItIs)
{
    const std::string unassigned = "a\xFE\xFE";
    ASSERT_EQ(system_get_code_format(unassigned.c_str()), CODE_FORMAT_GBK);
    char out[16];
    ASSERT_EQ(system_convert_code_format("utf-8", unassigned.c_str(), out), 0);
    EXPECT_EQ(shown(unassigned), unassigned);
    EXPECT_EQ(shown("a\xFF\x80"), "a\xFF\x80") << "no encoding at all";
    EXPECT_EQ(shown(unassigned + std::string(100, 'x')), unassigned + std::string(60, 'x'));
}

/** The list as the documented pattern reads it, with room for whatever a line may hold. */
Clients scanned_from(const std::string &leases)
{
    Clients clients;
    const std::unique_ptr<FILE, decltype(&fclose)> stream{
        fmemopen(const_cast<char *>(leases.data()), leases.size(), "r"), fclose};
    char line[1024];
    while (fgets(line, sizeof(line), stream.get()) != nullptr) {
        char mac[1024] = "";
        char address[1024] = "";
        char name[1024] = "";
        const int read =
            sscanf(line, "%*[^ ] %[^ ] %[^ ] %*[^*|:] %*[^ ] %[^\n]", mac, address, name);
        clients.emplace_back();
        if (read > 0) {
            const bool converts = system_get_code_format(name) == CODE_FORMAT_GBK;
            char converted[4096];
            if (converts && system_convert_code_format("utf-8", name, converted) != 0) {
                snprintf(name, sizeof(name), "%.63s", converted);
            }
            clients.back() = {std::string{mac}.substr(0, 17), std::string{address}.substr(0, 15),
                              name[0] != '\0' ? std::string{name}.substr(0, 63) : "(null)"};
        }
    }
    return clients;
}

/** A text of pieces drawn at random. */
template <std::size_t Count>
std::string random_text(std::mt19937 &random, const std::string (&pieces)[Count],
                        std::mt19937::result_type most)
{
    std::string text;
    for (auto left = random() % most; left > 0; --left) {
        text += pieces[random() % Count];
    }
    return text;
}

TEST(Leases, AreReadAsThePatternReadsThem)
{
    const std::string kPieces[] = {" ",
                                   " ",
                                   " ",
                                   " ",
                                   "\t",
                                   "\n",
                                   "\v",
                                   "\f",
                                   "\r",
                                   "*",
                                   "|",
                                   ":",
                                   "a",
                                   "bc",
                                   "\xD6\xD0",
                                   "1",
                                   "\xE4\xB8\xAD",
                                   "\xFF",
                                   kMac,
                                   "192.168.0.100",
                                   std::string(300, 'x'),
                                   std::string(1, '\0'),
                                   "1 m a n 01:02 host\n"};
    std::mt19937 random{4711};
    for (int round = 0; round < 5000; ++round) {
        const std::string leases = random_text(random, kPieces, 40) + "\n";
        ASSERT_EQ(listed_from(leases), scanned_from(leases)) << testing::PrintToString(leases);
    }
}

TEST(Leases, ManyClients)
{
    constexpr int kCount = 10000;
    std::string leases;
    for (int i = 0; i < kCount; ++i) {
        char line[128];
        snprintf(line, sizeof(line), "1700000000 02:00:5e:00:%02x:%02x 10.0.%d.%d h%d 01:02 h%d\n",
                 i >> 8, i & 0xFF, i >> 8, i & 0xFF, i, i);
        leases += line;
    }
    const Clients clients = listed_from(leases);
    ASSERT_EQ(clients.size(), std::size_t{kCount});
    EXPECT_EQ(clients, scanned_from(leases));
    EXPECT_EQ(clients[9999], (Client{"02:00:5e:00:27:0f", "10.0.39.15", "h9999"}));
}

// ---- memory -----------------------------------------------------------------------------------

#ifdef OWN_ALLOCATOR
TEST(Leases, TheListIsTheOnlyAllocation)
{
    std::string leases;
    for (int i = 0; i < 10000; ++i) {
        leases += kTwoLines;
    }
    listed_from(leases);
    DHCPS_CLIENT_LIST_STRU *list = nullptr;
    const Watch watch;
    EXPECT_EQ(file_get_dhcps_clients_list(&list), 20000);
    const Aside aside;
    free(list);
    EXPECT_EQ(kernel.allocations, std::vector<std::size_t>{20000 * 98});
}

TEST(Leases, WithoutMemory)
{
    write_text(kLeases, kTwoLines);
    get_dbg_info();
    const int before = test::open_descriptors();
    DHCPS_CLIENT_LIST_STRU some;
    DHCPS_CLIENT_LIST_STRU *list = &some;
    std::vector<std::string> calls;
    const std::string text = printed([&] {
        const Watch watch;
        kernel.without_memory = true;
        EXPECT_EQ(file_get_dhcps_clients_list(&list), 0);
        const Aside aside;
        calls = kernel.calls;
    });
    EXPECT_THAT(text,
                Prints(log_line(PROD_DBG_ERROR, "file_get_dhcps_clients_list", "Out of memory.")));
    EXPECT_EQ(list, &some);
    EXPECT_EQ(calls, (std::vector<std::string>{"query 0", "set 0", "set 2"}))
        << "the lock is given back";
    EXPECT_EQ(test::open_descriptors(), before);
}
#endif

// ---- files that are not there, are empty, or change -------------------------------------------

TEST(Leases, AnEmptyFile)
{
    write_text(kLeases, "");
    DHCPS_CLIENT_LIST_STRU some;
    DHCPS_CLIENT_LIST_STRU *list = &some;
    const Watch watch;
    EXPECT_EQ(file_get_dhcps_clients_list(&list), 0);
    const Aside aside;
    EXPECT_EQ(list, &some);
    EXPECT_TRUE(kernel.allocations.empty());
    EXPECT_EQ(kernel.calls, (std::vector<std::string>{"query 0", "set 0", "set 2"}));
}

TEST(Leases, NoFile)
{
    test::remove_all(kLeases);
    DHCPS_CLIENT_LIST_STRU some;
    DHCPS_CLIENT_LIST_STRU *list = &some;
    EXPECT_EQ(printed([&] { EXPECT_EQ(file_get_dhcps_clients_list(&list), 0); }), "");
    EXPECT_THAT(
        printed_at(PROD_DBG_DEBUG, [&] { EXPECT_EQ(file_get_dhcps_clients_list(&list), 0); }),
        Prints(log_line(PROD_DBG_DEBUG, "file_get_dhcps_clients_list",
                        "Failed(2) to fopen is fail., No such file or directory.")));
    EXPECT_EQ(list, &some);
}

TEST(Leases, Traces)
{
    const auto line = [](const std::string &text) {
        return log_line(PROD_DBG_TRACE, "file_get_dhcps_clients_list", text);
    };
    const std::string enter = line("ENTER >>> file_get_dhcps_clients_list");
    const std::string leave = line("LEAVE <<< file_get_dhcps_clients_list");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { EXPECT_EQ(listed_from(kTwoLines), kTwo); }),
                Prints(enter + leave));
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { EXPECT_EQ(listed_from(""), Clients{}); }),
                Prints(enter + leave));
    test::remove_all(kLeases);
    EXPECT_THAT(
        printed_at(PROD_DBG_TRACE, [] { EXPECT_EQ(listed(), Clients{}); }),
        Prints(enter + log_line(PROD_DBG_DEBUG, "file_get_dhcps_clients_list",
                                "Failed(2) to fopen is fail., No such file or directory.")));
    EXPECT_EQ(
        printed_at(PROD_DBG_TRACE, [] { EXPECT_EQ(file_get_dhcps_clients_list(nullptr), 0); }), "");
}

TEST(Leases, AFileThatComesInPieces)
{
    write_text(kLeases, kTwoLines);
    const Watch watch;
    for (kernel.piece = 1; kernel.piece < 100; ++kernel.piece) {
        ASSERT_EQ(listed(), kTwo) << kernel.piece;
    }
}

TEST(Leases, SignalsMeanwhile)
{
    write_text(kLeases, kTwoLines);
    const Watch watch;
    kernel.interruptions = 3;
    EXPECT_EQ(listed(), kTwo);
    EXPECT_EQ(kernel.interruptions, 0);
}

TEST(Leases, AFileThatGrowsMeanwhile)
{
    write_text(kLeases, kTwoLines);
    const Watch watch;
    kernel.between_passes = [] { write_text(kLeases, std::string{kTwoLines} + kTwoLines); };
    EXPECT_EQ(listed(), kTwo);
}

TEST(Leases, AFileThatShrinksMeanwhile)
{
    write_text(kLeases, kTwoLines);
    const Watch watch;
    kernel.between_passes = [] { write_text(kLeases, "1 m a n 01:02 host"); };
    EXPECT_EQ(listed(), (Clients{{"m", "a", "host"}, {"", "", ""}}));
}

// ---- locks ------------------------------------------------------------------------------------

struct Locks {
    Clients clients;
    std::string printed;
    std::vector<std::string> calls;
};

/** What the library says and does; one kind of its calls may fail. */
Locks locks_with(int failing_command = -1, int failing_type = -1)
{
    write_text(kLeases, kTwoLines);
    Locks result;
    result.printed = printed([&] {
        const Watch watch;
        kernel.failing_command = failing_command;
        kernel.failing_type = failing_type;
        result.clients = listed();
        const Aside aside;
        result.calls = kernel.calls;
    });
    return result;
}

std::string lock_error(const std::string &message)
{
    return log_line(PROD_DBG_ERROR, "lock_set", message);
}

TEST(LeaseLock, IsHeldWhileTheFileIsRead)
{
    write_text(kLeases, kTwoLines);
    short seen = F_UNLCK;
    const Watch watch;
    kernel.between_passes = [&] {
        test::Child writer{[](test::Child &) {
            const int fd = open(kLeases, O_RDWR | O_CLOEXEC);
            struct flock lock = {};
            lock.l_type = F_WRLCK;
            fcntl(fd, F_GETLK, &lock);
            _exit(lock.l_type);
        }};
        seen = static_cast<short>(writer.status());
    };
    EXPECT_EQ(listed(), kTwo);
    EXPECT_EQ(seen, F_RDLCK);
}

TEST(LeaseLock, IsAskedForSetAndReleased)
{
    const Locks locks = locks_with();
    EXPECT_EQ(locks.clients, kTwo);
    EXPECT_EQ(locks.printed, "");
    EXPECT_EQ(locks.calls, (std::vector<std::string>{"query 0", "set 0", "rewind", "set 2"}));
}

TEST(LeaseLock, HeldByAnotherProcessIsNotWaitedFor)
{
    for (const off_t at : {0, 100000}) {
        write_text(kLeases, kTwoLines);
        test::Child holder{[=](test::Child &child) {
            const int fd = open(kLeases, O_RDWR | O_CLOEXEC);
            struct flock lock = {};
            lock.l_type = F_WRLCK;
            lock.l_start = at;
            lock.l_len = at;  // all of the file, or a few bytes that it does not have yet
            fcntl(fd, F_SETLK, &lock);
            child.tell();
            pause();
        }};
        holder.wait_until_told();
        const Locks locks = locks_with();
        EXPECT_THAT(locks.printed, Prints(lock_error("already locked by pid_" +
                                                     std::to_string(holder.pid()) + " (t=1)")));
        EXPECT_EQ(locks.clients, kTwo);
        EXPECT_EQ(locks.calls, (std::vector<std::string>{"query 0", "rewind"}))
            << "no unlock afterwards";
    }
}

TEST(LeaseLock, ReadersAreNotInEachOthersWay)
{
    write_text(kLeases, kTwoLines);
    test::Child reader{[](test::Child &child) {
        const int fd = open(kLeases, O_RDONLY | O_CLOEXEC);
        struct flock lock = {};
        lock.l_type = F_RDLCK;
        fcntl(fd, F_SETLK, &lock);
        child.tell();
        pause();
    }};
    reader.wait_until_told();
    EXPECT_EQ(printed([] { EXPECT_EQ(listed(), kTwo); }), "");
}

TEST(LeaseLock, CallsThatFail)
{
    Locks locks = locks_with(F_GETLK, F_RDLCK);
    EXPECT_THAT(locks.printed, Prints(lock_error("Failed(37) to F_GETLK, No locks available.")));
    EXPECT_EQ(locks.clients, kTwo);
    EXPECT_EQ(locks.calls, (std::vector<std::string>{"query 0", "rewind"}));

    locks = locks_with(F_SETLKW, F_RDLCK);
    EXPECT_THAT(locks.printed,
                Prints(lock_error("Failed(37) to F_SETLKW(0), No locks available.")));
    EXPECT_EQ(locks.clients, kTwo);
    EXPECT_EQ(locks.calls, (std::vector<std::string>{"query 0", "set 0", "rewind"}));

    locks = locks_with(F_SETLKW, F_UNLCK);
    EXPECT_THAT(locks.printed,
                Prints(lock_error("Failed(37) to F_SETLKW(2), No locks available.")));
    EXPECT_EQ(locks.clients, kTwo);
    EXPECT_EQ(locks.calls, (std::vector<std::string>{"query 0", "set 0", "rewind", "set 2"}));
}

// ---- the LAN's own lease ----------------------------------------------------------------------

class LanLease : public testing::Test
{
  protected:
    LanLease()
    {
        for (const char *const file : {"/etc/lan.cfg", "/etc/lan.ini"}) {
            test::remove_all(file);
        }
        memset(&info_, 'x', sizeof(info_));
    }

    HLX_RETURN_CODE get() { return file_lan_dhcpc_get_ipinfo_and_status(&info_); }

    /** What is printed when there is no lease; the record stays as it was. */
    std::string printed_without_one(prod_dbg_lvl_t level = PROD_DBG_ERROR)
    {
        const LAN_DHCPC_IP_INFO_STRU before = info_;
        const std::string text = printed_at(level, [this] { EXPECT_EQ(get(), HLX_ERR); });
        EXPECT_EQ(memcmp(&before, &info_, sizeof(info_)), 0);
        return text;
    }

    void expect(const std::vector<std::string> &fields) const
    {
        EXPECT_EQ((std::vector<std::string>{text_of(info_.lan_ip), text_of(info_.lan_mask),
                                            text_of(info_.lan_gw), text_of(info_.lan_dns1),
                                            text_of(info_.lan_dns2)}),
                  fields);
    }

    static std::string line(prod_dbg_lvl_t level, const std::string &message)
    {
        return log_line(level, "file_lan_dhcpc_get_ipinfo_and_status", message);
    }

    LAN_DHCPC_IP_INFO_STRU info_;
};

TEST_F(LanLease, Whole)
{
    write_text("/etc/lan.cfg", "1\n");
    write_text("/etc/lan.ini",
               "ip=192.168.7.9\nmask=255.255.255.0\ngateway=192.168.7.1\ndns1=192.168.7.2\n"
               "dns2=9.9.9.9\n");
    const int before = test::open_descriptors();
    EXPECT_EQ(printed([this] { EXPECT_EQ(get(), HLX_OK); }), "");
    expect({"192.168.7.9", "255.255.255.0", "192.168.7.1", "192.168.7.2", "9.9.9.9"});
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(LanLease, MissingKeysAreNoAddressesEmptyOnesStayEmpty)
{
    write_text("/etc/lan.cfg", "1");
    EXPECT_EQ(get(), HLX_OK);
    expect({"0.0.0.0", "0.0.0.0", "0.0.0.0", "0.0.0.0", "0.0.0.0"});
    write_text("/etc/lan.ini",
               "dns2=\r\nxip=1.2.3.4\nmask=" + std::string(100, 'm') + "\nIP=1.2.3.4\ngateway=\n");
    EXPECT_EQ(get(), HLX_OK);
    expect({"0.0.0.0", std::string(15, 'm'), "", "0.0.0.0", ""});
}

TEST_F(LanLease, TheStatusIsTheFirstNumber)
{
    for (const char *const one : {"1", " \n\t1\n", "+1", "001 0", "1abc"}) {
        write_text("/etc/lan.cfg", one);
        EXPECT_EQ(get(), HLX_OK) << one;
    }
    for (const char *const other : {"0", "0\n", "2", "-1", "11", "4294967297",
                                    "18446744073709551617", "99999999999999999999999"}) {
        write_text("/etc/lan.cfg", other);
        EXPECT_THAT(printed_without_one(), Prints(line(PROD_DBG_ERROR, "status is error.")))
            << other;
    }
    for (const char *const none : {"", "\n", "x1", "-", "one"}) {
        write_text("/etc/lan.cfg", none);
        EXPECT_THAT(printed_without_one(), Prints(line(PROD_DBG_ERROR, "get status is fail.")))
            << none;
    }
}

TEST_F(LanLease, NoFile)
{
    EXPECT_EQ(printed_without_one(), "");
    EXPECT_THAT(printed_without_one(PROD_DBG_DEBUG),
                Prints(line(PROD_DBG_DEBUG, "Failed(2) to fopen, No such file or directory.")));
}

TEST_F(LanLease, NoRecord)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(file_lan_dhcpc_get_ipinfo_and_status(nullptr), HLX_ERR); }),
                Prints(line(PROD_DBG_ERROR, "arg is null.")));
}

TEST_F(LanLease, Traces)
{
    const std::string enter =
        line(PROD_DBG_TRACE, "ENTER >>> file_lan_dhcpc_get_ipinfo_and_status");
    write_text("/etc/lan.cfg", "0");
    EXPECT_THAT(printed_without_one(PROD_DBG_TRACE),
                Prints(enter + line(PROD_DBG_ERROR, "status is error.")));
    write_text("/etc/lan.cfg", "1");
    EXPECT_THAT(
        printed_at(PROD_DBG_TRACE, [this] { EXPECT_EQ(get(), HLX_OK); }),
        Prints(enter + line(PROD_DBG_TRACE, "LEAVE <<< file_lan_dhcpc_get_ipinfo_and_status")));
}

// ---- neighbours -------------------------------------------------------------------------------

constexpr const char *kHeading =
    "IP address       HW type     Flags       HW address            Mask     Device\n";

/** The address for a MAC in a table that is made up. */
std::string address_in(const std::string &table, const char *mac)
{
    test::RecordedPipes pipes{[&](const std::string &) { return table; }};
    auto *const ip = static_cast<char *>(malloc(INET_ADDRSTRLEN));
    memset(ip, 'x', INET_ADDRSTRLEN);
    const HLX_RETURN_CODE result = find_ip_in_arpfile(mac, ip);
    std::string address{ip, strnlen(ip, INET_ADDRSTRLEN)};
    EXPECT_LT(address.size(), std::size_t{INET_ADDRSTRLEN});
    free(ip);
    EXPECT_EQ(result == HLX_ERR, address == "0.0.0.0");
    EXPECT_EQ(pipes.all(), std::vector<std::string>{"cat /proc/net/arp"});
    EXPECT_EQ(pipes.left_open(), 0U);
    return address;
}

TEST(Neighbours, InTheKernelsTable)
{
    test::run(
        "ip link add neigh0 type bridge && ip address add 192.168.77.1/24 dev neigh0 && "
        "ip link set neigh0 up && "
        "ip neigh replace 192.168.77.2 lladdr 02:00:5e:00:53:aa dev neigh0 nud permanent");
    const int before = test::open_descriptors();
    char ip[16] = "";
    EXPECT_EQ(find_ip_in_arpfile("02:00:5E:00:53:AA", ip), HLX_OK);
    EXPECT_STREQ(ip, "192.168.77.2");
    EXPECT_EQ(find_ip_in_arpfile("02:00:5E:00:53:AB", ip), HLX_ERR);
    EXPECT_STREQ(ip, "0.0.0.0");
    EXPECT_EQ(test::open_descriptors(), before);
    test::run("ip link del neigh0");
}

TEST(Neighbours, AreFoundInEitherCase)
{
    const std::string table = std::string{kHeading} +
                              "192.168.0.9 0x1 0x2 02:00:5E:00:53:09 * br0\n"
                              "192.168.0.10 0x1 0x6 02:00:5e:00:53:0a * br0\n"
                              "192.168.0.11 0x1 0x2 02:00:5e:00:53:0a * br0\n";
    EXPECT_EQ(address_in(table, "02:00:5e:00:53:09"), "192.168.0.9");
    EXPECT_EQ(address_in(table, "02:00:5E:00:53:0A"), "192.168.0.10") << "the first one";
    EXPECT_EQ(address_in(table, "02:00:5e:00:53:0a and more"), "192.168.0.10");
    EXPECT_EQ(address_in(table, "02:00:5e:00:53:0"), "0.0.0.0");
    EXPECT_EQ(address_in(table, ""), "0.0.0.0");
    EXPECT_EQ(address_in(table + "192.168.0.12 0x1 0x2\n", ""), "0.0.0.0");
}

TEST(Neighbours, IncompleteOnesDoNotCount)
{
    EXPECT_EQ(
        address_in(std::string{kHeading} + "192.168.0.9 0x1 0x0 02:00:5e:00:53:01 * br0\n", kMac),
        "0.0.0.0");
    EXPECT_EQ(address_in(std::string{kHeading} + "192.168.0.9 0x1 0x0 02:00:5e:00:53:01 * br0\n"
                                                 "192.168.0.8 0x1 0x2 02:00:5e:00:53:01 * br0\n",
                         kMac),
              "192.168.0.8");
}

TEST(Neighbours, TheFirstLineIsTheHeading)
{
    EXPECT_EQ(address_in("192.168.0.9 0x1 0x2 02:00:5e:00:53:01 * br0\n", kMac), "0.0.0.0");
    EXPECT_EQ(address_in("", kMac), "0.0.0.0");
}

TEST(Neighbours, OddLines)
{
    for (const std::string &odd :
         {std::string{"\n\n"}, std::string{"192.168.0.9"}, std::string{"192.168.0.9 0x1 0x2\n"},
          std::string("\0\xff\n", 3), std::string(100000, 'x'),
          std::string{"1234567890123456 0x1 0x2 02:00:5e:00:53:01 * br0\n"}}) {
        EXPECT_EQ(address_in(kHeading + odd, kMac), "0.0.0.0") << odd;
    }
    EXPECT_EQ(address_in(std::string{kHeading} + "  1.1.1.1\t0x1  0x2  02:00:5e:00:53:01", kMac),
              "1.1.1.1");
    EXPECT_EQ(
        address_in(std::string{kHeading} + "1.1.1.1 0x1 0x2 02:00:5e:00:53:01:02 * br0\n", kMac),
        "1.1.1.1");
    // A line of more than 255 characters goes on in the next.
    EXPECT_EQ(
        address_in(kHeading + std::string(254, ' ') + "x 1.1.1.1 0x1 0x2 02:00:5e:00:53:01", kMac),
        "1.1.1.1");
    EXPECT_EQ(
        address_in(kHeading + std::string(252, ' ') + "x 1.1.1.1 0x1 0x2 02:00:5e:00:53:01", kMac),
        ".1.1.1");
}

/** The address for a MAC as the documented patterns read the table. */
std::string scanned_for(const std::string &table, const char *mac)
{
    const std::unique_ptr<FILE, decltype(&fclose)> stream{
        fmemopen(const_cast<char *>(table.data()), table.size(), "r"), fclose};
    char line[256];
    if (fgets(line, sizeof(line), stream.get()) == nullptr) {
        return "0.0.0.0";
    }
    while (fgets(line, sizeof(line), stream.get()) != nullptr) {
        char flags[16] = "";
        char address[16] = "";
        char found[18] = "";
        sscanf(line, "%*s %*s %15s %*s %*s %*s", flags);
        if (strncmp(flags, "0x0", 3) != 0 &&
            sscanf(line, "%15s %*s %*s %17s %*s %*s", address, found) == 2 &&
            strncasecmp(found, mac, 17) == 0) {
            return address;
        }
    }
    return "0.0.0.0";
}

TEST(Neighbours, AreReadAsThePatternsReadThem)
{
    const std::string kPieces[] = {" ",
                                   " ",
                                   "\t",
                                   "\n",
                                   "\n",
                                   "\v",
                                   "\r",
                                   "0x0",
                                   "0x1",
                                   "0x2",
                                   " 0x1 ",
                                   " 0x2 ",
                                   "02:00:5e:00:53:01",
                                   "02:00:5E:00:53:01 ",
                                   "1.2.3.4",
                                   "1234567890123456",
                                   "\xFF",
                                   std::string(1, '\0'),
                                   std::string(100, 'x'),
                                   "192.168.0.9 0x1 0x2 02:00:5e:00:53:01",
                                   "192.168.0.9 0x1 0x0 02:00:5e:00:53:01"};
    std::mt19937 random{4711};
    int found = 0;
    for (int round = 0; round < 5000; ++round) {
        const std::string table = kHeading + random_text(random, kPieces, 30);
        const std::string expected = scanned_for(table, kMac);
        ASSERT_EQ(address_in(table, kMac), expected) << testing::PrintToString(table);
        found += expected != "0.0.0.0" ? 1 : 0;
    }
    EXPECT_GT(found, 500);
    EXPECT_LT(found, 4500);
}

TEST(Neighbours, SignalsMeanwhile)
{
    const test::RecordedPipes pipes{[](const std::string &) {
        return std::string{kHeading} + "192.168.0.9 0x1 0x2 02:00:5e:00:53:01 * br0\n";
    }};
    const Watch watch;
    kernel.interruptions = 3;
    char ip[16] = "";
    EXPECT_EQ(find_ip_in_arpfile(kMac, ip), HLX_OK);
    EXPECT_STREQ(ip, "192.168.0.9");
    EXPECT_EQ(kernel.interruptions, 0);
}

TEST(Neighbours, ACommandThatCannotBeStarted)
{
    const test::RecordedPipes pipes{[](const std::string &) { return std::nullopt; }};
    char ip[16] = "x";
    EXPECT_THAT(printed([&] { EXPECT_EQ(find_ip_in_arpfile(kMac, ip), HLX_ERR); }),
                Prints(log_line(PROD_DBG_ERROR, "find_ip_in_arpfile", "popen is fail.")));
    EXPECT_STREQ(ip, "0.0.0.0");
}

TEST(Neighbours, NoMacOrNoRoom)
{
    const test::RecordedPipes pipes{[](const std::string &) { return kHeading; }};
    char ip[16] = "x";
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(find_ip_in_arpfile(nullptr, ip), HLX_ERR);
                  EXPECT_EQ(find_ip_in_arpfile(kMac, nullptr), HLX_ERR);
              }),
              "");
    EXPECT_STREQ(ip, "x");
    EXPECT_TRUE(pipes.all().empty());
}

TEST(Neighbours, TheExitTraceIsThatOfASearchInVain)
{
    const auto line = [](const std::string &text) {
        return log_line(PROD_DBG_TRACE, "find_ip_in_arpfile", text + " find_ip_in_arpfile");
    };
    const std::string table =
        std::string{kHeading} + "192.168.0.9 0x1 0x2 02:00:5E:00:53:09 * br0\n";
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [&] { EXPECT_EQ(address_in(table, kMac), "0.0.0.0"); }),
                Prints(line("ENTER >>>") + line("LEAVE <<<")));
    EXPECT_THAT(
        printed_at(PROD_DBG_TRACE,
                   [&] { EXPECT_EQ(address_in(table, "02:00:5e:00:53:09"), "192.168.0.9"); }),
        Prints(line("ENTER >>>")));
}

}  // namespace

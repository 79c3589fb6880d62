// SPDX-License-Identifier: MIT
#include "platform/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "support/files.hpp"

using test::read_text;
using test::write_text;

namespace
{

// ------------------------------------------------------------------------------------ commands

TEST(SystemCommand, IsRunByTheShell)
{
    EXPECT_EQ(doSystemCmd("exit %d", 3), 3 << 8);
    EXPECT_EQ(doSystemCmd("true"), 0);
    EXPECT_EQ(doSystemCmd("kill -9 $$"), SIGKILL);
    EXPECT_EQ(doSystemCmd(nullptr), -1);
}

TEST(SystemCommand, QuotesAndLineBreaksArriveAsTheyAre)
{
    EXPECT_EQ(doSystemCmd("echo -e \"\n%s\n\" > /tmp/out", "##the marker##"), 0);
    EXPECT_EQ(read_text("/tmp/out"), "\n##the marker##\n\n");
    EXPECT_EQ(doSystemCmd("printf '%%s' '%s' > /tmp/out", "a \"b\" $c `d`"), 0);
    EXPECT_EQ(read_text("/tmp/out"), "a \"b\" $c `d`");
}

TEST(SystemCommand, OfAnyLength)
{
    const std::string text(100000, 'x');
    EXPECT_EQ(doSystemCmd("printf '%%s' '%s' > /tmp/out; exit 7", text.c_str()), 7 << 8);
    EXPECT_EQ(read_text("/tmp/out"), text);
}

// --------------------------------------------------------------------------------------- files

constexpr const char *kFile = "/tmp/written";

TEST(FileCommand, ReplacesAndAppends)
{
    test::remove_all(kFile);
    EXPECT_EQ(do_file_cmd(kFile, 1, "%s-%d\n", "first", 1), 0);
    EXPECT_EQ(do_file_cmd(kFile, 1, "second\n"), 0);
    EXPECT_EQ(read_text(kFile), "first-1\nsecond\n");
    EXPECT_EQ(do_file_cmd(kFile, 0, "new"), 0);
    EXPECT_EQ(read_text(kFile), "new");
    EXPECT_EQ(do_file_cmd(kFile, 0, "%s", ""), 0);
    EXPECT_EQ(read_text(kFile), "");
    struct stat status;
    ASSERT_EQ(stat(kFile, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644U);
}

TEST(FileCommand, NoShellIsInvolved)
{
    EXPECT_EQ(do_file_cmd(kFile, 0, "%s", "$(reboot)`x`\"';\\\n"), 0);
    EXPECT_EQ(read_text(kFile), "$(reboot)`x`\"';\\\n");
}

TEST(FileCommand, LongTextsAreWhole)
{
    for (const std::size_t size : {10239UL, 10240UL, 10241UL, 500000UL}) {
        const std::string text(size, 'x');
        EXPECT_EQ(do_file_cmd(kFile, 0, "%s", text.c_str()), 0);
        EXPECT_EQ(read_text(kFile), text);
    }
}

TEST(FileCommand, OneWrite)
{
    // A pipe in packet mode keeps writes apart.
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_DIRECT), 0);
    const std::string path = "/proc/self/fd/" + std::to_string(ends[1]);
    const std::string text(3000, 'x');
    EXPECT_EQ(do_file_cmd(path.c_str(), 1, "%s%s", text.c_str(), "end"), 0);
    char buffer[4096];
    EXPECT_EQ(read(ends[0], buffer, sizeof(buffer)), 3003);
    close(ends[0]);
    close(ends[1]);
}

TEST(FileCommand, Failures)
{
    EXPECT_EQ(do_file_cmd("/tmp/no/such", 0, "x"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(do_file_cmd("/tmp", 0, "x"), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(do_file_cmd(nullptr, 0, "x"), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(do_file_cmd(kFile, 0, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    const test::MountedFolder full{"/tmp/full"};
    full.fill();
    EXPECT_EQ(do_file_cmd("/tmp/full/file", 0, "%s", std::string(9000, 'x').c_str()), -1);
    EXPECT_EQ(errno, ENOSPC);
    ASSERT_EQ(unlink("/tmp/full/fill"), 0);
    EXPECT_EQ(do_file_cmd("/tmp/full/file", 0, "%s", std::string(100000, 'x').c_str()), -1);
    EXPECT_EQ(errno, ENOSPC);
    const int before = test::open_descriptors();
    EXPECT_EQ(do_file_cmd(kFile, 0, "x"), 0);
    EXPECT_EQ(test::open_descriptors(), before);
}

// ----------------------------------------------------------------------------------- processes

/** A process of a given name, for as long as this lives. */
class Named
{
  public:
    explicit Named(const char *name)
    {
        int ready[2];
        if (pipe(ready) != 0) {
            abort();
        }
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_NAME, name);
            close(ready[0]);
            close(ready[1]);
            for (;;) {
                pause();
            }
        }
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 0);
        close(ready[0]);
    }
    ~Named()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_;
};

TEST(ProcessExists, ByItsExactName)
{
    EXPECT_EQ(monitor_check_exist("dhcpcd_wan1"), 0);
    const Named client{"dhcpcd_wan1"};
    EXPECT_NE(monitor_check_exist("dhcpcd_wan1"), 0);
    EXPECT_EQ(monitor_check_exist("dhcpcd_wan"), 0);
    EXPECT_EQ(monitor_check_exist("dhcpcd_wan11"), 0);
    EXPECT_EQ(monitor_check_exist("DHCPCD_WAN1"), 0);
    EXPECT_EQ(monitor_check_exist(""), 0);
    EXPECT_EQ(monitor_check_exist(nullptr), 0);
}

TEST(ProcessExists, TheKernelKeeps15Characters)
{
    const Named daemon{"a_very_long_name_indeed"};
    EXPECT_NE(monitor_check_exist("a_very_long_name_indeed"), 0);
    EXPECT_NE(monitor_check_exist("a_very_long_nam"), 0);
    EXPECT_EQ(monitor_check_exist("a_very_long_na"), 0);
}

TEST(ProcessExists, NamesWithBracketsAndBlanks)
{
    const Named odd{"a (b) c) d"};
    EXPECT_NE(monitor_check_exist("a (b) c) d"), 0);
    EXPECT_EQ(monitor_check_exist("a (b"), 0);
}

TEST(ProcessExists, OneThatEndedDoesNot)
{
    const Named client{"pppd_wan1"};
    EXPECT_NE(monitor_check_exist("pppd_wan1"), 0);
    kill(client.pid(), SIGKILL);
    siginfo_t info;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(client.pid()), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(monitor_check_exist("pppd_wan1"), 0);  // not buried yet
}

// ------------------------------------------------------------------------------------- messages

constexpr const char *kSocket = "/tmp/server";

class Server
{
  public:
    explicit Server(int backlog = 5) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        unlink(kSocket);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, kSocket);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(fd_, backlog), 0);
    }
    ~Server() { close(fd_); }
    int fd() const { return fd_; }

    /** Everything that one client sends. */
    std::string receive() const
    {
        const int client = accept(fd_, nullptr, nullptr);
        std::string text;
        char buffer[4096];
        ssize_t got;
        while ((got = read(client, buffer, sizeof(buffer))) > 0) {
            text.append(buffer, static_cast<std::size_t>(got));
        }
        close(client);
        return text;
    }

  private:
    int fd_;
};

/** A frame on the heap. */
struct Frame {
    explicit Frame(const std::string &body)
        : message(static_cast<HLX_MSG *>(malloc(offsetof(HLX_MSG, Body) + body.size() + 1)))
    {
        message->Length = static_cast<int>(body.size());
        memcpy(message->Body, body.data(), body.size());
    }
    ~Frame() { free(message); }
    HLX_MSG *message;
};

std::string on_the_wire(const std::string &body)
{
    const int length = static_cast<int>(body.size());
    return std::string{reinterpret_cast<const char *>(&length), sizeof(length)} + body;
}

TEST(SendMessage, LengthThenBody)
{
    for (const std::string &body : {std::string{"reload wlan0"}, std::string{},
                                    std::string(300000, 'x'), std::string("a\0b", 3)}) {
        const Server server;
        std::string received;
        std::thread daemon{[&] { received = server.receive(); }};
        const int before = test::open_descriptors();
        EXPECT_EQ(hlx_proc_send_msg(Frame{body}.message, kSocket), 0);
        daemon.join();
        EXPECT_LE(test::open_descriptors(), before);
        EXPECT_TRUE(received == on_the_wire(body));
    }
}

TEST(SendMessage, ADaemonThatIsMissing)
{
    unlink(kSocket);
    EXPECT_LT(hlx_proc_send_msg(Frame{"x"}.message, kSocket), 0);
    EXPECT_EQ(errno, ENOENT);
    {
        const Server gone;
    }
    EXPECT_LT(hlx_proc_send_msg(Frame{"x"}.message, kSocket), 0);
    EXPECT_EQ(errno, ECONNREFUSED);
}

double seconds(const std::function<void()> &code)
{
    const auto start = std::chrono::steady_clock::now();
    code();
    return std::chrono::duration<double>{std::chrono::steady_clock::now() - start}.count();
}

TEST(SendMessage, ADaemonThatDoesNotReadHoldsNobodyUp)
{
    const Server server;
    const double time = seconds([] {
        EXPECT_LT(hlx_proc_send_msg(Frame{std::string(3000000, 'x')}.message, kSocket), 0);
        EXPECT_EQ(errno, EAGAIN);
    });
    EXPECT_GT(time, 0.9);
    EXPECT_LT(time, 3.0);
}

TEST(SendMessage, ADaemonThatDoesNotAcceptHoldsNobodyUp)
{
    const Server server{0};
    const double time = seconds([] {
        EXPECT_EQ(hlx_proc_send_msg(Frame{"x"}.message, kSocket), 0);  // in the queue
        EXPECT_LT(hlx_proc_send_msg(Frame{"x"}.message, kSocket), 0);
        EXPECT_EQ(errno, EAGAIN);
    });
    EXPECT_LT(time, 3.0);
}

TEST(SendMessage, ADaemonThatClosesEarlyKillsNobody)
{
    const Server server;
    std::thread daemon{[&] {
        const int client = accept(server.fd(), nullptr, nullptr);
        char byte;
        EXPECT_EQ(read(client, &byte, 1), 1);
        close(client);
    }};
    signal(SIGPIPE, SIG_DFL);
    EXPECT_LT(hlx_proc_send_msg(Frame{std::string(3000000, 'x')}.message, kSocket), 0);
    EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET) << errno;
    daemon.join();
}

TEST(SendMessage, ArgumentsThatCannotBe)
{
    EXPECT_LT(hlx_proc_send_msg(nullptr, kSocket), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_LT(hlx_proc_send_msg(Frame{"x"}.message, nullptr), 0);
    EXPECT_LT(hlx_proc_send_msg(Frame{"x"}.message, std::string(108, '/').c_str()), 0);
    EXPECT_EQ(errno, EINVAL);
    Frame negative{"x"};
    negative.message->Length = -1;
    EXPECT_LT(hlx_proc_send_msg(negative.message, kSocket), 0);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace

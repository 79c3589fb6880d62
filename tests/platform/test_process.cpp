// SPDX-License-Identifier: MIT
#include "platform/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "support/children.hpp"
#include "support/files.hpp"
#include "support/sockets.hpp"
#include "support/time.hpp"

using test::read_text;
using test::seconds;
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

TEST(ProcessExists, ByItsExactName)
{
    EXPECT_EQ(monitor_check_exist("dhcpcd_wan1"), 0);
    const test::NamedProcess client{"dhcpcd_wan1"};
    EXPECT_NE(monitor_check_exist("dhcpcd_wan1"), 0);
    EXPECT_EQ(monitor_check_exist("dhcpcd_wan"), 0);
    EXPECT_EQ(monitor_check_exist("dhcpcd_wan11"), 0);
    EXPECT_EQ(monitor_check_exist("DHCPCD_WAN1"), 0);
    EXPECT_EQ(monitor_check_exist(""), 0);
    EXPECT_EQ(monitor_check_exist(nullptr), 0);
}

TEST(ProcessExists, TheKernelKeeps15Characters)
{
    const test::NamedProcess daemon{"a_very_long_name_indeed"};
    EXPECT_NE(monitor_check_exist("a_very_long_name_indeed"), 0);
    EXPECT_NE(monitor_check_exist("a_very_long_nam"), 0);
    EXPECT_EQ(monitor_check_exist("a_very_long_na"), 0);
}

TEST(ProcessExists, NamesWithBracketsAndBlanks)
{
    const test::NamedProcess odd{"a (b) c) d"};
    EXPECT_NE(monitor_check_exist("a (b) c) d"), 0);
    EXPECT_EQ(monitor_check_exist("a (b"), 0);
}

TEST(ProcessExists, OneThatEndedDoesNot)
{
    const test::NamedProcess client{"pppd_wan1"};
    EXPECT_NE(monitor_check_exist("pppd_wan1"), 0);
    kill(client.pid(), SIGKILL);
    siginfo_t info;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(client.pid()), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(monitor_check_exist("pppd_wan1"), 0);  // not buried yet
}

// ------------------------------------------------------------------------------------- signals

/** Every child that is a process of that name ends by this signal, -1 while it lives. */
int ended_by(const test::NamedProcess &process)
{
    siginfo_t info = {};
    const int rc =
        waitid(P_PID, static_cast<id_t>(process.pid()), &info, WEXITED | WNOWAIT | WNOHANG);
    return rc == 0 && info.si_pid == process.pid() ? info.si_status : -1;
}

int ends_by(const test::NamedProcess &process)
{
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(process.pid()), &info, WEXITED | WNOWAIT);
    return info.si_status;
}

TEST(SendSignal, ToEveryProcessOfThatName)
{
    const test::NamedProcess one{"pppd_l2tp"};
    const test::NamedProcess two{"pppd_l2tp"};
    const test::NamedProcess other{"pppd_l2tp2"};
    EXPECT_EQ(proc_send_signal("pppd_l2tp", 0), 0);
    EXPECT_EQ(proc_send_signal("pppd_l2tp", SIGHUP), 0);
    EXPECT_EQ(ends_by(one), SIGHUP);
    EXPECT_EQ(ends_by(two), SIGHUP);
    EXPECT_EQ(ended_by(other), -1);
}

TEST(SendSignal, TheKernelKeeps15Characters)
{
    const test::NamedProcess daemon{"a_very_long_name_indeed"};
    EXPECT_EQ(proc_send_signal("a_very_long_name_indeed", SIGUSR1), 0);
    EXPECT_EQ(ends_by(daemon), SIGUSR1);
}

TEST(SendSignal, ToNobody)
{
    const int before = test::open_descriptors();
    EXPECT_EQ(proc_send_signal("pppd_l2tp", SIGHUP), -1);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(test::open_descriptors(), before);
    for (const char *const name : {static_cast<const char *>(nullptr), ""}) {
        errno = 0;
        EXPECT_EQ(proc_send_signal(name, SIGHUP), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    for (const int signo : {-1, NSIG}) {
        errno = 0;
        EXPECT_EQ(proc_send_signal("pppd_l2tp", signo), -1);
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST(SendSignal, OneThatEndedIsNobody)
{
    const test::NamedProcess daemon{"pppd_l2tp"};
    kill(daemon.pid(), SIGKILL);
    EXPECT_EQ(ends_by(daemon), SIGKILL);
    EXPECT_EQ(proc_send_signal("pppd_l2tp", SIGHUP), -1);
    EXPECT_EQ(errno, ESRCH);
}

// ----------------------------------------------------------------------------- process monitor

TEST(MonitorStop, AProcessThatNobodyLooksAfter)
{
    const test::NamedProcess one{"multiwan"};
    const test::NamedProcess two{"multiwan"};
    EXPECT_EQ(monitor_stop("multiwan"), 0);
    EXPECT_EQ(monitor_check_exist("multiwan"), 0);
    EXPECT_EQ(ends_by(one), SIGTERM);
    EXPECT_EQ(ends_by(two), SIGTERM);
}

TEST(MonitorStop, NobodyIsStoppedAtOnce)
{
    const int before = test::open_descriptors();
    EXPECT_LT(seconds([] { EXPECT_EQ(monitor_stop("multiwan"), 0); }), 2);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(MonitorStop, OneThatDoesNotWantToIsKilled)
{
    const auto before = signal(SIGTERM, SIG_IGN);
    const test::NamedProcess stubborn{"multiwan"};
    signal(SIGTERM, before);
    const double time = seconds([] { EXPECT_EQ(monitor_stop("multiwan"), 0); });
    EXPECT_EQ(ends_by(stubborn), SIGKILL);
    EXPECT_GT(time, 1.5);
    EXPECT_LT(time, 6.0);
}

/**
 * The process monitor's files for one daemon, and what it does with commands: "d" ends the daemon
 * and leaves it so, "k" kills it; a daemon that ends otherwise is started again at once.
 */
class Supervised
{
  public:
    explicit Supervised(const char *name, bool stubborn = false)
        : name_(name), folder_(std::string{"/var/service/"} + name + "/supervise")
    {
        write_text(folder_ + "/stat", "run\n");
        EXPECT_EQ(mkfifo((folder_ + "/control").c_str(), 0600), 0);
        control_ = open((folder_ + "/control").c_str(), O_RDWR | O_CLOEXEC);
        const auto before = stubborn ? signal(SIGTERM, SIG_IGN) : SIG_DFL;
        daemon_ = std::make_unique<test::NamedProcess>(name);
        if (stubborn) {
            signal(SIGTERM, before);
        }
        monitor_ = std::thread{[this] { look_after(); }};
    }
    ~Supervised()
    {
        EXPECT_EQ(write(control_, "x", 1), 1);
        monitor_.join();
        close(control_);
        test::remove_all("/var/service");
    }
    const std::string &commands() const { return commands_; }
    int starts() const { return starts_; }

  private:
    void look_after()
    {
        bool wanted = true;
        for (;;) {
            pollfd ready{control_, POLLIN, 0};
            char command = 0;
            if (poll(&ready, 1, 10) == 1) {
                ASSERT_EQ(read(control_, &command, 1), 1);
            }
            if (command == 'x') {
                return;
            }
            if (command != 0) {
                commands_ += command;
                wanted = false;
                kill(daemon_->pid(), command == 'k' ? SIGKILL : SIGTERM);
                write_text(folder_ + "/stat", "run, want down\n");
            }
            if (ended_by(*daemon_) != -1 && wanted) {
                daemon_ = std::make_unique<test::NamedProcess>(name_);
                ++starts_;
            } else if (ended_by(*daemon_) != -1) {
                write_text(folder_ + "/stat", "down\n");
            }
        }
    }

    const char *name_;
    std::string folder_;
    int control_;
    std::unique_ptr<test::NamedProcess> daemon_;
    std::thread monitor_;
    std::string commands_;
    int starts_ = 0;
};

TEST(MonitorStop, OneThatIsLookedAfterStaysStopped)
{
    const Supervised service{"multiwan"};
    EXPECT_LT(seconds([] { EXPECT_EQ(monitor_stop("multiwan"), 0); }), 5);
    EXPECT_EQ(monitor_check_exist("multiwan"), 0);
    usleep(100000);
    EXPECT_EQ(monitor_check_exist("multiwan"), 0);
    EXPECT_EQ(service.commands(), "d");
    EXPECT_EQ(service.starts(), 0);
    EXPECT_EQ(monitor_stop("multiwan"), 0);  // again
}

TEST(MonitorStop, OneThatIsLookedAfterAndDoesNotWantTo)
{
    const Supervised service{"multiwan", true};
    EXPECT_EQ(monitor_stop("multiwan"), 0);
    EXPECT_EQ(monitor_check_exist("multiwan"), 0);
    EXPECT_EQ(service.commands(), "dk");
}

TEST(MonitorStop, AMonitorThatDoesNotRun)
{
    write_text("/var/service/multiwan/supervise/stat", "run\n");
    ASSERT_EQ(mkfifo("/var/service/multiwan/supervise/control", 0600), 0);
    const test::NamedProcess process{"multiwan"};
    EXPECT_EQ(monitor_stop("multiwan"), 0);
    EXPECT_EQ(ends_by(process), SIGTERM);
    test::remove_all("/var/service");
}

TEST(MonitorStop, ADaemonThatNeverEnds)
{
    // A monitor that takes commands and does nothing.
    write_text("/var/service/multiwan/supervise/stat", "run, want down\n");
    ASSERT_EQ(mkfifo("/var/service/multiwan/supervise/control", 0600), 0);
    const int control = open("/var/service/multiwan/supervise/control", O_RDWR | O_CLOEXEC);
    EXPECT_EQ(monitor_stop("multiwan"), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    char commands[8] = "";
    EXPECT_EQ(read(control, commands, sizeof(commands)), 2);
    EXPECT_STREQ(commands, "dk");
    close(control);
    test::remove_all("/var/service");
}

TEST(MonitorStop, NamesThatCannotBe)
{
    for (const char *const name :
         {static_cast<const char *>(nullptr), "", ".", "..", "../x", "a/b"}) {
        errno = 0;
        EXPECT_EQ(monitor_stop(name), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(monitor_stop(std::string(5000, 'x').c_str()), 0);
}

// ------------------------------------------------------------------------------------- messages

constexpr const char *kSocket = "/tmp/server";

class Server : public test::Listener
{
  public:
    explicit Server(int backlog = 5) : Listener(kSocket, backlog) {}

    /** Everything that one client sends. */
    std::string receive() const
    {
        const int client = accept();
        std::string text;
        char buffer[4096];
        ssize_t got;
        while ((got = read(client, buffer, sizeof(buffer))) > 0) {
            text.append(buffer, static_cast<std::size_t>(got));
        }
        close(client);
        return text;
    }
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
        const int client = server.accept();
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
    const std::string longer(108, '/');
    Frame frame{"x"};
    Frame negative{"x"};
    negative.message->Length = -1;
    const struct {
        HLX_MSG *message;
        const char *path;
    } kCases[] = {{nullptr, kSocket},
                  {frame.message, nullptr},
                  {frame.message, longer.c_str()},
                  {negative.message, kSocket}};
    for (const auto &[message, path] : kCases) {
        errno = 0;
        EXPECT_LT(hlx_proc_send_msg(message, path), 0);
        EXPECT_EQ(errno, EINVAL);
    }
}

}  // namespace

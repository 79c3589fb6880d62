// SPDX-License-Identifier: MIT
#include "support/network.hpp"

#include <arpa/inet.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace test
{
namespace
{

[[noreturn]] void fail(const std::string &what)
{
    fprintf(stderr, "%s failed\n", what.c_str());
    abort();
}

}  // namespace

void run(const char *format, ...)
{
    char command[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(command, sizeof(command), format, args);
    va_end(args);
    if (system(command) != 0) {
        fail(command);
    }
}

std::string output(const std::string &command)
{
    FILE *const pipe = popen(command.c_str(), "re");
    if (pipe == nullptr) {
        fail(command);
    }
    std::string text;
    for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) {
        text += static_cast<char>(c);
    }
    pclose(pipe);
    return text;
}

Peer::Peer(std::string device, const std::string &address, const std::string &far_address,
           const std::string &far_mac)
    : device_(std::move(device))
{
    int moved[2];
    int ready[2];
    if (pipe(moved) != 0 || pipe(ready) != 0) {
        fail("pipe");
    }
    holder_ = fork();
    if (holder_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        char byte = 0;
        if (unshare(CLONE_NEWNET) != 0 || write(ready[1], &byte, 1) != 1 ||
            read(moved[0], &byte, 1) != 1) {
            _exit(1);
        }
        run("ip link set far name eth0 address %s", far_mac.c_str());
        run("ip address add %s dev eth0", far_address.c_str());
        run("ip link set eth0 up");
        if (write(ready[1], &byte, 1) != 1) {
            _exit(1);
        }
        for (;;) {
            pause();
        }
    }
    close(moved[0]);
    close(ready[1]);
    char byte;
    if (read(ready[0], &byte, 1) != 1) {
        fail("a network namespace");
    }
    run("ip link add %s type veth peer name far", device_.c_str());
    run("ip link set far netns %d", static_cast<int>(holder_));
    run("ip address add %s dev %s", address.c_str(), device_.c_str());
    run("ip link set %s up", device_.c_str());
    if (write(moved[1], &byte, 1) != 1 || read(ready[0], &byte, 1) != 1) {
        fail("the far end");
    }
    close(moved[1]);
    close(ready[0]);
}

Peer::~Peer()
{
    run("ip link delete %s", device_.c_str());  // while there still is a far end
    kill(holder_, SIGKILL);
    waitpid(holder_, nullptr, 0);
}

void Peer::reach(const std::string &ip) const
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(9);
    to.sin_addr.s_addr = inet_addr(ip.c_str());
    const std::string show = "ip neigh show " + ip + " nud reachable";
    for (int tries = 0; output(show).empty(); ++tries) {
        if (tries == 100) {
            fail("reaching " + ip);
        }
        sendto(fd, "", 0, 0, reinterpret_cast<const sockaddr *>(&to), sizeof(to));
        usleep(20000);
    }
    close(fd);
}

}  // namespace test

// SPDX-License-Identifier: MIT
#include "support/sockets.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace test
{

Listener::Listener(const std::string &path, int backlog)
    : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    unlink(path.c_str());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(fd_, backlog), 0);
}

Listener::~Listener()
{
    close(fd_);
}

int Listener::accept() const
{
    return accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
}

Daemon::Daemon(std::string path, std::function<void(int)> serve)
    : path_(std::move(path)), listener_(path_, 1), thread_([this, serve = std::move(serve)] {
          const int connection = listener_.accept();
          serve(connection);
          close(connection);
      })
{
}

Daemon::~Daemon()
{
    join();
    unlink(path_.c_str());
}

void Daemon::join()
{
    if (thread_.joinable()) {
        thread_.join();
    }
}

}  // namespace test

// SPDX-License-Identifier: MIT
// The daemons that a test's commands talk to.
#pragma once

#include <functional>
#include <string>
#include <thread>

namespace test
{

/** A stream socket of that path that takes connections. The path stays, as when a daemon dies. */
class Listener
{
  public:
    explicit Listener(const std::string &path, int backlog = 5);
    ~Listener();
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    /** Waits for a connection and takes it. */
    int accept() const;

  private:
    int fd_;
};

/** Takes one connection and serves it in a thread of its own. It takes its path along. */
class Daemon
{
  public:
    Daemon(std::string path, std::function<void(int connection)> serve);
    ~Daemon();

    /** Waits until the connection is served. */
    void join();

  private:
    std::string path_;
    Listener listener_;
    std::thread thread_;
};

}  // namespace test

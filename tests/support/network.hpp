// SPDX-License-Identifier: MIT
// Networks that a test lays out in its own device.
#pragma once

#include <sys/types.h>

#include <string>

#include "prod_common_types.h"

namespace test
{

/** Runs a formatted shell command that must succeed. */
PROD_PRINTF(1, 2) void run(const char *format, ...);

/** What a shell command prints. */
std::string output(const std::string &command);

/**
 * Another machine at the far end of a cable: a pair of Ethernet devices, the far one in a network
 * namespace of its own.
 */
class Peer
{
  public:
    /**
     * @param device   this end's name
     * @param address  this end's address with its prefix length
     */
    Peer(std::string device, const std::string &address, const std::string &far_address,
         const std::string &far_mac);
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    /** Sends something there and waits until the kernel has resolved the address. */
    void reach(const std::string &ip) const;

  private:
    std::string device_;
    pid_t holder_;  // the process that keeps the far namespace
};

}  // namespace test

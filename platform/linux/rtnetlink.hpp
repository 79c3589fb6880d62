// SPDX-License-Identifier: MIT
// Requests that change the kernel's view of a network interface.
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>

#include "handle.hpp"

namespace platform
{

/**
 * Sends one request and takes the kernel's answer to it.
 * @param request  a whole message with NLM_F_ACK among its flags
 * @return 0 or an errno value
 */
inline int ask_rtnetlink(const nlmsghdr &request)
{
    const Fd fd{socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)};
    if (!fd || send(fd.get(), &request, request.nlmsg_len, 0) < 0) {
        return errno;
    }
    struct {
        nlmsghdr head;
        nlmsgerr error;
        char request[256];
    } answer;
    const ssize_t got = recv(fd.get(), &answer, sizeof(answer), 0);
    if (got < 0) {
        return errno;
    }
    const auto least = static_cast<ssize_t>(sizeof(answer.head) + sizeof(answer.error));
    return got < least || answer.head.nlmsg_type != NLMSG_ERROR ? EPROTO : -answer.error.error;
}

}  // namespace platform

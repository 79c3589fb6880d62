// SPDX-License-Identifier: MIT
// Questions to the kernel about one network interface.
#pragma once

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "handle.hpp"

namespace platform
{

/** One interface by name; errno tells why a question got no answer. */
class Interface
{
  public:
    explicit Interface(const char *name) : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const std::size_t length = name != nullptr ? strnlen(name, IFNAMSIZ) : 0;
        named_ = length > 0 && length < IFNAMSIZ;
        if (named_) {
            memcpy(request_.ifr_name, name, length);
        }
    }

    /** @param data  what the request's pointer is set to, for those that take one */
    bool ask(unsigned long what, void *data = nullptr)
    {
        if (!named_) {
            errno = EINVAL;
            return false;
        }
        if (data != nullptr) {
            request_.ifr_data = static_cast<char *>(data);
        }
        return socket_ && ioctl(socket_.get(), what, &request_) == 0;
    }

    const ifreq &answer() const { return request_; }

  private:
    Fd socket_;
    ifreq request_{};
    bool named_;
};

}  // namespace platform

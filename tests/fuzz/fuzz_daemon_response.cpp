// SPDX-License-Identifier: MIT
// What a daemon answers on its local socket: a length and a text, or anything else.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "fuzz/fuzz.hpp"
#include "prod_common_system.h"

namespace
{

constexpr const char *kSocket = "/var/run/fuzz.sock";
constexpr std::string_view kRequest = "status?";
constexpr int kTimeout = 5;  // never needed: the daemon closes

/** The daemon's listening socket, for as long as the program runs. */
int listen_once()
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, kSocket);
    unlink(kSocket);
    FUZZ_CHECK(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0);
    FUZZ_CHECK(listen(fd, 1) == 0);
    return fd;
}

/** Takes one request and answers it with the bytes. */
void serve(int listener, const std::string &answer)
{
    const int fd = accept(listener, nullptr, nullptr);
    FUZZ_CHECK(fd >= 0);
    char request[sizeof(std::uint32_t) + kRequest.size()];
    FUZZ_CHECK(recv(fd, request, sizeof(request), MSG_WAITALL) == ssize_t{sizeof(request)});
    FUZZ_CHECK(memcmp(request + sizeof(std::uint32_t), kRequest.data(), kRequest.size()) == 0);
    send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
    close(fd);
}

void check(int listener, const std::string &answer, std::size_t room)
{
    std::uint32_t length = 0;
    memcpy(&length, answer.data(), std::min(answer.size(), sizeof(length)));
    const bool sound = answer.size() >= sizeof(length) && length < PROD_RESPONSE_SIZE &&
                       answer.size() - sizeof(length) >= length;
    std::string expected(room, '#');
    if (sound) {
        const std::string body = answer.substr(sizeof(length), length).c_str();
        expected = body.substr(0, room);
        expected.resize(room, '\0');
    }

    auto *const response = static_cast<char *>(malloc(room));
    memset(response, '#', room);
    std::thread daemon{serve, listener, std::cref(answer)};
    const int result = send_and_recv_from_program(kSocket, kRequest.data(), response,
                                                  static_cast<int>(room), kTimeout);
    daemon.join();
    FUZZ_CHECK(result == (sound ? 0 : -1));
    FUZZ_CHECK(memcmp(response, expected.data(), room) == 0);
    free(response);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const int listener = listen_once();
    // More than the largest response, and still one piece on the way.
    const std::string answer{reinterpret_cast<const char *>(data),
                             std::min<std::size_t>(size, 1024)};
    check(listener, answer, 16);
    check(listener, answer, PROD_RESPONSE_SIZE + 100);
    return 0;
}

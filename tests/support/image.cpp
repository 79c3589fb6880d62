// SPDX-License-Identifier: MIT
#include "support/image.hpp"

#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>

#include "support/files.hpp"

namespace test
{

std::string firmware_image(const std::string &contents, const std::string &name,
                           const std::string &type)
{
    char folder[] = "/tmp/mkimage.XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        abort();
    }
    const std::string data = std::string{folder} + "/data";
    const std::string image = std::string{folder} + "/image";
    write_text(data, contents);
    const pid_t child = fork();
    if (child == 0) {
        freopen("/dev/null", "w", stdout);
        execl(MKIMAGE, MKIMAGE, "-A", "arm", "-O", "linux", "-T", type.c_str(), "-C", "none", "-n",
              name.c_str(), "-d", data.c_str(), image.c_str(), nullptr);
        _exit(127);
    }
    int status = -1;
    if (waitpid(child, &status, 0) != child || status != 0) {
        fprintf(stderr, "mkimage failed: %d\n", status);
        abort();
    }
    std::string bytes = read_text(image);
    remove_all(folder);
    return bytes;
}

void put_number(std::string &image, std::size_t at, unsigned long number)
{
    for (std::size_t i = 0; i < 4; ++i) {
        image[at + i] = static_cast<char>(number >> (24 - 8 * i) & 0xff);
    }
}

std::string sealed(std::string image)
{
    put_number(image, kImageHeaderCrc, 0);
    put_number(image, kImageHeaderCrc,
               crc32(0, reinterpret_cast<const Bytef *>(image.data()), kImageHeaderSize));
    return image;
}

std::string noise(std::size_t size)
{
    std::string bytes(size, '\0');
    unsigned int state = 1;
    for (char &c : bytes) {
        state = state * 1103515245 + 12345;
        c = static_cast<char>(state >> 16);
    }
    return bytes;
}

}  // namespace test

// SPDX-License-Identifier: MIT
// Firmware images, made by mkimage, for programs linked with test_image.
#pragma once

#include <string>

namespace test
{

/** Offsets in the header of an image, which has 64 bytes. */
enum ImageField : std::size_t {
    kImageHeaderCrc = 4,
    kImageDataSize = 12,
    kImageDataCrc = 24,
    kImageType = 30,
    kImageName = 32,
    kImageHeaderSize = 64
};

/** The name of an image that the virtual device takes. */
inline constexpr const char *kImageForThisBoard = "virtual-router 1.0.0";

/** The file of a board that takes them, and has its flash in /tmp/flash. */
inline constexpr const char *kBoardWithFlash =
    R"({"model": "virtual-router", "firmware": {"partition": "/tmp/flash", "size": 1000000}})";

/**
 * An image as the firmware's own build makes them.
 * @param type  mkimage's word: "kernel" is type 2, "multi" type 4
 */
std::string firmware_image(const std::string &contents,
                           const std::string &name = kImageForThisBoard,
                           const std::string &type = "kernel");

/** Puts a big-endian number into a header. */
void put_number(std::string &image, std::size_t at, unsigned long number);

/** Gives a changed header a checksum that matches again. */
std::string sealed(std::string image);

/** Contents of that many bytes that no error hides in. */
std::string noise(std::size_t size);

}  // namespace test

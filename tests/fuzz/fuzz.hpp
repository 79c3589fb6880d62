// SPDX-License-Identifier: MIT
// What every fuzz target is written with. Input that breaks a promise ends the program, as a
// sanitizer's finding does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/** Ends the program when a promise is broken. */
#define FUZZ_CHECK(promise)                                                               \
    do {                                                                                  \
        if (!(promise)) {                                                                 \
            fprintf(stderr, "%s:%d: broken promise: %s\n", __FILE__, __LINE__, #promise); \
            abort();                                                                      \
        }                                                                                 \
    } while (0)

namespace fuzz
{

/** Writes a whole file that the code under test reads. */
inline void write_file(const char *path, const std::uint8_t *data, std::size_t size)
{
    FILE *const file = fopen(path, "we");
    FUZZ_CHECK(file != nullptr);
    FUZZ_CHECK(size == 0 || fwrite(data, 1, size, file) == size);
    FUZZ_CHECK(fclose(file) == 0);
}

/** Takes a text from the front, up to its end mark or the end of all. */
inline std::string take(std::string_view &rest, char end = '\0')
{
    const std::string_view text = rest.substr(0, rest.find(end));
    rest.remove_prefix(text.size() < rest.size() ? text.size() + 1 : text.size());
    return std::string{text};
}

using Block = std::unique_ptr<char, decltype(&free)>;

/** A block of exactly that size, so that a sanitizer sees the byte behind it. */
inline Block block(std::size_t size)
{
    Block out{static_cast<char *>(malloc(size)), &free};
    FUZZ_CHECK(out != nullptr);
    return out;
}

}  // namespace fuzz

// SPDX-License-Identifier: MIT
// What every fuzz target is written with. Input that breaks a promise ends the program, as a
// sanitizer's finding does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

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
    FUZZ_CHECK(fwrite(data, 1, size, file) == size);
    FUZZ_CHECK(fclose(file) == 0);
}

}  // namespace fuzz

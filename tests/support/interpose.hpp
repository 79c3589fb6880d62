// SPDX-License-Identifier: MIT
// For functions of a test program that stand in front of those of a library.
#pragma once

#include <dlfcn.h>

/**
 * The symbol of a C library call that takes or tells file offsets or sizes. Where a long is too
 * short for them the headers turn the call's name into this one.
 */
#ifdef _FILE_OFFSET_BITS
#define WIDE(name) name "64"
#else
#define WIDE(name) name
#endif

namespace test
{

/**
 * The function that @p own stands in front of, to pass calls on to. The thread sanitizer calls some
 * of them before it is ready for anything else, so this is not watched.
 */
template <typename Function>
__attribute__((no_sanitize("thread"))) Function *next([[maybe_unused]] Function *own,
                                                      const char *symbol)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, symbol));
}

}  // namespace test

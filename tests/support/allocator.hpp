// SPDX-License-Identifier: MIT
// The allocator behind a test program's own malloc() and calloc(): the sanitizer's where there is
// one, since what it did not allocate it cannot free.
#pragma once

#include <cstddef>

extern "C" {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
void *__interceptor_malloc(std::size_t size);
void *__interceptor_calloc(std::size_t count, std::size_t size);
#else
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
#endif
}

namespace test
{

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr auto real_malloc = __interceptor_malloc;
inline constexpr auto real_calloc = __interceptor_calloc;
#else
inline constexpr auto real_malloc = __libc_malloc;
inline constexpr auto real_calloc = __libc_calloc;
#endif

}  // namespace test

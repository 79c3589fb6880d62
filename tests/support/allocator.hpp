// SPDX-License-Identifier: MIT
// The process's allocator under a test's control: what stands behind a test program's own malloc(),
// and, for programs linked with test_allocator, allocations that fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

// The sanitizer's where there is one, since what it did not allocate it cannot free.
extern "C" {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
void *__interceptor_malloc(std::size_t size);
void *__interceptor_calloc(std::size_t count, std::size_t size);
void *__interceptor_realloc(void *block, std::size_t size);
#else
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
#endif
}

namespace test
{

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr auto real_malloc = __interceptor_malloc;
inline constexpr auto real_calloc = __interceptor_calloc;
inline constexpr auto real_realloc = __interceptor_realloc;
#else
inline constexpr auto real_malloc = __libc_malloc;
inline constexpr auto real_calloc = __libc_calloc;
inline constexpr auto real_realloc = __libc_realloc;
#endif

/** Frees a text that was handed to the caller; what it was, "(none)" for none. */
inline std::string taken(char *text)
{
    const std::string copy = text != nullptr ? text : "(none)";
    free(text);
    return copy;
}

// The thread sanitizer allocates before a thread has a state of its own, so that nothing can stand
// in front of its allocator.
#ifndef __SANITIZE_THREAD__
#define OWN_ALLOCATOR

/** While it lives, allocations of that many bytes fail. */
class WithoutMemory
{
  public:
    explicit WithoutMemory(std::size_t size) : WithoutMemory(size, size) {}
    WithoutMemory(std::size_t least, std::size_t most);
    ~WithoutMemory();
    WithoutMemory(const WithoutMemory &) = delete;
    WithoutMemory &operator=(const WithoutMemory &) = delete;
};
#endif

}  // namespace test

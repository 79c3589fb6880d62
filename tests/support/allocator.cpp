// SPDX-License-Identifier: MIT
#include "support/allocator.hpp"

#include <cerrno>
#include <cstdlib>

#ifdef OWN_ALLOCATOR

// The address sanitizer allocates before its own state is there to be looked at.
#define AT_ANY_TIME __attribute__((no_sanitize("address")))

namespace
{

std::size_t least_refused = SIZE_MAX;
std::size_t most_refused = 0;

AT_ANY_TIME bool refuses(std::size_t size)
{
    const bool refused = size >= least_refused && size <= most_refused;
    if (refused) {
        errno = ENOMEM;
    }
    return refused;
}

}  // namespace

extern "C" {

AT_ANY_TIME void *malloc(std::size_t size)
{
    return refuses(size) ? nullptr : test::real_malloc(size);
}

AT_ANY_TIME void *calloc(std::size_t count, std::size_t size)
{
    return refuses(count * size) ? nullptr : test::real_calloc(count, size);
}

AT_ANY_TIME void *realloc(void *block, std::size_t size)
{
    return refuses(size) ? nullptr : test::real_realloc(block, size);
}
}

namespace test
{

WithoutMemory::WithoutMemory(std::size_t least, std::size_t most)
{
    least_refused = least;
    most_refused = most;
}

WithoutMemory::~WithoutMemory()
{
    least_refused = SIZE_MAX;
    most_refused = 0;
}

}  // namespace test

#endif

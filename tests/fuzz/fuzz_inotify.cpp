// SPDX-License-Identifier: MIT
// What a read of an inotify descriptor brings: events may stick out of it and names need no NUL but
// the one behind the buffer.
#include <cstring>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "internal/inotify.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::vector<char> buffer(data, data + size);
    buffer.push_back('\0');
    prod::InotifyEvents events{buffer.data(), size};
    std::size_t least = 0;  // bytes that the events so far must have taken
    for (prod::InotifyEvent event; events.next(event);) {
        least += sizeof(inotify_event);
        FUZZ_CHECK(least <= size);
        const std::size_t length = strlen(event.name);  // a sanitizer sees a name without an end
        const bool inside =
            event.name >= buffer.data() && event.name + length <= buffer.data() + size;
        FUZZ_CHECK(length == 0 || inside);
    }
    return 0;
}

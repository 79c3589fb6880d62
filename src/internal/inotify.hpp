// SPDX-License-Identifier: MIT
// The events that one read of an inotify descriptor brings.
#pragma once

#include <sys/inotify.h>

#include <cstddef>
#include <cstring>

namespace prod
{

/** One event; its name is empty for the watched path itself. */
struct InotifyEvent {
    int wd;
    const char *name;
};

/** Walks the events in a buffer; one that sticks out of what was read ends the walk. */
class InotifyEvents
{
  public:
    /** @param begin  what was read, with a NUL behind it */
    InotifyEvents(const char *begin, std::size_t size) : at_(begin), left_(size) {}

    bool next(InotifyEvent &event)
    {
        inotify_event header;
        if (left_ < sizeof(header)) {
            return false;
        }
        memcpy(&header, at_, sizeof(header));
        if (header.len > left_ - sizeof(header)) {
            return false;
        }
        event = {header.wd, header.len > 0 ? at_ + sizeof(header) : ""};
        at_ += sizeof(header) + header.len;
        left_ -= sizeof(header) + header.len;
        return true;
    }

  private:
    const char *at_;
    std::size_t left_;
};

}  // namespace prod

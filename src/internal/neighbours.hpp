// SPDX-License-Identifier: MIT
// The reader of the kernel's neighbour table.
#pragma once

#include <algorithm>

#include "internal/line_reader.hpp"
#include "internal/net.hpp"

namespace prod
{

/** One line of the table; what a line lacks is empty or 0. */
struct Neighbour {
    int fields = 0;  // how many of address, flags and MAC the line has, in this order
    char ip[kIpv4TextSize] = {};
    unsigned int flags = 0;
    char mac[kMacTextSize] = {};
    char device[IFNAMSIZ] = {};

    bool whole() const { return fields == 3; }
    /** Whether the kernel knows the neighbour's MAC; it does not while the flags are 0. */
    bool complete() const { return whole() && flags != 0; }
};

class NeighbourTable
{
  public:
    NeighbourTable() { reader_.next(); }  // the heading

    /** Whether the table could be opened; errno tells why not. */
    bool is_open() const { return reader_.is_open(); }

    /** The next entry, or nullptr at the end. It stays until the next call. */
    const Neighbour *next()
    {
        const char *const line = reader_.next();
        if (line == nullptr) {
            return nullptr;
        }
        entry_ = {};
        // Columns: address, hardware type, flags, MAC, mask, device. A blank line gives EOF.
        const int read = sscanf(line, "%15s %*s %x %17s %*s %15s", entry_.ip, &entry_.flags,
                                entry_.mac, entry_.device);
        entry_.fields = std::clamp(read, 0, 3);
        return &entry_;
    }

  private:
    LineReader<255> reader_{"/proc/net/arp"};
    Neighbour entry_;
};

}  // namespace prod

// SPDX-License-Identifier: MIT
// What the units that deal with wireless interfaces share.
#pragma once

#include "internal/text.hpp"
#include "platform/cfm.h"
#include "platform/wifi.h"

namespace prod
{

inline constexpr std::size_t kIfNameSize = 16;

/** The system's interface name of a BSS, empty when the driver knows none. */
class OsIfName
{
  public:
    /** @param config_name  the BSS's own in the configuration: "wlan0.3" */
    explicit OsIfName(const char *config_name)
    {
        text_[0] = '\0';
        pav_wifi_get_osifname(config_name, text_);
        text_[kIfNameSize - 1] = '\0';
    }
    const char *c_str() const { return text_; }

  private:
    // Wider than any interface name: a driver is trusted with no less.
    char text_[CFM_VALUE_SIZE];
};

}  // namespace prod

// SPDX-License-Identifier: MIT
// The lists of the status pages: routes, UPnP mappings, DHCP clients, neighbours, log entries.
#include "prod_common_file.h"

#include "internal/handle.hpp"
#include "internal/line_reader.hpp"
#include "internal/log.hpp"
#include "internal/trace.hpp"

using namespace prod;

namespace
{

// ---- routes and UPnP mappings ----------------------------------------------------------------

// ---- DHCP clients and neighbours -------------------------------------------------------------

// ---- system log ------------------------------------------------------------------------------

}  // namespace

// ---- routes and UPnP mappings ----------------------------------------------------------------

// ---- DHCP clients and neighbours -------------------------------------------------------------

// ---- system log ------------------------------------------------------------------------------

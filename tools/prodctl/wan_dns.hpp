// SPDX-License-Identifier: MIT
// Name servers: the rows that the group of the WANs takes from here.
#pragma once

#include <initializer_list>

#include "command.hpp"

namespace prodctl
{

/** Adds the array "dns" with those servers that are set. */
void add_servers(cJSON *object, std::initializer_list<const char *> servers);

int run_dns(const Call &call, cJSON *answer);
void show_dns(const cJSON *answer, Page &page);
extern const Command kWanDnsCommands[4];

int run_resolve(const Call &call, cJSON *answer);
void show_resolve(const cJSON *answer, Page &page);
extern const Option kResolveOptions[2];

}  // namespace prodctl

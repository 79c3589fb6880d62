// SPDX-License-Identifier: MIT
// The groups of commands, and the parts of their answers that the status page puts together.
#pragma once

#include "command.hpp"

namespace prodctl
{

extern const Command kStatusCommand;
extern const Command kDebugGroup;
extern const Command kConfigGroup;
extern const Command kWanGroup;
extern const Command kLanGroup;
extern const Command kBridgeGroup;
extern const Command kWifiGroup;
extern const Command kLedGroup;
extern const Command kPortCommand;
extern const Command kSystemGroup;
extern const Command kCheckGroup;
extern const Command kStrGroup;

// Commands of the group wan that have a source of their own.
int run_wan_detect(const Call &call, cJSON *answer);
void show_wan_detect(const cJSON *answer, Page &page);

// Each adds one member to an answer and shows it again.
int add_modules(const Call &call, cJSON *answer);
void show_modules(const cJSON *answer, Page &page);
int add_wans(const Call &call, cJSON *answer, int first, int last);
void show_wans(const cJSON *answer, Page &page);
void add_ports(cJSON *answer);
void show_ports(const cJSON *answer, Page &page);
int add_neighbours(const Call &call, cJSON *answer);
void show_neighbours(const cJSON *answer, Page &page);
void add_system(cJSON *answer);
void show_system(const cJSON *answer, Page &page);

}  // namespace prodctl

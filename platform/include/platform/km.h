/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Kernel-module control: what the firmware asks of its traffic modules.
 */
#ifndef PLATFORM_KM_H
#define PLATFORM_KM_H

#include <cjson/cJSON.h>

#include "platform/types.h"

PLATFORM_BEGIN

/**
 * Adds the current rates of every WAN to @p object as
 * {"WanFlow":[{"WanId":n,"WanRate":{"UpRate":n,"DownRate":n}}, ...]}, rates in bytes a second. A
 * WAN without an interface has rates of 0. An earlier "WanFlow" in the object is replaced.
 *
 * The rates are those since an earlier call of any process, at least 0.1 s and at most 10 s ago;
 * when there was none, the call waits 0.15 s to take its own. Any thread may call it.
 *
 * @param object  a JSON object of the caller's, who deletes it
 * @return 0 on success, non-zero when the rates cannot be had; nothing is then added
 */
PLATFORM_API int km_wan_statistic_get_wan_flow(cJSON *object);

PLATFORM_END

#endif

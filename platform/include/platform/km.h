/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Kernel-module control: what the firmware asks of its traffic modules. Any thread may call any of
 * these.
 */
#ifndef PLATFORM_KM_H
#define PLATFORM_KM_H

#include <cjson/cJSON.h>

#include "platform/types.h"

/**
 * The hosts directory that the default port keeps its redirections in, one file per domain under
 * the domain's name; the LAN's name server reads it.
 */
#define KM_DNS_REDIRECT_DIR "/var/run/dns_redirect"

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

/**
 * Makes the LAN's name server answer for a domain with one address, until the rule is removed or
 * the device restarts. A rule for the same domain is replaced. Answers that hosts have got before
 * stay with them as long as those allow.
 *
 * @param rule  {"Domain": name, "Ip": address}. The name has letters, digits, "-" and "_" in labels
 *              of at most 63 characters, 253 in all, and may end in a dot; case does not count. The
 *              address is an IPv4 or IPv6 one. The object stays the caller's.
 * @return 0 on success, non-zero, and no rule changed, for anything else and when the rule cannot
 *         be stored
 */
PLATFORM_API int km_dns_redirect_add_rule(cJSON *rule);

/**
 * Takes a redirection back.
 * @param rule  {"Domain": name}; the object stays the caller's
 * @return 0 on success, non-zero when there is no such rule
 */
PLATFORM_API int km_dns_redirect_del_rule(cJSON *rule);

PLATFORM_END

#endif

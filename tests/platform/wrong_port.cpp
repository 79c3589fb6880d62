// SPDX-License-Identifier: MIT
// The default port with some functions put wrong, each in a way that a port can be wrong in. Linked
// in front of the port's own objects; script/check-port must name these functions and no others.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "platform/address.h"
#include "platform/factory.h"
#include "platform/hardware.h"
#include "platform/km.h"
#include "platform/process.h"
#include "platform/text.h"
#include "platform/wifi.h"

extern "C" {

/** A result that is always the same. */
int check_ip_is_same_net(const char *, const char *, const char *, const char *)
{
    return 1;
}

/** More bytes than the caller has. */
int pav_wifi_get_osifname(const char *, char *os_ifname)
{
    if (os_ifname != nullptr) {
        memset(os_ifname, 0, 32);
    }
    return -1;
}

/** Text that the next call overwrites. */
char *iof_eth_name_get(eth_idx_t index)
{
    static char name[16];
    if (index < LAN_1 || index > PORT_CPU2) {
        return nullptr;
    }
    snprintf(name, sizeof(name), "eth%d", static_cast<int>(index));
    return name;
}

/** Not wrong: a board without an LED. */
int iof_gpio_get(gpio_id_t, unsigned int *)
{
    return -1;
}

/** Takes what is the caller's. */
int km_dns_redirect_del_rule(cJSON *rule)
{
    cJSON_DeleteItemFromObject(rule, "Ip");
    return 0;
}

/** Never ends for a text without anything to trim. */
char *string_str_trim(char *text)
{
    while (text != nullptr && strlen(text) > 0 && text[0] != ' ') {
        usleep(1000);
    }
    return text;
}

/** A descriptor that stays open. */
int do_file_cmd(const char *path, int mode, const char *format, ...)
{
    const int fd =
        open(path, O_WRONLY | O_CREAT | O_CLOEXEC | (mode == 0 ? O_TRUNC : O_APPEND), 0644);
    if (fd < 0) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int length = vdprintf(fd, format, args);
    va_end(args);
    return length < 0 ? -1 : 0;
}

/** A missing setting leaves the buffer as it is. */
int ApmibGetValue(const char *, char *)
{
    return 0;
}
}

// SPDX-License-Identifier: MIT
// The board file, through everything of the default port that only looks at it.
#include <net/if.h>

#include <cstring>
#include <initializer_list>

#include "fuzz/fuzz.hpp"
#include "platform/factory.h"
#include "platform/hardware.h"
#include "platform/km.h"
#include "platform/wifi.h"

/** Rates of a moment without its wait. */
extern "C" int nanosleep(const timespec *, timespec *)
{
    return 0;
}

namespace
{

void ask_ports()
{
    for (int port = -1; port <= 5; ++port) {
        port_status status{7, 7, 7, 7};
        if (iof_port_status_get(port, &status) == 0) {
            FUZZ_CHECK(status.link <= 1 && status.duplex <= 1 && status.nway <= 1);
        } else {
            FUZZ_CHECK(status.link == 7 && status.speed == 7 && status.duplex == 7);
        }
    }
    FUZZ_CHECK(iof_vlan_set(1, 0, 0) == 0);  // nothing is in a bridge here
}

void ask_factory_settings()
{
    auto *const value = static_cast<char *>(malloc(FACTORY_VALUE_SIZE));
    for (const char *const name : {"HW_NIC0_ADDR", "QX_ATE_SN", ""}) {
        memset(value, '#', FACTORY_VALUE_SIZE);
        const bool found = ApmibGetValue(name, value) != 0;
        const std::size_t length = strnlen(value, FACTORY_VALUE_SIZE);
        FUZZ_CHECK(length < FACTORY_VALUE_SIZE && found == (length > 0));
        FUZZ_CHECK(strcmp(name, "HW_NIC0_ADDR") != 0 || length == 0 || length == 12);
    }
    free(value);
}

void ask_names()
{
    for (int index = ETH_NM_INVALID; index <= IPTV_MAX; ++index) {
        const char *const name = iof_eth_name_get(static_cast<eth_idx_t>(index));
        FUZZ_CHECK(name == nullptr || (name[0] != '\0' && strnlen(name, IFNAMSIZ) < IFNAMSIZ));
    }
}

void ask_leds()
{
    for (int id = LED_SYS; id <= BTN_RST; ++id) {
        unsigned int state = 99;
        if (iof_gpio_get(static_cast<gpio_id_t>(id), &state) == 0) {
            FUZZ_CHECK(state >= LED_ON && state <= LED_NORMAL);
        } else {
            FUZZ_CHECK(state == 99);
        }
    }
}

void ask_radios()
{
    auto *const name = static_cast<char *>(malloc(IFNAMSIZ));
    for (const char *const bss : {"wlan0.0", "wlan1.0", ""}) {
        memset(name, '#', IFNAMSIZ);
        const int result = pav_wifi_get_osifname(bss, name);
        FUZZ_CHECK(strnlen(name, IFNAMSIZ) < IFNAMSIZ);
        FUZZ_CHECK(result == 0 ? name[0] != '\0' : result == -1 && name[0] == '\0');
        station_info_t station;
        const int count = pav_wifi_get_clientlist(name, &station, 1);
        FUZZ_CHECK(count == 0 || count == 1);
    }
    free(name);
}

void ask_rates()
{
    cJSON *const object = cJSON_CreateObject();
    const int result = km_wan_statistic_get_wan_flow(object);
    const cJSON *const flows = cJSON_GetObjectItemCaseSensitive(object, "WanFlow");
    FUZZ_CHECK((result == 0) == (flows != nullptr));
    const cJSON *flow;
    cJSON_ArrayForEach(flow, flows)
    {
        FUZZ_CHECK(cJSON_GetObjectItemCaseSensitive(flow, "WanId")->valueint > 0);
    }
    cJSON_Delete(object);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file("/etc/board.json", data, size);
    ask_factory_settings();
    ask_ports();
    ask_names();
    ask_leds();
    ask_radios();
    ask_rates();
    return 0;
}

// SPDX-License-Identifier: MIT
// A hostile value in every configuration key that is read to answer a question.
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "json.h"
#include "prod_common_cfm.h"
#include "prod_common_wifi.h"
#include "support/config.hpp"

extern "C" int pav_wifi_get_osifname(const char *, char *os_ifname)
{
    strcpy(os_ifname, "wl");
    return 0;
}

extern "C" int pav_wifi_check_downup(const char *)
{
    return 0;
}

namespace
{

void read_cfm(const std::string &value)
{
    char *const buffer = static_cast<char *>(calloc(CFM_VALUE_SIZE, 1));
    FUZZ_CHECK(prod_cfm_get_val("key", buffer) == 1 && value == buffer);
    FUZZ_CHECK(set_if_changed("key", value.c_str(), buffer) == 0);
    free(buffer);
    FUZZ_CHECK(prod_cfm_set_val("key", value.c_str()) == 0);
    FUZZ_CHECK(set_fmt_val_if_changed("%s", value.c_str(), "key") == 0);
    FUZZ_CHECK(__wrap_SetValue("key", value.c_str()) == 1);
    prod_cfm_get_int_val("key");
    prod_cfm_get_uint_val("key");
    prod_cfm_get_double_val("key");
    FUZZ_CHECK(test::config().empty());
}

void read_json()
{
    cJSON *const object = cJSON_CreateObject();
    cJSON_AddMibStringToObject(object, "a", "key", "");
    cJSON_AddMibIntToObject(object, "b", "key", 0);
    cJSON_AddMibBoolToObject(object, "c", "key", 0);
    cJSON_AddFormatMibStringToObject(object, "d", "", "key");
    cJSON_AddFormatMibBoolToObject(object, "e", 0, "key");
    cJSON_AddFormatMibNumToObject(object, "f", 0, "key");
    cJSON_AddFormatMibDoubleToObject(object, "g", 0, "key");
    FUZZ_CHECK(cJSON_GetArraySize(object) == 7);
    char *const text = cJSON_PrintUnformatted(object);
    FUZZ_CHECK(text != nullptr);
    cJSON_free(text);
    cJSON_Delete(object);
}

void read_wifi(const std::string &value)
{
    char radio[6] = "";
    wifi_get_mib_radio(2, radio);
    FUZZ_CHECK(strcmp(radio, value == "2" ? "wlan0" : "wlan1") == 0);
    wifi_get_bss_int_val(5, 0, "name");
    wifi_get_bss_double_val(5, 0, "name");
    wifi_get_radio_int_val(2, "name");
    const char *const mode = get_wifi_workmode();
    FUZZ_CHECK(value == "apclient" || value == "wisp" ? value == mode : strcmp(mode, "ap") == 0);
    wifi_get_bss_enable("wlan");
    FUZZ_CHECK(get_wifi_status() == 0);
    char *const band = static_cast<char *>(calloc(16, 1));
    check_same_ssid(value.c_str(), band);
    FUZZ_CHECK(strnlen(band, 16) < 16);
    free(band);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // As the store delivers it: a text of at most 2307 characters.
    std::string value{reinterpret_cast<const char *>(data), size};
    value = value.substr(0, CFM_VALUE_SIZE - 1).c_str();
    const test::FreshConfig fresh;
    const test::EveryKeyReads everywhere{value};
    read_cfm(value);
    read_json();
    read_wifi(value);
    return 0;
}

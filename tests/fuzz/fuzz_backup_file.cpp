// SPDX-License-Identifier: MIT
// An uploaded backup file: as it comes, and with a checksum that fits it.
#include <sys/stat.h>
#include <zlib.h>

#include <string>

#include "fuzz/fuzz.hpp"
#include "platform/database.h"
#include "platform/process.h"
#include "prod_common_cfm.h"
#include "prod_common_systool.h"
#include "support/files.hpp"

namespace
{

int loads;    // of a database
int uploads;  // of policies, then of settings

constexpr const char *kFiles[] = {"/webroot/default.cfg",   "/webroot/default_url.cfg",
                                  "/etc/wl_policy.cfg",     "/etc/rf_policy.cfg",
                                  "/etc/reboot_policy.cfg", "/etc/wl_deploy_policy.cfg",
                                  "/etc/qvlan_policy.cfg"};
constexpr const char *kMarkers[] = {
    "##the url configure end##",      "##the wl configure end##",
    "##the rf configure end##",       "##the reboot configure end##",
    "##the wldeploy configure end##", "##the qvlan configure end##"};
constexpr const char *kPublic = "##the public configure end##";

}  // namespace

// What comes behind the splitting is not looked for here.
extern "C" {
int db_backup_load(const char *, const char *)
{
    ++loads;
    return 1;
}
PAV_RET upload_ac_policy(void)
{
    ++uploads;
    return PAV_RET_OK;
}
int doSystemCmd(const char *, ...)
{
    ++uploads;
    return 0;
}
unsigned int sleep(unsigned int)
{
    return 0;
}
}

namespace
{

int load(const std::string &file)
{
    loads = 0;
    uploads = 0;
    for (const char *const path : kFiles) {
        test::remove_all(path);
    }
    return prod_systool_cfg_upload(file.c_str(), static_cast<long>(file.size()));
}

/** What the files must hold, by another way than the library's. */
void check_split(const std::string &body)
{
    std::size_t from = body.find(kPublic);
    const bool has_public = from != std::string::npos;
    const std::string settings = test::read_text(kFiles[0]);
    FUZZ_CHECK(settings == (has_public ? body.substr(0, from) : "") + "wans.wanwebaddr=\n");
    from = has_public ? from + 28 : 0;
    std::size_t start = body.find(kMarkers[0], from);
    FUZZ_CHECK(start != std::string::npos);
    FUZZ_CHECK(test::read_text(kFiles[1]) == (has_public ? body.substr(from, start - from) : ""));
    for (int i = 1; i < 6; ++i) {
        const std::size_t end = body.find(kMarkers[i], start + std::string{kMarkers[i - 1]}.size());
        FUZZ_CHECK(end != std::string::npos);
        FUZZ_CHECK(test::read_text(kFiles[i + 1]) == body.substr(start, end - start));
        start = end;
    }
}

void check(const std::string &file, const std::string &body)
{
    const int rc = load(file);
    switch (rc) {
        case CFG_UPGRADE_OK:
            FUZZ_CHECK(loads == 2 && uploads == 2);
            check_split(body);
            break;
        case CFG_UPLOAD_ERR:
            FUZZ_CHECK(loads == 2 && uploads == 0);
            break;
        default:
            FUZZ_CHECK(rc == CFG_FILE_INVALID && loads == 0 && uploads == 0);
            FUZZ_CHECK(!test::exists(kFiles[0]) && !test::exists(kFiles[2]));
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    mkdir("/webroot", 0755);
    const std::string text{reinterpret_cast<const char *>(data), size};
    check(text, text.substr(0, text.find("crc=")));

    std::string body = text.substr(0, text.find("crc="));
    body = body.substr(0, body.find('\0'));
    const auto crc =
        crc32(0, reinterpret_cast<const Bytef *>(body.data()), static_cast<uInt>(body.size()));
    const std::string whole = body + "crc=" + std::to_string(crc) + "\n";
    FUZZ_CHECK(load(whole) != CFG_FILE_INVALID);
    check(whole, body);
    return 0;
}

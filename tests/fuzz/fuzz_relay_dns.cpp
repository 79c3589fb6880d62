// SPDX-License-Identifier: MIT
// What the DNS servers for the relay are gathered from: a VPN's resolver file, a WAN's file, an
// operator's settings. Whatever they hold, the relay's command line gets servers only.
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "platform/address.h"
#include "platform/hardware.h"
#include "prod_common_ifaddrs.h"
#include "support/config.hpp"

extern "C" int iof_port_status_get(int, port_status *status)
{
    *status = {};
    status->link = 1;
    return 0;
}

extern "C" int ifaddrs_get_ifip(const char *, char *addr)
{
    strcpy(addr, "10.64.1.100");
    return 0;
}

namespace
{

constexpr const char *kVpnFile = "/etc/ppp/resolv.conf.wan0";
constexpr const char *kWanFile = "/etc/wan2.ini";

/** Takes one option off the front; the last one may be cut. */
bool take_option(std::string &text, bool may_be_cut)
{
    constexpr std::string_view kLead = " -s ";
    const std::size_t end = text.find(' ', std::min(kLead.size(), text.size()));
    const std::string server =
        text.size() > kLead.size() ? text.substr(kLead.size(), end - kLead.size()) : std::string{};
    const bool whole = end != std::string::npos && server.size() >= 7;
    if (!text.starts_with(kLead.substr(0, text.size())) || (!whole && !may_be_cut) ||
        server.find_first_not_of("0123456789ABCDEFabcdef.:%") != std::string::npos) {
        return false;
    }
    text.erase(0, whole ? end + 1 : text.size());
    return true;
}

void gather(int size)
{
    char *const buffer = static_cast<char *>(malloc(static_cast<std::size_t>(size)));
    getAllWanDns(buffer, size);
    std::string text = buffer;
    FUZZ_CHECK(text.size() < static_cast<std::size_t>(size));
    const bool is_full = text.size() + 1 == static_cast<std::size_t>(size);
    free(buffer);
    while (!text.empty()) {
        FUZZ_CHECK(take_option(text, is_full));
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool once = [] { return system("mkdir -p /etc/ppp") == 0; }();
    FUZZ_CHECK(once);
    fuzz::write_file(kVpnFile, data, size);
    fuzz::write_file(kWanFile, data, size);
    const test::FreshConfig fresh;
    test::config() = {{"sys.ports", "43210"},
                      {"pptp.cli.pptpEnable", "1"},
                      {"pptp.cli.pptppxy", "1"},
                      {"wan1.manual.dns.en", "1"}};
    for (const char *const key : {"wan1.manual.dns1", "wan1.manual.dns2"}) {
        const std::string value{reinterpret_cast<const char *>(data), size};
        test::config()[key] = value.substr(0, CFM_VALUE_SIZE - 1).c_str();
    }
    for (const int room : {1, 17, 64, 4096}) {
        gather(room);
    }

    // One option more, of any text.
    char small[40] = " -s 1.1.1.1 ";
    add_dns_to_buf(small, sizeof(small),
                   std::string{reinterpret_cast<const char *>(data), size}.c_str());
    FUZZ_CHECK(strnlen(small, sizeof(small)) < sizeof(small) &&
               strncmp(small, " -s 1.1.1.1 ", 12) == 0);
    return 0;
}

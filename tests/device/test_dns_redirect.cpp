// SPDX-License-Identifier: MIT
// DNS redirection on the booted device: what a LAN host resolves through the device's name server.
#include <gtest/gtest.h>

#include <string>

#include "prod_common_system.h"
#include "stories.hpp"

using story::eventually;
using story::must;

namespace
{

constexpr const char *kReal = "198.51.100.1";

/** Whether the laptop's name server answers for a name with this address, and no other. */
bool resolves(const std::string &name, const std::string &address)
{
    const std::string answer = story::run("lab exec lan1 nslookup " + name + " 2>&1").output;
    const std::size_t from = answer.find("\nName:");
    const std::string found = from != std::string::npos ? answer.substr(from) : "";
    return found.find("Address: " + address + "\n") != std::string::npos &&
           (address == kReal || found.find(kReal) == std::string::npos);
}

void comes_to_resolve(const std::string &name, const std::string &address)
{
    eventually(name + " is " + address, [&] { return resolves(name, address); });
}

TEST(DnsRedirect, ARuleChangesWhatAHostResolvesAndItsRemovalRestoresIt)
{
    comes_to_resolve("www.example.net", kReal);  // and is in the server's cache from now on
    must("prodctl dns-redirect add www.example.net 192.168.0.77");
    comes_to_resolve("www.example.net", "192.168.0.77");
    EXPECT_TRUE(resolves("WWW.Example.NET", "192.168.0.77"));
    comes_to_resolve("mail.example.net", kReal);
    must("prodctl dns-redirect del www.example.net");
    comes_to_resolve("www.example.net", kReal);
}

TEST(DnsRedirect, ADaemonReplacesItsRule)
{
    add_dns_redirect_rule("portal.example.net", "192.168.0.77");
    comes_to_resolve("portal.example.net", "192.168.0.77");
    add_dns_redirect_rule("portal.example.net", "192.168.0.78");
    comes_to_resolve("portal.example.net", "192.168.0.78");
    EXPECT_FALSE(resolves("portal.example.net", "192.168.0.77"));
    del_dns_redirect_rule("portal.example.net");
    comes_to_resolve("portal.example.net", kReal);
}

TEST(DnsRedirect, RulesOutliveTheNameServer)
{
    must("prodctl dns-redirect add www.example.net 192.168.0.77");
    must("lab server lan-dhcp stop && lab server lan-dhcp start");
    comes_to_resolve("www.example.net", "192.168.0.77");
    must("prodctl dns-redirect del www.example.net");
    comes_to_resolve("www.example.net", kReal);
}

TEST(DnsRedirect, NamesThatNobodyElseKnows)
{
    must("prodctl dns-redirect add router.home 192.168.0.1");
    comes_to_resolve("router.home", "192.168.0.1");
    must("prodctl dns-redirect del router.home");
    eventually("router.home is nobody", [] { return !resolves("router.home", "192.168.0.1"); });
}

}  // namespace

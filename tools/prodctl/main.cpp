// SPDX-License-Identifier: MIT
// prodctl: the common library from the command line.
#include "groups.hpp"

namespace
{

using namespace prodctl;

const Command kGroups[] = {
    kStatusCommand, kSystemGroup,      kFirmwareGroup, kWanGroup,     kLanGroup,   kBridgeGroup,
    kRouteCommand,  kUpnpCommand,      kIpv6Group,     kWifiGroup,    kMeshGroup,  kPortCommand,
    kLedGroup,      kDnsRedirectGroup, kUsbGroup,      kLogGroup,     kAuditGroup, kConfigGroup,
    kBackupGroup,   kPolicyGroup,      kDebugGroup,    kLockGroup,    kMqGroup,    kWatchCommand,
    kCheckGroup,    kStrGroup,         kEncodeCommand, kDecodeCommand};

const Command kRoot = {
    .name = "prodctl",
    .summary = "Shows and changes what the device's common library knows",
    .children = kGroups,
};

}  // namespace

int main(int argc, char **argv)
{
    Console console;
    if (console.stream() == nullptr) {
        fprintf(stderr, "prodctl: there is no standard output\n");
        return kNo;
    }
    const std::span<const char *const> words{argv, static_cast<std::size_t>(argc)};
    const int status = run(kRoot, words.subspan(argc > 0 ? 1 : 0), console);
    if (!console.flush()) {
        fprintf(stderr, "prodctl: cannot write to standard output\n");
        return kNo;
    }
    return status;
}

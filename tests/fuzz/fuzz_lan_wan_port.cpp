// SPDX-License-Identifier: MIT
// "/etc/lan_wan_port", which tells the VLANs of the ports.
#include "fuzz/fuzz.hpp"
#include "prod_common_wan.h"
#include "support/files.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    constexpr const char *kFile = "/etc/lan_wan_port";
    fuzz::write_file(kFile, data, size);
    for (int port = -1; port <= 9; ++port) {
        phyid_to_vid(port);
    }
    // A line in front of everything else is the one that counts.
    test::write_text(kFile, "port 7 vlan42\n" + test::read_text(kFile));
    FUZZ_CHECK(phyid_to_vid(7) == 42);
    return 0;
}

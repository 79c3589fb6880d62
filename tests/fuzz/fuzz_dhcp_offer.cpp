// SPDX-License-Identifier: MIT
// Answers to discovery-dhcp: an IPv4 packet as it comes from the line. The first byte tells whether
// its checksum counts and whether the checksums are made right, so that the search gets past them.
#include "dhcp_offer.hpp"

#include "fuzz/fuzz.hpp"

namespace
{

constexpr dhcp::Mac kMac = {0x02, 0, 0, 0x10, 0, 0x11};
constexpr std::uint32_t kXid = 0x01020304;

void store(std::uint8_t *at, unsigned int value)
{
    at[0] = static_cast<std::uint8_t>(value >> 8);
    at[1] = static_cast<std::uint8_t>(value);
}

/** Makes what an ordinary sender gets right so. */
void mend(std::vector<std::uint8_t> &packet)
{
    if (packet.size() < dhcp::kIpHeader) {
        return;
    }
    const std::size_t header =
        std::min(packet.size(), std::max<std::size_t>(std::size_t{4} * (packet[0] & 0xFU), 20));
    store(&packet[10], 0);
    store(&packet[10], dhcp::checksum(dhcp::sum_of(dhcp::Bytes{packet}.first(header))));
    if (packet.size() >= header + 28 + 44) {
        std::copy(kMac.begin(), kMac.end(), &packet[header + 8 + 28]);
        store(&packet[header + 12], kXid >> 16);
        store(&packet[header + 14], kXid & 0xFFFF);
        store(&packet[header + 6], 0);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const unsigned int how = size > 0 ? data[0] : 0;
    std::vector<std::uint8_t> packet{data + (size > 0 ? 1 : 0), data + size};
    if ((how & 1) != 0) {
        mend(packet);
    }
    const auto offer = dhcp::offer_in(packet, (how & 2) == 0, kXid, kMac);
    if (!offer) {
        return 0;
    }
    FUZZ_CHECK(packet.size() >= 20 + 8 + 240);
    FUZZ_CHECK(offer->ip.s_addr != 0);
    const std::string line = dhcp::line_of(*offer, kMac);
    FUZZ_CHECK(line.starts_with("servermac=\"02:00:00:10:00:11\" server=\""));
    std::size_t quotes = 0;
    for (const char c : line) {
        FUZZ_CHECK(c >= ' ' && c < 0x7F);
        quotes += c == '"' ? 1 : 0;
    }
    FUZZ_CHECK(quotes % 2 == 0 && quotes >= 6 && quotes <= 16);
    return 0;
}

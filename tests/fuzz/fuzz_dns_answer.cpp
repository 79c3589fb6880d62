// SPDX-License-Identifier: MIT
// The answer to a DNS query, as anybody may have sent it; the same bytes as a name to ask for.
#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "internal/dns_message.hpp"

namespace
{

using Bytes = std::span<const unsigned char>;

void read_addresses(Bytes answer)
{
    std::array<in_addr, 64> many;
    const std::size_t found = prod::parse_dns_answer(answer, many);
    FUZZ_CHECK(found <= many.size());
    FUZZ_CHECK(found == 0 || answer.size() >= prod::kDnsHeaderSize + found * 16);
    for (std::size_t room = 0; room <= 3; ++room) {
        std::array<in_addr, 3> few;
        const std::size_t taken = prod::parse_dns_answer(answer, std::span{few}.first(room));
        FUZZ_CHECK(taken == std::min(room, found));
        FUZZ_CHECK(memcmp(few.data(), many.data(), taken * sizeof(in_addr)) == 0);
    }
}

void read_names(Bytes answer)
{
    for (std::size_t at = 0; at < answer.size() + 2; ++at) {
        prod::DnsName name;
        std::size_t length = at % (name.size() + 2);
        const std::size_t start = std::min(length, name.size() - 1);
        prod::parse_dns_name(answer, at, name, length);
        FUZZ_CHECK(start <= length && length < name.size() && name[length] == '\0');
    }
}

/** A name that fits is asked for, and reads back as it was. */
void ask(const std::string &name)
{
    std::array<unsigned char, prod::kDnsMessageSize> query;
    const std::size_t size = prod::make_dns_query(name.c_str(), query);
    FUZZ_CHECK((size == 0) == (name.size() > 122));
    if (size == 0) {
        return;
    }
    FUZZ_CHECK(size == prod::kDnsHeaderSize + name.size() + 2 + 4);
    const bool has_empty_label = name.empty() || name.starts_with('.') || name.ends_with('.') ||
                                 name.find("..") != std::string::npos;
    prod::DnsName read;
    std::size_t length = 0;
    const bool whole =
        prod::parse_dns_name({query.data(), size}, prod::kDnsHeaderSize, read, length);
    FUZZ_CHECK(whole && (has_empty_label || name == read.data()));
    std::array<in_addr, 3> none;
    FUZZ_CHECK(prod::parse_dns_answer({query.data(), size}, none) == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const Bytes answer{data, std::min(size, prod::kDnsMessageSize)};
    read_addresses(answer);
    read_names(answer);
    ask(std::string{reinterpret_cast<const char *>(data), size}.c_str());
    return 0;
}

// SPDX-License-Identifier: MIT
// Reading DNS answers: the device's own client beside c-ares and the C library's parser, each on
// the same datagrams and to the same end, the IPv4 addresses in binary form.
#include <ares.h>
#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <benchmark/benchmark.h>
#include <netdb.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "internal/dns_message.hpp"

// ---- allocations ------------------------------------------------------------------------------

namespace
{

long allocations = 0;

}  // namespace

extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *malloc(std::size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

namespace
{

// ---- datagrams --------------------------------------------------------------------------------

constexpr std::size_t kMostAddresses = 32;
using Addresses = std::array<in_addr, kMostAddresses>;

std::string u16(std::size_t value)
{
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string label(const std::string &text)
{
    return static_cast<char>(text.size()) + text;
}

std::string record(unsigned int type, const std::string &owner, const std::string &data)
{
    return owner + u16(type) + u16(1) + u16(0) + u16(300) + u16(data.size()) + data;
}

std::string pointer_to(std::size_t offset)
{
    return u16(0xC000 | offset);
}

/** An answer with so many aliases in front of so many addresses, as a server compresses it. */
std::string answer(std::size_t aliases, std::size_t addresses)
{
    constexpr std::size_t kHeaderSize = 12;
    constexpr std::size_t kDomain = kHeaderSize + 4;  // behind "www"
    std::string text = u16(0xFF00) + u16(0x8180) + u16(1) + u16(aliases + addresses) + u16(0) +
                       u16(0) + label("www") + label("example") + label("net") + '\0' + u16(1) +
                       u16(1);
    std::size_t owner = kHeaderSize;
    for (std::size_t i = 0; i < aliases; ++i) {
        const std::size_t target = text.size() + 12;
        text +=
            record(5, pointer_to(owner), label("node" + std::to_string(i)) + pointer_to(kDomain));
        owner = target;
    }
    for (std::size_t i = 0; i < addresses; ++i) {
        const std::string address = {'\xC6', '\x33', '\x64', static_cast<char>(i + 1)};
        text += record(1, pointer_to(owner), address);
    }
    return text;
}

// ---- readers ----------------------------------------------------------------------------------

const unsigned char *bytes(const std::string &text)
{
    return reinterpret_cast<const unsigned char *>(text.data());
}

std::size_t with_library(const std::string &text, Addresses &out)
{
    return prod::parse_dns_answer({bytes(text), text.size()}, out);
}

std::size_t with_cares(const std::string &text, Addresses &out)
{
    std::array<ares_addrttl, kMostAddresses> found;
    int count = kMostAddresses;
    if (ares_parse_a_reply(bytes(text), static_cast<int>(text.size()), nullptr, found.data(),
                           &count) != ARES_SUCCESS) {
        return 0;
    }
    for (int i = 0; i < count; ++i) {
        out[static_cast<std::size_t>(i)] = found[static_cast<std::size_t>(i)].ipaddr;
    }
    return static_cast<std::size_t>(count);
}

std::size_t with_libc(const std::string &text, Addresses &out)
{
    ns_msg message;
    if (ns_initparse(bytes(text), static_cast<int>(text.size()), &message) != 0) {
        return 0;
    }
    std::size_t found = 0;
    const int count = ns_msg_count(message, ns_s_an);
    for (int i = 0; i < count && found < out.size(); ++i) {
        ns_rr rr;
        if (ns_parserr(&message, ns_s_an, i, &rr) != 0) {
            break;
        }
        if (ns_rr_type(rr) == ns_t_a && ns_rr_rdlen(rr) == sizeof(in_addr)) {
            memcpy(&out[found++], ns_rr_rdata(rr), sizeof(in_addr));
        }
    }
    return found;
}

using Reader = std::size_t(const std::string &, Addresses &);

void read_answer(benchmark::State &state, Reader *reader, std::size_t aliases,
                 std::size_t addresses)
{
    const std::string text = answer(aliases, addresses);
    Addresses out;
    for (auto _ : state) {
        benchmark::DoNotOptimize(reader(text, out));
        benchmark::ClobberMemory();
    }
}

struct Shape {
    const char *name;
    std::size_t aliases;
    std::size_t addresses;
};
constexpr Shape kShapes[] = {
    {"1_address", 0, 1}, {"3_addresses", 0, 3}, {"20_addresses", 0, 20}, {"4_aliases", 4, 2}};
constexpr struct {
    const char *name;
    Reader *reader;
} kReaders[] = {{"library", with_library}, {"c-ares", with_cares}, {"libc", with_libc}};

/** All readers find the same, and the library's takes no memory. */
bool agree(const Shape &shape)
{
    const std::string text = answer(shape.aliases, shape.addresses);
    for (const auto &[name, reader] : kReaders) {
        Addresses found{};
        const long before = allocations;
        const std::size_t count = reader(text, found);
        const long taken = allocations - before;
        if (count != shape.addresses || (reader == with_library && taken != 0)) {
            fprintf(stderr, "%s: %s finds %zu addresses with %ld allocations\n", shape.name, name,
                    count, taken);
            return false;
        }
        for (std::size_t i = 0; i < count; ++i) {
            if (ntohl(found[i].s_addr) != 0xC6336400U + i + 1) {
                fprintf(stderr, "%s: %s finds another address\n", shape.name, name);
                return false;
            }
        }
    }
    return true;
}

}  // namespace

int main(int argc, char **argv)
{
    for (const Shape &shape : kShapes) {
        if (!agree(shape)) {
            return 1;
        }
        for (const auto &[name, reader] : kReaders) {
            benchmark::RegisterBenchmark((std::string{shape.name} + "/" + name).c_str(),
                                         read_answer, reader, shape.aliases, shape.addresses);
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

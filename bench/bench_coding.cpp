// SPDX-License-Identifier: MIT
// Base64 beside OpenSSL's EVP, hexadecimal beside libmodpbase64, and the port's conversion between
// GBK and UTF-8 beside iconv, opened for each text and kept.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <modp_b16.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/text.h"
#include "prod_common_string.h"

namespace
{

/** Text without zero bytes whose base64 has only digits that the decoder knows as well. */
std::string text_of(std::size_t size)
{
    constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz ABCDEFG.0123456789";
    std::string text(size, ' ');
    for (char &c : text) {
        c = kLetters[static_cast<std::size_t>(rand()) % (sizeof(kLetters) - 1)];
    }
    return text;
}

std::string base64_of(const std::string &text)
{
    std::string digits(4 * ((text.size() + 2) / 3) + 1, '\0');
    prod_encode64(digits.data(), text.c_str(), static_cast<int>(digits.size()));
    digits.pop_back();
    return digits;
}

std::size_t size_of(const benchmark::State &state)
{
    return static_cast<std::size_t>(state.range(0));
}

int as_int(std::size_t size)
{
    return static_cast<int>(size);
}

void count_bytes(benchmark::State &state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

#define SIZES ->Arg(1 << 10)->Arg(1 << 20)

// ---- base64 -----------------------------------------------------------------------------------

void encode64(benchmark::State &state)
{
    const std::string text = text_of(size_of(state));
    std::string out(2 * text.size(), '\0');
    for (auto _ : state) {
        prod_encode64(out.data(), text.c_str(), as_int(out.size()));
        benchmark::ClobberMemory();
    }
    count_bytes(state);
}
BENCHMARK(encode64)->Name("base64 encode/library") SIZES;

void encode64_evp(benchmark::State &state)
{
    const std::string text = text_of(size_of(state));
    std::vector<unsigned char> out(2 * text.size());
    for (auto _ : state) {
        EVP_EncodeBlock(out.data(), reinterpret_cast<const unsigned char *>(text.data()),
                        as_int(text.size()));
        benchmark::ClobberMemory();
    }
    count_bytes(state);
}
BENCHMARK(encode64_evp)->Name("base64 encode/EVP") SIZES;

void decode64(benchmark::State &state)
{
    const std::string digits = base64_of(text_of(size_of(state)));
    std::string out(digits.size(), '\0');
    for (auto _ : state) {
        if (prod_decode64(out.data(), digits.c_str(), as_int(out.size())) != 0) {
            state.SkipWithError("the text does not fit");
        }
        benchmark::ClobberMemory();
    }
    count_bytes(state);
}
BENCHMARK(decode64)->Name("base64 decode/library") SIZES;

void decode64_evp(benchmark::State &state)
{
    const std::string digits = base64_of(text_of(size_of(state)));
    std::vector<unsigned char> out(digits.size());
    for (auto _ : state) {
        if (EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char *>(digits.data()),
                            as_int(digits.size())) < 0) {
            state.SkipWithError("EVP refused the text");
        }
        benchmark::ClobberMemory();
    }
    count_bytes(state);
}
BENCHMARK(decode64_evp)->Name("base64 decode/EVP") SIZES;

// ---- hexadecimal ------------------------------------------------------------------------------

std::string hex_of(const std::string &text)
{
    std::string digits(2 * text.size() + 1, '\0');
    str_to_hex(text.c_str(), digits.data(), static_cast<unsigned int>(digits.size()));
    digits.pop_back();
    return digits;
}

void encode16(benchmark::State &state)
{
    const std::string text = text_of(size_of(state));
    std::string out(2 * text.size() + 1, '\0');
    for (auto _ : state) {
        str_to_hex(text.c_str(), out.data(), static_cast<unsigned int>(out.size()));
        benchmark::ClobberMemory();
    }
    count_bytes(state);
}
BENCHMARK(encode16)->Name("hex encode/library") SIZES;

void encode16_modp(benchmark::State &state)
{
    const std::string text = text_of(size_of(state));
    std::string out(modp_b16_encode_len(text.size()), '\0');
    for (auto _ : state) {
        modp_b16_encode(out.data(), text.data(), text.size());
        benchmark::ClobberMemory();
    }
    count_bytes(state);
}
BENCHMARK(encode16_modp)->Name("hex encode/modp") SIZES;

void decode16(benchmark::State &state)
{
    const std::string digits = hex_of(text_of(size_of(state)));
    std::string out(digits.size(), '\0');
    for (auto _ : state) {
        hex_to_str(digits.c_str(), out.data(), static_cast<unsigned int>(out.size()));
        benchmark::ClobberMemory();
    }
    count_bytes(state);
}
BENCHMARK(decode16)->Name("hex decode/library") SIZES;

void decode16_modp(benchmark::State &state)
{
    const std::string digits = hex_of(text_of(size_of(state)));
    std::string out(modp_b16_decode_len(digits.size()), '\0');
    for (auto _ : state) {
        modp_b16_decode(out.data(), digits.data(), digits.size());
        benchmark::ClobberMemory();
    }
    count_bytes(state);
}
BENCHMARK(decode16_modp)->Name("hex decode/modp") SIZES;

// ---- conversion -------------------------------------------------------------------------------

constexpr const char *kAscii = "a-host-name-of-32-plain-letters.";
constexpr const char *kGbk = "\xd6\xd0\xce\xc4\xb5\xc4\xd6\xf7\xbb\xfa\xc3\xfb-0123456789-phone-x";

void convert_library(benchmark::State &state, const char *text)
{
    std::string out(4 * strlen(text) + 1, '\0');
    for (auto _ : state) {
        if (system_convert_code_format("utf-8", text, out.data()) == 0) {
            state.SkipWithError("no conversion");
        }
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(convert_library, library, kAscii)->Name("convert 32 bytes of ASCII/library");
BENCHMARK_CAPTURE(convert_library, library, kGbk)->Name("convert 32 bytes of GBK/library");

void convert_once(iconv_t converter, const char *text, std::string &out)
{
    char *in = const_cast<char *>(text);
    char *to = out.data();
    std::size_t left = strlen(text) + 1;
    std::size_t room = out.size();
    iconv(converter, &in, &left, &to, &room);
    benchmark::ClobberMemory();
}

void convert_kept(benchmark::State &state, const char *text)
{
    std::string out(4 * strlen(text) + 1, '\0');
    const iconv_t converter = iconv_open("UTF-8", "GBK");
    for (auto _ : state) {
        convert_once(converter, text, out);
    }
    iconv_close(converter);
}
BENCHMARK_CAPTURE(convert_kept, kept, kAscii)->Name("convert 32 bytes of ASCII/kept iconv");
BENCHMARK_CAPTURE(convert_kept, kept, kGbk)->Name("convert 32 bytes of GBK/kept iconv");

void convert_opened(benchmark::State &state, const char *text)
{
    std::string out(4 * strlen(text) + 1, '\0');
    for (auto _ : state) {
        const iconv_t converter = iconv_open("UTF-8", "GBK");
        convert_once(converter, text, out);
        iconv_close(converter);
    }
}
BENCHMARK_CAPTURE(convert_opened, opened, kAscii)->Name("convert 32 bytes of ASCII/iconv opened");
BENCHMARK_CAPTURE(convert_opened, opened, kGbk)->Name("convert 32 bytes of GBK/iconv opened");

/** A long text, where what a call costs does not count: a kilobyte. */
void convert_long_ascii(benchmark::State &state)
{
    convert_library(state, text_of(1024).c_str());
}
BENCHMARK(convert_long_ascii)->Name("convert 1 KiB of ASCII/library");

void convert_long_ascii_kept(benchmark::State &state)
{
    convert_kept(state, text_of(1024).c_str());
}
BENCHMARK(convert_long_ascii_kept)->Name("convert 1 KiB of ASCII/kept iconv");

}  // namespace

BENCHMARK_MAIN();

// SPDX-License-Identifier: MIT
// The check of a firmware image of 64 MiB: mapped, as the upgrade does it, beside what it cannot do
// without: reading the file, and zlib's checksum over it. own_memory is what the process has beside
// the mapped file.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench.hpp"
#include "prod_common_flash.h"

namespace
{

constexpr std::size_t kHeaderSize = 64;
constexpr std::size_t kSize = PROD_FW_LARGEST;
constexpr const char *kImage = "/cfg/image";  // on a real disk

/** A number of /proc/self/status in KiB. */
double status_number(const char *name)
{
    FILE *const file = fopen("/proc/self/status", "re");
    char line[256];
    double number = 0;
    while (file != nullptr && fgets(line, sizeof(line), file) != nullptr) {
        if (strncmp(line, name, strlen(name)) == 0) {
            number = strtod(line + strlen(name), nullptr);
        }
    }
    if (file != nullptr) {
        fclose(file);
    }
    return number;
}

void put_number(std::string &image, std::size_t at, unsigned long number)
{
    for (std::size_t i = 0; i < 4; ++i) {
        image[at + i] = static_cast<char>(number >> (24 - 8 * i));
    }
}

unsigned long checksum(const char *data, std::size_t size)
{
    return crc32_z(0, reinterpret_cast<const Bytef *>(data), size);
}

bool write_image()
{
    std::string image(kSize, '\0');
    unsigned int state = 1;
    for (std::size_t i = kHeaderSize; i < kSize; ++i) {
        state = state * 1103515245 + 12345;
        image[i] = static_cast<char>(state >> 16);
    }
    put_number(image, 0, 0x27051956);
    put_number(image, 12, kSize - kHeaderSize);
    put_number(image, 24, checksum(image.data() + kHeaderSize, kSize - kHeaderSize));
    image[30] = 2;
    image.replace(32, 14, "virtual-router");
    put_number(image, 4, checksum(image.data(), kHeaderSize));
    FILE *const file = fopen(kImage, "we");
    const bool written = file != nullptr && fwrite(image.data(), 1, kSize, file) == kSize;
    return file != nullptr && fclose(file) == 0 && written;
}

/** Opens the image; its pages are in the cache, or not. */
int open_image(bool cached)
{
    const int fd = open(kImage, O_RDONLY | O_CLOEXEC);
    if (!cached) {
        fsync(fd);
        posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    }
    return fd;
}

bool check_mapped(int fd)
{
    void *const image = mmap(nullptr, kSize, PROT_READ, MAP_SHARED, fd, 0);
    int type = 0;
    const bool good = image != MAP_FAILED &&
                      flash_check_fw_type_and_crc(static_cast<const char *>(image), &type,
                                                  static_cast<long>(kSize)) == FW_VALID_IMAGE &&
                      flash_check_fw(kImage, type) == FW_VALID_IMAGE;
    munmap(image, kSize);
    return good;
}

bool read_only(int fd)
{
    static char chunk[65536];
    std::size_t done = 0;
    ssize_t got = 0;
    while ((got = read(fd, chunk, sizeof(chunk))) > 0) {
        done += static_cast<std::size_t>(got);
        benchmark::DoNotOptimize(chunk);
    }
    return done == kSize;
}

bool read_and_checksum(int fd)
{
    static char chunk[65536];
    unsigned long sum = 0;
    std::size_t done = 0;
    ssize_t got = 0;
    while ((got = read(fd, chunk, sizeof(chunk))) > 0) {
        sum = crc32_z(sum, reinterpret_cast<const Bytef *>(chunk), static_cast<std::size_t>(got));
        done += static_cast<std::size_t>(got);
    }
    benchmark::DoNotOptimize(sum);
    return done == kSize;
}

void image_of_64_mib(benchmark::State &state, bool (*work)(int), bool cached)
{
    for (auto _ : state) {
        state.PauseTiming();
        const int fd = open_image(cached);
        state.ResumeTiming();
        if (!work(fd)) {
            state.SkipWithError("the image is refused, or cannot be read");
        }
        state.PauseTiming();
        close(fd);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kSize));
    state.counters["own_memory_KiB"] = status_number("RssAnon:");
}

BENCHMARK_CAPTURE(image_of_64_mib, check, check_mapped, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(image_of_64_mib, read_and_zlib, read_and_checksum, true)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(image_of_64_mib, read_only, read_only, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(image_of_64_mib, check_uncached, check_mapped, false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(image_of_64_mib, read_and_zlib_uncached, read_and_checksum, false)
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv)
{
    bench::must_be_in_a_device();
    FILE *const board = fopen("/etc/board.json", "we");
    if (board == nullptr || !write_image()) {
        perror("bench_firmware");
        return 1;
    }
    fprintf(board, R"({"model": "virtual-router", "firmware": {"partition": "/x", "size": %zu}})",
            kSize);
    fclose(board);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    remove(kImage);
    return 0;
}

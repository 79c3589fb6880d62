// SPDX-License-Identifier: MIT
// Replays the seeds of a fuzz target as an ordinary test: each file of the given folders, whole and
// cut off at every length up to a limit. It fails by dying of what a target or a sanitizer finds.
// Where programs run N times slower it is every Nth length, from another one for each seed.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "fuzz/fuzz.hpp"

namespace
{

namespace fs = std::filesystem;
constexpr std::size_t kLongestCut = 256;

/** Runs the target on a copy that ends exactly where the input does, and exists when it is empty.
 */
void run(const std::vector<char> &seed, std::size_t size)
{
    const auto input = std::make_unique<std::uint8_t[]>(size);
    std::copy_n(seed.begin(), size, input.get());
    LLVMFuzzerTestOneInput(input.get(), size);
}

/** @p first is the shortest cut, @p step what is between two. */
void replay(const fs::path &path, std::size_t first, std::size_t step)
{
    std::ifstream file{path, std::ios::binary};
    const std::vector<char> seed{std::istreambuf_iterator<char>{file}, {}};
    for (std::size_t size = first; size < std::min(seed.size(), kLongestCut); size += step) {
        run(seed, size);
    }
    run(seed, seed.size());
}

}  // namespace

int main(int argc, char **argv)
{
    if (getenv("PROD_DEVICE") == nullptr) {
        fprintf(stderr, "Run this through device/launch: it changes the system it runs on.\n");
        return 2;
    }
    const char *const slowdown = getenv("PROD_SLOWDOWN");
    const std::size_t step = slowdown != nullptr ? strtoul(slowdown, nullptr, 10) : 1;
    std::size_t seeds = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : fs::directory_iterator{argv[i]}) {
            replay(entry.path(), seeds % step, step);
            ++seeds;
        }
    }
    fprintf(stderr, "%zu seeds replayed\n", seeds);
    return seeds > 0 ? 0 : 1;
}

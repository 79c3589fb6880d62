// SPDX-License-Identifier: MIT
// Replays the seeds of a fuzz target as an ordinary test: each file of the given folders, whole and
// cut off at every length up to a limit. It fails by dying of what a target or a sanitizer finds.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/fuzz.hpp"

namespace
{

namespace fs = std::filesystem;
constexpr std::size_t kLongestCut = 256;

/** Runs the target on a copy that ends exactly where the input does. */
void run(const std::vector<char> &seed, std::size_t size)
{
    const std::vector<std::uint8_t> input(seed.begin(),
                                          seed.begin() + static_cast<std::ptrdiff_t>(size));
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

void replay(const fs::path &path)
{
    std::ifstream file{path, std::ios::binary};
    const std::vector<char> seed{std::istreambuf_iterator<char>{file}, {}};
    for (std::size_t size = 0; size < std::min(seed.size(), kLongestCut); ++size) {
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
    int seeds = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : fs::directory_iterator{argv[i]}) {
            replay(entry.path());
            ++seeds;
        }
    }
    fprintf(stderr, "%d seeds replayed\n", seeds);
    return seeds > 0 ? 0 : 1;
}

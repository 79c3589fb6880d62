// SPDX-License-Identifier: MIT
// The debug table that all programs share, after one of them has spoiled it.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "prod_common_debug.h"
#include "support/files.hpp"

namespace
{

constexpr std::size_t kRoom = 4096;  // the segment's page, in which the table ends early
constexpr std::size_t kBehind = kRoom - sizeof(prod_dbg_info_t);
constexpr char kMark = 0x5A;
constexpr std::size_t kLongestLine = 10239;
constexpr std::size_t kColours = 14;

/** What the calls print, in a file of memory in place of standard output. */
class Console
{
  public:
    Console()
    {
        const int memory = memfd_create("console", MFD_CLOEXEC);
        FUZZ_CHECK(memory >= 0 && dup2(memory, STDOUT_FILENO) == STDOUT_FILENO);
        close(memory);
    }
    void clear() const
    {
        fflush(stdout);
        FUZZ_CHECK(ftruncate(STDOUT_FILENO, 0) == 0 && lseek(STDOUT_FILENO, 0, SEEK_SET) == 0);
    }
    std::size_t size() const
    {
        fflush(stdout);
        return static_cast<std::size_t>(lseek(STDOUT_FILENO, 0, SEEK_END));
    }
};

bool bears(const prod_dbg_cb_t &slot, const std::string &name)
{
    return name.size() < PROD_DBG_NAME_SIZE &&
           memcmp(slot.name, name.c_str(), name.size() + 1) == 0;
}

/** A spoiled slot may hold a number that is no level; a C program gets it as it is. */
[[gnu::no_sanitize("enum")]] int level_of(const std::string &name)
{
    return static_cast<int>(get_dbg_level(name.c_str()));
}

/** Whether some slot in use explains a level; without one of the name, only OFF is right. */
bool is_explained(const prod_dbg_info_t &info, const std::string &name, int level)
{
    bool there = false;
    for (const prod_dbg_cb_t &slot : info.array) {
        if (slot.valid && bears(slot, name)) {
            there = true;
            if (slot.level == static_cast<unsigned int>(level)) {
                return true;
            }
        }
    }
    return level == PROD_DBG_OFF && (!there || info.num < PROD_DBG_MODULE_MAX);
}

long count_valid(const prod_dbg_info_t &info)
{
    return std::count_if(std::begin(info.array), std::end(info.array),
                         [](const prod_dbg_cb_t &slot) { return slot.valid != 0; });
}

void check_set(prod_dbg_info_t &info, const std::string &name)
{
    const auto namesakes =
        std::count_if(std::begin(info.array), std::end(info.array),
                      [&](const prod_dbg_cb_t &slot) { return slot.valid && bears(slot, name); });
    const bool sound = info.num == count_valid(info) && namesakes <= 1;
    const int stored = set_dbg_level(name.c_str(), PROD_DBG_INFO);
    FUZZ_CHECK(stored == 0 || stored == 1);
    if (sound && stored == 1 && name.size() < PROD_DBG_NAME_SIZE) {
        FUZZ_CHECK(level_of(name) == PROD_DBG_INFO);
        FUZZ_CHECK(info.num == count_valid(info));
    }
    const int removed = set_dbg_level(name.c_str(), PROD_DBG_OFF);
    FUZZ_CHECK(removed == 0 || removed == 1);
    // With a wrong count of slots in use nothing more can be promised.
    FUZZ_CHECK(!sound || (removed == stored && info.num == count_valid(info)));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const Console console;
    prod_dbg_info_t *const info = get_dbg_info();
    FUZZ_CHECK(info != nullptr);
    auto *const bytes = reinterpret_cast<char *>(info);
    memset(bytes, 0, sizeof(*info));
    memset(bytes + sizeof(*info), kMark, kBehind);
    memcpy(bytes, data, std::min(size, sizeof(*info)));

    // A slot that ends without a NUL continues in the next fields, which belong to no name.
    const prod_dbg_cb_t &slot = info->array[size % PROD_DBG_MODULE_MAX];
    const std::string in_slot{slot.name, strnlen(slot.name, sizeof(slot.name))};
    const std::string behind{reinterpret_cast<const char *>(data + std::min(size, sizeof(*info))),
                             size - std::min(size, sizeof(*info))};
    for (const std::string &name : {std::string{"prod"}, std::string{}, in_slot, behind}) {
        const std::string text{name.c_str()};
        FUZZ_CHECK(is_explained(*info, text, level_of(text)));
        console.clear();
        show_dbg_level(text.c_str());
        // Per slot: the name, two numbers and the colours; the heading, and an empty line.
        FUZZ_CHECK(console.size() <= PROD_DBG_MODULE_MAX * (PROD_DBG_NAME_SIZE + 64) + 64);
    }

    test::remove_all("/var/debug.prod.log");
    for (int level = PROD_DBG_OFF; level <= PROD_DBG_LVL_NUM; ++level) {
        console.clear();
        prod_debug("function", 1, level, "prod", "%s", behind.c_str());
        FUZZ_CHECK(console.size() <= kLongestLine + kColours);
        FUZZ_CHECK(level != PROD_DBG_ERROR || console.size() > kColours);
    }
    const std::size_t logged = test::read_text("/var/debug.prod.log").size();
    FUZZ_CHECK(logged > 0 && logged <= kLongestLine);

    for (const std::string &name : {std::string{"prod"}, in_slot}) {
        check_set(*info, name);
    }
    FUZZ_CHECK(
        std::all_of(bytes + sizeof(*info), bytes + kRoom, [](char c) { return c == kMark; }));
    return 0;
}

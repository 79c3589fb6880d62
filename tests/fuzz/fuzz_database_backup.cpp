// SPDX-License-Identifier: MIT
// The section of a record database in a backup file: as it comes, and with a length and a check
// that fit it.
#include <cinttypes>
#include <string>

#include "fuzz/fuzz.hpp"
#include "platform/database.h"
#include "support/files.hpp"

/** The medium's speed is not what is looked for. */
extern "C" int fsync(int)
{
    return 0;
}
extern "C" int fdatasync(int)
{
    return 0;
}

namespace
{

constexpr const char *kFile = "/tmp/section";

std::string saved()
{
    test::remove_all(kFile);
    FUZZ_CHECK(db_backup_save("default", kFile) == 1);
    const std::string text = test::read_text(kFile);
    FUZZ_CHECK(text.find("crc=") == std::string::npos);
    FUZZ_CHECK(text.find("configure end##") == std::string::npos);
    FUZZ_CHECK(text.find('\0') == std::string::npos);
    return text;
}

std::string framed(const std::string &body)
{
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : body) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    }
    char measures[64];
    snprintf(measures, sizeof(measures), "length %zu check %016" PRIx64 "\n", body.size(), hash);
    return std::string{"\n##the default database begin##\n"} + measures + body +
           "##the default database end##\n";
}

/** Loading takes all or nothing, and what it took is saved and loaded again unchanged. */
void check(const std::string &text)
{
    const std::string before = saved();
    if (db_backup_load("default", text.c_str()) == 0) {
        FUZZ_CHECK(saved() == before);
        return;
    }
    const std::string after = saved();
    FUZZ_CHECK(db_backup_load("default", after.c_str()) == 1);
    FUZZ_CHECK(saved() == after);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    test::remove_all("/cfg/database/default.db");
    FUZZ_CHECK(db_backup_load("default", framed("table t 5\ncolumn a text\ncolumn b integer "
                                                "unique\nrow 3 tx i1\n")
                                             .c_str()) == 1);
    const std::string text{reinterpret_cast<const char *>(data), size};
    check(text);
    check(framed(text.substr(0, text.find('\0'))));
    return 0;
}

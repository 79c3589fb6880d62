// SPDX-License-Identifier: MIT
// The configuration store with 3,000 keys, beside what else a firmware might use: the bare engine,
// TDB, and reading a text file again; and the shell runner beside system().
#include <fcntl.h>
#include <lmdb.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" {
#include <sys/stat.h>
#include <tdb.h>
}

#include "bench.hpp"
#include "platform/cfm.h"
#include "platform/process.h"

using bench::must;
using bench::write_text;

namespace
{

constexpr int kKeys = 3000;
constexpr const char *kTextFile = "/var/run/bench.txt";

std::string key_of(int i)
{
    const std::string number = std::to_string(i);
    switch (i % 4) {
        case 0:
            return "wlan0." + number + "_bss_ssid";
        case 1:
            return "wan" + number + ".connecttype";
        case 2:
            return "dhcps.list." + number;
        default:
            return "security.ipbind.list" + number;
    }
}

std::string value_of(int i)
{
    return "value " + std::to_string(i) + std::string(static_cast<std::size_t>(i % 40), 'v');
}

/** Keys in an order that no cache line likes. */
const std::vector<std::string> &keys()
{
    static const std::vector<std::string> all = [] {
        std::vector<std::string> result;
        for (int i = 0; i < kKeys; ++i) {
            result.push_back(key_of(i * 1009 % kKeys));
        }
        return result;
    }();
    return all;
}

std::string value_for(const std::string &key)
{
    char value[CFM_VALUE_SIZE];
    must(GetValue(key.c_str(), value) != 0, key.c_str());
    return value;
}

std::string whole_text()
{
    std::string text;
    for (int i = 0; i < kKeys; ++i) {
        text += key_of(i) + "=" + value_of(i) + "\n";
    }
    return text;
}

MDB_val val(const std::string &text)
{
    return {text.size(), const_cast<char *>(text.data())};
}

/** LMDB as a careful user has it: keys without NUL, a read transaction kept but not its snapshot.
 */
struct Bare {
    MDB_env *env = nullptr;
    MDB_txn *reader = nullptr;
    MDB_dbi dbi = 0;

    Bare()
    {
        mkdir("/var/run/bare", 0700);
        mdb_env_create(&env);
        mdb_env_set_mapsize(env, 32 << 20);
        mdb_env_set_maxdbs(env, 1);
        must(mdb_env_open(env, "/var/run/bare", MDB_NOTLS | MDB_NOSYNC | MDB_NOMETASYNC, 0600) == 0,
             "mdb_env_open");
        MDB_txn *txn = nullptr;
        mdb_txn_begin(env, nullptr, 0, &txn);
        mdb_dbi_open(txn, "settings", MDB_CREATE, &dbi);
        for (int i = 0; i < kKeys; ++i) {
            const std::string key = key_of(i);
            const std::string value = value_of(i);
            MDB_val k = val(key);
            MDB_val v = val(value);
            mdb_put(txn, dbi, &k, &v, 0);
        }
        must(mdb_txn_commit(txn) == 0, "mdb_txn_commit");
        mdb_txn_begin(env, nullptr, MDB_RDONLY, &reader);
        mdb_txn_reset(reader);
    }

    bool get(const char *key, char *out) const
    {
        MDB_val k{strlen(key), const_cast<char *>(key)};
        MDB_val v;
        if (mdb_txn_renew(reader) != 0) {
            return false;
        }
        const bool found = mdb_get(reader, dbi, &k, &v) == 0 && v.mv_size < CFM_VALUE_SIZE;
        if (found) {
            memcpy(out, v.mv_data, v.mv_size);
            out[v.mv_size] = '\0';
        }
        mdb_txn_reset(reader);
        return found;
    }

    bool put(const char *key, const char *value) const
    {
        MDB_val k{strlen(key), const_cast<char *>(key)};
        MDB_val v{strlen(value), const_cast<char *>(value)};
        MDB_txn *txn = nullptr;
        return mdb_txn_begin(env, nullptr, 0, &txn) == 0 && mdb_put(txn, dbi, &k, &v, 0) == 0 &&
               mdb_txn_commit(txn) == 0;
    }
};

Bare &bare()
{
    static Bare one;
    return one;
}

tdb_context *tdb()
{
    static tdb_context *const one = [] {
        tdb_context *const db =
            tdb_open("/var/run/bench.tdb", 10007, TDB_CLEAR_IF_FIRST, O_RDWR | O_CREAT, 0600);
        must(db != nullptr, "tdb_open");
        for (int i = 0; i < kKeys; ++i) {
            std::string key = key_of(i);
            std::string value = value_of(i);
            const TDB_DATA k{reinterpret_cast<unsigned char *>(key.data()), key.size()};
            const TDB_DATA v{reinterpret_cast<unsigned char *>(value.data()), value.size()};
            must(tdb_store(db, k, v, TDB_REPLACE) == 0, "tdb_store");
        }
        return db;
    }();
    return one;
}

bool get_from_tdb(const char *key, char *out)
{
    const TDB_DATA k{reinterpret_cast<unsigned char *>(const_cast<char *>(key)), strlen(key)};
    const TDB_DATA v = tdb_fetch(tdb(), k);
    if (v.dptr == nullptr || v.dsize >= CFM_VALUE_SIZE) {
        return false;
    }
    memcpy(out, v.dptr, v.dsize);
    out[v.dsize] = '\0';
    free(v.dptr);
    return true;
}

bool get_from_text(const char *key, char *out)
{
    FILE *const file = fopen(kTextFile, "re");
    const std::size_t length = strlen(key);
    char line[CFM_VALUE_SIZE + 512];
    bool found = false;
    while (!found && fgets(line, sizeof(line), file) != nullptr) {
        found = strncmp(line, key, length) == 0 && line[length] == '=';
    }
    fclose(file);
    if (found) {
        line[strcspn(line, "\n")] = '\0';
        strcpy(out, line + length + 1);
    }
    return found;
}

template <typename Get>
void each_key(benchmark::State &state, Get get)
{
    char value[CFM_VALUE_SIZE];
    std::size_t at = 0;
    for (auto _ : state) {
        if (!get(keys()[at].c_str(), value)) {
            state.SkipWithError("a key is missing");
        }
        benchmark::DoNotOptimize(value[0]);
        at = at + 1 < keys().size() ? at + 1 : 0;
    }
}

void get_store(benchmark::State &state)
{
    each_key(state, [](const char *key, char *out) { return GetValue(key, out) != 0; });
}
void get_bare(benchmark::State &state)
{
    const Bare &lmdb = bare();
    each_key(state, [&](const char *key, char *out) { return lmdb.get(key, out); });
}
void get_tdb(benchmark::State &state)
{
    tdb();
    each_key(state, get_from_tdb);
}
void get_text(benchmark::State &state)
{
    each_key(state, get_from_text);
}

void set_same_store(benchmark::State &state)
{
    std::vector<std::string> values;
    for (const std::string &key : keys()) {
        values.push_back(value_for(key));
    }
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(SetValue(keys()[at].c_str(), values[at].c_str()));
        at = at + 1 < keys().size() ? at + 1 : 0;
    }
}

/** Values that differ at each turn. */
template <typename Put>
void change_keys(benchmark::State &state, Put put)
{
    std::size_t at = 0;
    unsigned int turn = 0;
    char value[32];
    for (auto _ : state) {
        snprintf(value, sizeof(value), "changed %10u", ++turn);
        if (!put(keys()[at].c_str(), value)) {
            state.SkipWithError("not stored");
        }
        at = at + 1 < keys().size() ? at + 1 : 0;
    }
}

void set_changed_store(benchmark::State &state)
{
    change_keys(state, [](const char *k, const char *v) { return SetValue(k, v) != 0; });
}
void put_bare(benchmark::State &state)
{
    const Bare &lmdb = bare();
    change_keys(state, [&](const char *k, const char *v) { return lmdb.put(k, v); });
}

void commit_store(benchmark::State &state)
{
    for (auto _ : state) {
        must(CommitCfm() != 0, "CommitCfm");
    }
}

/** @param state  its argument: whether the folder is synced too */
void commit_bare(benchmark::State &state)
{
    const std::string text = whole_text();
    for (auto _ : state) {
        const int fd = open("/cfg/bench.new", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        must(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
                 fsync(fd) == 0,
             "bench.new");
        close(fd);
        must(rename("/cfg/bench.new", "/cfg/bench.cfg") == 0, "rename");
        if (state.range(0) != 0) {
            const int folder = open("/cfg", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            must(fsync(folder) == 0, "fsync");
            close(folder);
        }
    }
}

/** Memory that a process of 500 MB has touched; 0 gives it back. */
void be_large(bool large)
{
    constexpr std::size_t kLarge = 500 << 20;
    static void *memory = nullptr;
    if (memory != nullptr) {
        munmap(memory, kLarge);
        memory = nullptr;
    }
    if (large) {
        memory = mmap(nullptr, kLarge, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        must(memory != MAP_FAILED, "mmap");
        memset(memory, 1, kLarge);
    }
}

void command_store(benchmark::State &state)
{
    be_large(state.range(0) != 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(doSystemCmd(": %s", "nothing"));
    }
    be_large(false);
}
void command_system(benchmark::State &state)
{
    be_large(state.range(0) != 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(system(": nothing"));
    }
    be_large(false);
}

BENCHMARK(get_store)->Name("get/GetValue");
BENCHMARK(get_bare)->Name("get/bare_lmdb");
BENCHMARK(get_tdb)->Name("get/tdb");
BENCHMARK(get_text)->Name("get/text_file");
BENCHMARK(set_same_store)->Name("set_same/SetValue");
BENCHMARK(set_changed_store)->Name("set_changed/SetValue");
BENCHMARK(put_bare)->Name("set_changed/bare_lmdb");
BENCHMARK(commit_store)->Name("commit/CommitCfm")->UseRealTime();
BENCHMARK(commit_bare)->Name("commit/write_fsync_rename")->Arg(0)->UseRealTime();
BENCHMARK(commit_bare)->Name("commit/write_fsync_rename_fsync_folder")->Arg(1)->UseRealTime();
BENCHMARK(command_store)->Name("command/doSystemCmd")->Arg(0)->Arg(500)->UseRealTime();
BENCHMARK(command_system)->Name("command/system")->Arg(0)->Arg(500)->UseRealTime();

}  // namespace

int main(int argc, char **argv)
{
    bench::must_be_in_a_device();
    write_text("/cfg/cfm.cfg", whole_text());
    write_text(kTextFile, whole_text());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

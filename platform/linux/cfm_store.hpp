// SPDX-License-Identifier: MIT
// The working copy of the configuration: one LMDB environment on tmpfs, shared by all processes.
#pragma once

#include <lmdb.h>
#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <string_view>

#include "cfm_file.hpp"

namespace platform
{

/** The lock that one committer at a time holds: among threads and among processes. */
class CommitLock;

class Store
{
  public:
    /** The calling process's store, open, or nullptr when the working copy cannot be had. */
    static Store *open()
    {
        Store *const store = current.load(std::memory_order_acquire);
        return store != nullptr && store->is_mine() &&
                       store->env_.load(std::memory_order_acquire) != nullptr
                   ? store
                   : open_slowly();
    }

    /** Copies the value of a key with its NUL; @p out has CFM_VALUE_SIZE bytes. */
    bool read(std::string_view key, char *out);

    /** Whether a key is there with just this value. */
    bool holds(std::string_view key, std::string_view value);

    bool put(std::string_view key, std::string_view value);

    /** False also for a key that is absent. */
    bool remove(std::string_view key);

    /** Appends all of it as sorted "key=value" lines. */
    bool dump(Buffer &out);

    /** Makes the persistent file hold what the working copy holds. */
    bool commit();

    /**
     * Makes the settings of @p text the whole configuration, working copy and persistent file. On
     * failure both are as they were.
     */
    bool replace(std::string_view text);

  private:
    friend class CommitLock;
    class Snapshot;
    struct Turns;

    static Store *open_slowly();
    static Store *for_this_process();
    static Turns *share_turns();

    bool is_mine() const;
    bool open_environment();
    MDB_env *env() const { return env_.load(std::memory_order_relaxed); }
    MDB_txn *take_snapshot();
    void give_back(MDB_txn *snapshot);
    int find(MDB_txn *txn, std::string_view key, std::string_view &value) const;
    int refill(MDB_txn *txn, std::string_view text) const;
    int dump(MDB_txn *txn, Buffer &out) const;

    template <typename Change>
    int write(Change change);

    static std::atomic<Store *> current;

    // Read transactions of threads that are done with theirs; each keeps a slot in the reader
    // table but no snapshot.
    static constexpr int kIdle = 8;

    std::atomic<MDB_env *> env_;
    Turns *turns_;
    MDB_dbi settings_;
    std::atomic<MDB_txn *> idle_[kIdle];
    const std::atomic<int> *fork_mark_;  // reads 0 in a child; nullptr: compare process ids
    pid_t pid_;
    pthread_mutex_t opening_;
    pthread_mutex_t committing_;
    Store *inherited_;  // the parent's, never touched again
};

}  // namespace platform

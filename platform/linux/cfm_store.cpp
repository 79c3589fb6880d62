// SPDX-License-Identifier: MIT
//
// What LMDB asks of its users, and where it is met:
// - An environment belongs to the process that opened it: a child that closed its parent's would
//   free the parent's reader slots. So each process has a Store of its own, a child notices at its
//   first access that the Store it sees is not its own, and what it inherited is left alone.
// - Its lock file must be opened once in a process, since closing any descriptor of it would drop
//   the process's locks: nothing here opens it while the environment is open.
// - A killed reader keeps its slot and its snapshot: stale ones are cleared at every opening, and
//   when the reader table or the map runs full.
// - A snapshot that is kept pins old pages: it is given back after each read.
// - Who waits for its locks may wait for ever when others are killed: nobody waits there (Turns).
#include "cfm_store.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csetjmp>
#include <ctime>
#include <new>

namespace platform
{
namespace
{

constexpr const char *kFolder = "/var/run/cfm";
constexpr const char *kDataFile = "/var/run/cfm/data.mdb";
constexpr const char *kReaderTable = "/var/run/cfm/lock.mdb";
constexpr const char *kOpenLock = "/var/run/cfm/open.lock";
constexpr const char *kCommitLock = "/var/run/cfm/commit.lock";
constexpr const char *kTurns = "/var/run/cfm/turns";
constexpr const char *kSettings = "settings";  // its presence says that the first load is done
constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kPrivateFile = 0600;

// What the settings may take, many times what any device configures: a bound for a daemon that
// writes without end. The map, which is address space and not memory, has room for a second set
// while a restore replaces the first, and for old pages that a reader holds.
constexpr std::size_t kMostSettings = std::size_t{16} * 1024 * 1024;
constexpr std::size_t kMapSize = 4 * kMostSettings;
constexpr unsigned int kReaders = 2048;
constexpr off_t kReaderTableSize = off_t{64} * (kReaders + 2);  // a cache line each, and the header

class MutexLock
{
  public:
    explicit MutexLock(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~MutexLock() { pthread_mutex_unlock(&mutex_); }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

  private:
    pthread_mutex_t &mutex_;
};

/** A lock among processes. A child does not inherit it and a killed process does not keep it. */
class FileLock
{
  public:
    explicit FileLock(const char *path)
        : fd_(::open(path, O_RDWR | O_CREAT | O_CLOEXEC, kPrivateFile))
    {
        struct flock whole {
        };
        whole.l_type = F_WRLCK;
        int rc = -1;
        while (fd_ && (rc = fcntl(fd_.get(), F_SETLKW, &whole)) != 0 && errno == EINTR) {
        }
        held_ = rc == 0;
    }
    explicit operator bool() const { return held_; }

  private:
    Fd fd_;
    bool held_;
};

/**
 * A turn that all processes take with one of the Turns. Its holder may be killed: the turn is then
 * the next one's.
 */
class Turn
{
  public:
    explicit Turn(pthread_mutex_t &mutex) : mutex_(mutex)
    {
        int rc = pthread_mutex_trylock(&mutex_);
        while (rc == EBUSY || rc == ETIMEDOUT) {
            rc = wait_a_while();
        }
        if (rc == EOWNERDEAD) {
            pthread_mutex_consistent(&mutex_);  // there is nothing to mend
        }
    }
    ~Turn() { pthread_mutex_unlock(&mutex_); }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

  private:
    /** Not longer, since nobody may come to wake who waits. */
    int wait_a_while()
    {
        constexpr long kWhile = 100000000;
        constexpr long kSecond = 1000000000;
        timespec end{};
        clock_gettime(CLOCK_REALTIME, &end);
        end.tv_sec += end.tv_nsec + kWhile >= kSecond ? 1 : 0;
        end.tv_nsec = (end.tv_nsec + kWhile) % kSecond;
        return pthread_mutex_timedlock(&mutex_, &end);
    }

    pthread_mutex_t &mutex_;
};

/**
 * A number that reads 1 in this process and 0 in every child of it, or nullptr where the kernel has
 * no such memory. Cheaper to look at than the process id, which costs a system call.
 */
const std::atomic<int> *make_fork_mark()
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void *const memory =
        mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    // Some emulators accept any advice and follow none.
    if (madvise(memory, page, -1) == 0 || madvise(memory, page, MADV_WIPEONFORK) != 0) {
        munmap(memory, page);
        return nullptr;
    }
    return new (memory) std::atomic<int>{1};
}

/** Takes the memory of the reader table now: writing to it on a full tmpfs would be a SIGBUS. */
int reserve_reader_table()
{
    const Fd fd{::open(kReaderTable, O_RDWR | O_CREAT | O_CLOEXEC, kPrivateFile)};
    return fd ? posix_fallocate(fd.get(), 0, kReaderTableSize) : errno;
}

bool make_mutex_for_all_processes(pthread_mutex_t *mutex)
{
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) {
        return false;
    }
    const bool made = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
                      pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                      pthread_mutex_init(mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return made;
}

/** Walks every page in use. */
int walk(MDB_env *env)
{
    MDB_txn *txn = nullptr;
    int rc = mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn);
    if (rc != MDB_SUCCESS) {
        return rc;
    }
    MDB_dbi settings;
    MDB_cursor *cursor = nullptr;
    rc = mdb_dbi_open(txn, kSettings, 0, &settings);
    if (rc == MDB_SUCCESS) {
        rc = mdb_cursor_open(txn, settings, &cursor);
    }
    MDB_val key;
    MDB_val value;
    while (rc == MDB_SUCCESS) {
        rc = mdb_cursor_get(cursor, &key, &value, MDB_NEXT);
    }
    if (cursor != nullptr) {
        mdb_cursor_close(cursor);
    }
    mdb_txn_abort(txn);
    return rc == MDB_NOTFOUND ? MDB_SUCCESS : rc;
}

[[noreturn]] void leave_walk(MDB_env *env, const char *)
{
    longjmp(*static_cast<jmp_buf *>(mdb_env_get_userctx(env)), 1);
}

/**
 * Whether the pages in use are sound. The engine asserts some of what it expects of them; on the
 * walk that must not end the process. What it leaves open is closed with the environment.
 */
int verify(MDB_env *env)
{
    jmp_buf way_out;
    if (setjmp(way_out) != 0) {
        return MDB_CORRUPTED;
    }
    mdb_env_set_userctx(env, &way_out);
    mdb_env_set_assert(env, leave_walk);
    const int rc = walk(env);
    mdb_env_set_assert(env, nullptr);
    return rc;
}

/**
 * A data file shorter than its header says would kill its readers. The end is filled up: pages
 * that were never written are not in use, and others are found damaged.
 */
int mend_length(MDB_env *env)
{
    MDB_envinfo info;
    MDB_stat status;
    mdb_filehandle_t fd = -1;
    struct stat file;
    mdb_env_info(env, &info);
    mdb_env_stat(env, &status);
    if (mdb_env_get_fd(env, &fd) != MDB_SUCCESS || fstat(fd, &file) != 0) {
        return errno;
    }
    const auto wanted = static_cast<off_t>((info.me_last_pgno + 1) * status.ms_psize);
    if (file.st_size >= wanted) {
        return MDB_SUCCESS;
    }
    const int rc = posix_fallocate(fd, file.st_size, wanted - file.st_size);
    return rc == 0 ? verify(env) : rc;
}

int open_files(MDB_env **out)
{
    int rc = reserve_reader_table();
    if (rc != 0) {
        return rc;
    }
    MDB_env *env = nullptr;
    if ((rc = mdb_env_create(&env)) != MDB_SUCCESS) {
        return rc;
    }
    mdb_env_set_maxreaders(env, kReaders);
    mdb_env_set_mapsize(env, kMapSize);
    mdb_env_set_maxdbs(env, 1);
    // On tmpfs there is nothing to sync to.
    rc = mdb_env_open(env, kFolder, MDB_NOTLS | MDB_NOSYNC | MDB_NOMETASYNC, kPrivateFile);
    if (rc == MDB_SUCCESS) {
        mdb_reader_check(env, nullptr);
        rc = mend_length(env);
    }
    if (rc != MDB_SUCCESS) {
        mdb_env_close(env);
        return rc;
    }
    *out = env;
    return MDB_SUCCESS;
}

bool is_damage(int rc)
{
    return rc == MDB_INVALID || rc == MDB_VERSION_MISMATCH || rc == MDB_CORRUPTED ||
           rc == MDB_PAGE_NOTFOUND;
}

/** MDB_MAP_FULL when the settings have become more than they may be. */
int check_size(MDB_txn *txn, MDB_dbi settings)
{
    MDB_stat status;
    const int rc = mdb_stat(txn, settings, &status);
    const std::size_t pages =
        status.ms_branch_pages + status.ms_leaf_pages + status.ms_overflow_pages;
    return rc == MDB_SUCCESS && pages > kMostSettings / status.ms_psize ? MDB_MAP_FULL : rc;
}

int put_all(MDB_txn *txn, MDB_dbi settings, std::string_view text)
{
    ConfigText lines{text};
    while (lines.next()) {
        MDB_val key{lines.key().size(), const_cast<char *>(lines.key().data())};
        MDB_val value{lines.value().size(), const_cast<char *>(lines.value().data())};
        const int rc = mdb_put(txn, settings, &key, &value, 0);
        if (rc != MDB_SUCCESS) {
            return rc;
        }
    }
    return MDB_SUCCESS;
}

/**
 * What a device starts with: the persistent file, or the factory defaults when there is none or
 * not one setting in it. A device without either starts empty.
 */
void read_initial(Buffer &out)
{
    for (const char *const path : {kPersistentFile, kDefaultsFile}) {
        Buffer text;
        if (read_file(path, text, kLargestConfig) && ConfigSummary{text.view()}.settings > 0) {
            out = static_cast<Buffer &&>(text);
            return;
        }
    }
}

int load_once(MDB_env *env, MDB_dbi *settings)
{
    MDB_txn *txn = nullptr;
    int rc = mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn);
    if (rc != MDB_SUCCESS) {
        return rc;
    }
    rc = mdb_dbi_open(txn, kSettings, 0, settings);
    if (rc == MDB_SUCCESS) {
        return mdb_txn_commit(txn);
    }
    mdb_txn_abort(txn);
    if (rc != MDB_NOTFOUND) {
        return rc;
    }
    Buffer initial;
    read_initial(initial);
    if ((rc = mdb_txn_begin(env, nullptr, 0, &txn)) != MDB_SUCCESS) {
        return rc;
    }
    rc = mdb_dbi_open(txn, kSettings, MDB_CREATE, settings);
    if (rc == MDB_SUCCESS) {
        rc = put_all(txn, *settings, initial.view());
    }
    if (rc != MDB_SUCCESS) {
        mdb_txn_abort(txn);
        return rc;
    }
    return mdb_txn_commit(txn);
}

int open_loaded(MDB_env **out, MDB_dbi *settings)
{
    MDB_env *env = nullptr;
    int rc = open_files(&env);
    if (rc == MDB_SUCCESS && (rc = load_once(env, settings)) != MDB_SUCCESS) {
        mdb_env_close(env);
    }
    if (rc == MDB_SUCCESS) {
        *out = env;
    }
    return rc;
}

}  // namespace

constinit std::atomic<Store *> Store::current{nullptr};

/**
 * Whose turn it is, in memory that all processes share. The engine locks the same by itself, but of
 * its locks a process can wait for ever: when the holder is killed after it gave one up and before
 * it woke the next, and another takes the free lock meanwhile, that one knows of nobody to wake.
 * Whoever has a turn here finds the engine's lock free.
 */
struct Store::Turns {
    std::atomic<bool> made;  // the first to open makes them
    pthread_mutex_t writing;
    pthread_mutex_t entering;  // the reader table
};

class CommitLock
{
  public:
    explicit CommitLock(Store &store) : threads_(store.committing_), processes_(kCommitLock) {}
    explicit operator bool() const { return static_cast<bool>(processes_); }

  private:
    MutexLock threads_;
    FileLock processes_;
};

/** One consistent view of the store, for as long as it lives. */
class Store::Snapshot
{
  public:
    explicit Snapshot(Store &store) : store_(store), txn_(store.take_snapshot()) {}
    ~Snapshot()
    {
        if (txn_ != nullptr) {
            store_.give_back(txn_);
        }
    }
    Snapshot(const Snapshot &) = delete;
    Snapshot &operator=(const Snapshot &) = delete;

    explicit operator bool() const { return txn_ != nullptr; }
    MDB_txn *get() const { return txn_; }

  private:
    Store &store_;
    MDB_txn *txn_;
};

bool Store::is_mine() const
{
    return fork_mark_ != nullptr ? fork_mark_->load(std::memory_order_relaxed) != 0
                                 : pid_ == getpid();
}

Store *Store::for_this_process()
{
    Store *seen = current.load(std::memory_order_acquire);
    if (seen != nullptr && seen->is_mine()) {
        return seen;
    }
    void *const memory = calloc(1, sizeof(Store));
    if (memory == nullptr) {
        return nullptr;
    }
    auto *const fresh = new (memory) Store{};
    fresh->fork_mark_ = make_fork_mark();
    fresh->pid_ = getpid();
    fresh->inherited_ = seen;
    pthread_mutex_init(&fresh->opening_, nullptr);
    pthread_mutex_init(&fresh->committing_, nullptr);
    // Another thread may have been faster; then its Store is in place and this one goes.
    if (current.compare_exchange_strong(seen, fresh, std::memory_order_acq_rel)) {
        return fresh;
    }
    if (fresh->fork_mark_ != nullptr) {
        munmap(const_cast<std::atomic<int> *>(fresh->fork_mark_),
               static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
    }
    free(memory);
    return seen;
}

Store *Store::open_slowly()
{
    Store *const store = for_this_process();
    return store != nullptr && store->open_environment() ? store : nullptr;
}

Store::Turns *Store::share_turns()
{
    const Fd fd{::open(kTurns, O_RDWR | O_CREAT | O_CLOEXEC, kPrivateFile)};
    if (!fd || posix_fallocate(fd.get(), 0, sizeof(Turns)) != 0) {
        return nullptr;
    }
    void *const memory =
        mmap(nullptr, sizeof(Turns), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    auto *const turns = static_cast<Turns *>(memory);
    if (!turns->made) {
        if (!make_mutex_for_all_processes(&turns->writing) ||
            !make_mutex_for_all_processes(&turns->entering)) {
            munmap(memory, sizeof(Turns));
            return nullptr;
        }
        turns->made = true;
    }
    return turns;
}

bool Store::open_environment()
{
    const MutexLock one_thread{opening_};
    if (env() != nullptr) {
        return true;
    }
    if (mkdir(kFolder, kPrivateFolder) != 0 && errno != EEXIST) {
        return false;
    }
    const FileLock one_process{kOpenLock};
    if (!one_process) {
        return false;
    }
    if (turns_ == nullptr && (turns_ = share_turns()) == nullptr) {
        return false;
    }
    const Turn entering{turns_->entering};
    MDB_env *env = nullptr;
    int rc = open_loaded(&env, &settings_);
    if (is_damage(rc)) {
        // What it held is lost; the device goes on with its committed configuration.
        unlink(kDataFile);
        unlink(kReaderTable);
        rc = open_loaded(&env, &settings_);
    }
    env_.store(env, std::memory_order_release);
    return rc == MDB_SUCCESS;
}

MDB_txn *Store::take_snapshot()
{
    for (auto &slot : idle_) {
        if (slot.load(std::memory_order_relaxed) == nullptr) {
            continue;
        }
        MDB_txn *const txn = slot.exchange(nullptr, std::memory_order_acquire);
        if (txn == nullptr) {
            continue;
        }
        if (mdb_txn_renew(txn) == MDB_SUCCESS) {
            return txn;
        }
        mdb_txn_abort(txn);
    }
    const Turn entering{turns_->entering};
    MDB_txn *txn = nullptr;
    int rc = mdb_txn_begin(env(), nullptr, MDB_RDONLY, &txn);
    if (rc == MDB_READERS_FULL) {
        mdb_reader_check(env(), nullptr);
        rc = mdb_txn_begin(env(), nullptr, MDB_RDONLY, &txn);
    }
    return rc == MDB_SUCCESS ? txn : nullptr;
}

void Store::give_back(MDB_txn *snapshot)
{
    mdb_txn_reset(snapshot);
    for (auto &slot : idle_) {
        MDB_txn *empty = nullptr;
        if (slot.compare_exchange_strong(empty, snapshot, std::memory_order_release,
                                         std::memory_order_relaxed)) {
            return;
        }
    }
    mdb_txn_abort(snapshot);
}

int Store::find(MDB_txn *txn, std::string_view key, std::string_view &value) const
{
    MDB_val wanted{key.size(), const_cast<char *>(key.data())};
    MDB_val found;
    const int rc = mdb_get(txn, settings_, &wanted, &found);
    if (rc == MDB_SUCCESS) {
        value = {static_cast<const char *>(found.mv_data), found.mv_size};
    }
    return rc;
}

bool Store::read(std::string_view key, char *out)
{
    const Snapshot snapshot{*this};
    std::string_view value;
    if (!snapshot || find(snapshot.get(), key, value) != MDB_SUCCESS ||
        value.size() >= CFM_VALUE_SIZE) {
        return false;
    }
    memcpy(out, value.data(), value.size());
    out[value.size()] = '\0';
    return true;
}

bool Store::holds(std::string_view key, std::string_view value)
{
    const Snapshot snapshot{*this};
    std::string_view stored;
    return snapshot && find(snapshot.get(), key, stored) == MDB_SUCCESS && stored == value;
}

/** Runs @p change in a write transaction; all of it happens or nothing. */
template <typename Change>
int Store::write(Change change)
{
    const Turn writing{turns_->writing};
    for (bool again = false;; again = true) {
        MDB_txn *txn = nullptr;
        int rc = mdb_txn_begin(env(), nullptr, 0, &txn);
        if (rc != MDB_SUCCESS) {
            return rc;
        }
        if ((rc = change(txn)) == MDB_SUCCESS) {
            rc = mdb_txn_commit(txn);
        } else {
            mdb_txn_abort(txn);
        }
        if (rc != MDB_MAP_FULL || again) {
            return rc;
        }
        const Turn entering{turns_->entering};
        mdb_reader_check(env(), nullptr);  // killed readers may hold what is missing
    }
}

bool Store::put(std::string_view key, std::string_view value)
{
    return write([&](MDB_txn *txn) {
               MDB_val name{key.size(), const_cast<char *>(key.data())};
               MDB_val text{value.size(), const_cast<char *>(value.data())};
               const int rc = mdb_put(txn, settings_, &name, &text, 0);
               return rc == MDB_SUCCESS ? check_size(txn, settings_) : rc;
           }) == MDB_SUCCESS;
}

bool Store::remove(std::string_view key)
{
    {
        const Snapshot snapshot{*this};
        std::string_view stored;
        if (!snapshot || find(snapshot.get(), key, stored) != MDB_SUCCESS) {
            return false;
        }
    }
    return write([&](MDB_txn *txn) {
               MDB_val name{key.size(), const_cast<char *>(key.data())};
               return mdb_del(txn, settings_, &name, nullptr);
           }) == MDB_SUCCESS;
}

int Store::dump(MDB_txn *txn, Buffer &out) const
{
    MDB_cursor *cursor = nullptr;
    int rc = mdb_cursor_open(txn, settings_, &cursor);
    if (rc != MDB_SUCCESS) {
        return rc;
    }
    MDB_val key;
    MDB_val value;
    while ((rc = mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) == MDB_SUCCESS) {
        if (!out.append({static_cast<const char *>(key.mv_data), key.mv_size}) ||
            !out.append("=") ||
            !out.append({static_cast<const char *>(value.mv_data), value.mv_size}) ||
            !out.append("\n")) {
            rc = ENOMEM;
            break;
        }
    }
    mdb_cursor_close(cursor);
    return rc == MDB_NOTFOUND ? MDB_SUCCESS : rc;
}

bool Store::dump(Buffer &out)
{
    const Snapshot snapshot{*this};
    return snapshot && dump(snapshot.get(), out) == MDB_SUCCESS;
}

bool Store::commit()
{
    const CommitLock lock{*this};  // before the look at the store: the last committer's is last
    Buffer text;
    NewPersistentFile file;
    return lock && dump(text) && file.write(text.view()) && file.put_in_place();
}

int Store::refill(MDB_txn *txn, std::string_view text) const
{
    int rc = mdb_drop(txn, settings_, 0);
    if (rc == MDB_SUCCESS) {
        rc = put_all(txn, settings_, text);
    }
    return rc == MDB_SUCCESS ? check_size(txn, settings_) : rc;
}

bool Store::replace(std::string_view text)
{
    const CommitLock lock{*this};
    if (!lock) {
        return false;
    }
    Buffer before;
    NewPersistentFile file;
    const int rc = write([&](MDB_txn *txn) {
        before = Buffer{};
        Buffer after;
        int step = dump(txn, before);
        if (step == MDB_SUCCESS) {
            step = refill(txn, text);
        }
        if (step == MDB_SUCCESS) {
            step = dump(txn, after);
        }
        if (step == MDB_SUCCESS && !file.write(after.view())) {
            step = EIO;
        }
        return step;
    });
    if (rc != MDB_SUCCESS) {
        return false;
    }
    if (!file.put_in_place()) {
        write([&](MDB_txn *txn) { return refill(txn, before.view()); });
        return false;
    }
    return true;
}

}  // namespace platform

/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Named locks between processes, and locks on open files.
 *
 * A named lock is a System V semaphore of one device. Its name is a printf format with arguments;
 * every "/" in the result counts as "_", and its first 113 characters count. The name becomes a key
 * through the key file "/var/run/lock.<name>" (created when missing) and ftok() with project id 1.
 * The one call that creates the semaphore, free, first appends a line to the registry
 * "/var/run/id.lock": key, id, process id, process name, key file. Semaphores stay until the device
 * restarts. Nothing is remembered between calls: each try looks the semaphore up again.
 *
 * A lock is held by the process, whichever thread took it, and the kernel releases it when that
 * process ends, however it ends; exec() keeps it, a child of fork() does not have it. It is not
 * re-entrant: a process that locks the same name twice waits for itself. ipc_unlock() of a free
 * lock lets two holders in afterwards, so the calls must be paired.
 *
 * All functions may be called from any thread of any process. Failures are logged at level 2 under
 * "prod"; a NULL name is one ("Failed to get sem id, invalid arguments."). All leave errno
 * undefined.
 */
#ifndef IPC_LOCK_H
#define IPC_LOCK_H

#include "prod_common_types.h"

PROD_BEGIN

/**
 * Takes a named lock, waiting for it without limit. It never gives up: what goes wrong (a signal, a
 * semaphore that cannot be had, a NULL name) is logged, and after a second it is tried again.
 * @return 1
 */
PROD_API int ipc_lock(const char *name, ...) PROD_PRINTF(1, 2);

/**
 * Takes a named lock if it is free now. One that is held elsewhere is logged at level 3 only.
 * @return 1 when taken, 0 when it is held or cannot be had
 */
PROD_API int ipc_lock_nowait(const char *name, ...) PROD_PRINTF(1, 2);

/**
 * Takes a named lock, trying every 100 ms for some time. Setting the clock changes nothing about
 * it.
 * @param seconds  whole seconds of the device's uptime, which may have begun the moment before;
 *                 at 0 and below it is tried once
 * @return 1 when taken; 0 when it was held all the time, or at once when it cannot be had
 */
PROD_API int ipc_lock_timeout(int seconds, const char *name, ...) PROD_PRINTF(2, 3);

/**
 * Releases a named lock. A signal during the call is logged and after a second it is tried again.
 * @return 1 when released, 0 when the semaphore cannot be had or raised
 */
PROD_API int ipc_unlock(const char *name, ...) PROD_PRINTF(1, 2);

/**
 * Takes a shared lock on a whole file, however long it grows, and waits for it without limit.
 *
 * The locks on files are POSIX record locks: they belong to the process, not to the thread or the
 * descriptor, are converted by another call, and go when the process closes any descriptor of that
 * file.
 * @param fd  open for reading
 * @return 1; 0 on failure, logged at level 2, which a signal is too
 */
PROD_API int fd_rlock(int fd);

/**
 * Takes an exclusive lock on a whole file; all else as with fd_rlock().
 * @param fd  open for writing
 */
PROD_API int fd_wlock(int fd);

/**
 * Removes this process's lock from a whole file.
 * @param fd  open file
 * @return 1, also when there was none; 0 on failure, logged at level 2
 */
PROD_API int fd_unlock(int fd);

PROD_END

#endif

/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Callbacks for files and folders that change.
 */
#ifndef PROD_COMMON_FNOTIFY_H
#define PROD_COMMON_FNOTIFY_H

#include "prod_common_types.h"

/**
 * Called when something happened to a watched path.
 * @param path  the path as it was given to fnotify_listen()
 * @param name  what changed in a watched folder; empty when it is the watched path itself
 */
typedef void (*fnotify_handler_t)(const char *path, const char *name);

PROD_BEGIN

/**
 * Calls a function whenever a file or folder changes: it, or what is in the folder, is written,
 * created, deleted or moved. Reading, opening, closing and changed attributes do not count.
 *
 * The callback learns that something happened, not what, and at least once: a deleted file is
 * reported a second time when its watch ends. Callbacks run one at a time, in the order of the
 * changes, on the process's one notification thread ("fnotify"), which the first call starts; that
 * first call should come from one thread, all others may come from any, the callbacks included. A
 * callback must not block for long and locks what it shares with other threads itself. The thread
 * does not survive fork(): a child that inherits watches gets no callbacks.
 *
 * There is no way to stop watching, and a path that was deleted and made again is not watched any
 * more. Of several callbacks for one file the first alone is called. Watched folders should hold
 * short file names. What the kernel's queue cannot hold while a callback blocks is lost.
 *
 * Failures are logged at level 2 under "prod": a path that cannot be watched (NULL is none), no
 * inotify instance, no thread, no memory (in which case the watch descriptor's number is closed as
 * if it were a file's: deliberate).
 *
 * @param path     copied
 * @param handler  NULL watches without being told
 * @return 1 when the path is watched, 0 on failure
 */
PROD_API int fnotify_listen(const char *path, fnotify_handler_t handler);

PROD_END

#endif

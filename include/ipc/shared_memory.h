/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Named System V shared memory.
 */
#ifndef IPC_SHARED_MEMORY_H
#define IPC_SHARED_MEMORY_H

#include "prod_common_types.h"

PROD_BEGIN

/**
 * Attaches the shared-memory segment of that name, creating it zero-filled on first use.
 *
 * The name becomes a key through the key file "/var/run/shm.<name>" (created when missing) and
 * ftok() with project id 1. The one call that creates the segment appends a line to the registry
 * "/var/run/id.shm": key, id, process id, process name, key file. Segments stay until the device
 * restarts. Each call adds an attachment, which the caller releases with shmdt().
 *
 * Messages go straight to standard output, since the log lines depend on a segment themselves; only
 * a key file that cannot be made is logged as well, by touch_file(). Any thread of any process may
 * call: of several that ask for a new name at once one creates it.
 *
 * @param name  at most 114 characters are used; one with "/" names a key file in a folder that
 *              must exist
 * @param size  bytes; a segment that exists and is smaller is not attached
 * @return the address, or NULL on any failure, which is printed; a segment that was created and
 *         cannot be attached stays, unregistered
 */
PROD_API void *get_shared_memory(const char *name, unsigned int size);

PROD_END

#endif

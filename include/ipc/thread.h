/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Named threads. The name is the one that the kernel's process listing shows.
 *
 * All functions may be called from any thread. Failures are logged at level 2 under "prod".
 */
#ifndef IPC_THREAD_H
#define IPC_THREAD_H

#include <pthread.h>

#include "prod_common_types.h"

/** What a thread runs. */
typedef void (*thread_body_t)(void *);

PROD_BEGIN

/**
 * Starts a thread named "thread", which runs a function once and ends.
 *
 * It is joinable and never joined by the library: one that returns keeps its stack until the
 * process ends, unless the caller joins it, so a body is expected to run for the process's life.
 * @param handler  the body
 * @param args     handed to it; stays the caller's
 * @return the thread's id; (pthread_t)-1 when @p handler is NULL (silently), when memory is
 *         short or the thread cannot be created, with errno telling which of the two
 */
PROD_API pthread_t start_thread(thread_body_t handler, void *args);

/**
 * Names the calling thread. The kernel keeps the first 15 characters.
 * @param format  printf format; at most 127 characters of the result are used
 * @return 1; 0 when the kernel refused, and silently for a NULL @p format
 */
PROD_API int set_thread_name(const char *format, ...) PROD_PRINTF(1, 2);

/**
 * The calling thread's name.
 * @return 32 bytes of the thread's own, valid for its life and overwritten by its next call; empty
 *         when the kernel refused
 */
PROD_API char *get_thread_name(void);

PROD_END

#endif

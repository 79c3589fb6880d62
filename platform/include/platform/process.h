/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Processes, commands and local messages.
 */
#ifndef PLATFORM_PROCESS_H
#define PLATFORM_PROCESS_H

#include "platform/types.h"

/** A frame for another daemon: Length bytes of Body, no terminating NUL. */
typedef struct {
    int Length;  /**< bytes in Body, host byte order */
    char Body[]; /**< allocate offsetof(HLX_MSG, Body) + Length */
} HLX_MSG, HLX_MSG_STRU;

PLATFORM_BEGIN

/**
 * Formats a command and runs it with /bin/sh, as system() does. The text may be of any length and
 * hold line breaks. Blocks until the command ends.
 * @return the status that system() gives, or -1
 */
PLATFORM_API int doSystemCmd(const char *format, ...) PLATFORM_PRINTF(1, 2);

/**
 * Writes formatted text to a file in one write; no shell is involved. The file is created when it
 * is missing (mode 0644). Keeps errno only as the failing call left it.
 *
 * @param path  the file
 * @param mode  0 replaces the contents, 1 appends
 * @return 0 on success, -1 on failure (errno tells)
 */
PLATFORM_API int do_file_cmd(const char *path, int mode, const char *format, ...)
    PLATFORM_PRINTF(3, 4);

/**
 * Whether a process of that name runs. The kernel keeps 15 characters of a process name.
 * @return non-zero when one does
 */
PLATFORM_API int monitor_check_exist(const char *process_name);

/**
 * Delivers one frame to the daemon that listens on a local stream socket: the 4-byte Length in
 * host order, then Body. Waits at most a second for a daemon that does not read.
 * @return 0 on success, a negative value on failure (errno tells)
 */
PLATFORM_API int hlx_proc_send_msg(HLX_MSG *frame, const char *socket_path);

PLATFORM_END

#endif

/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Processes, commands and local messages. Any thread may call any of these.
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
 * hold line breaks. Blocks until the command ends. The format's arguments enter the command as they
 * are: escaping what the shell would interpret is the caller's work.
 * @return the status that system() gives, or -1 for a NULL format or when memory is short
 */
PLATFORM_API int doSystemCmd(const char *format, ...) PLATFORM_PRINTF(1, 2);

/**
 * Writes formatted text to a file in one write, so that lines which several processes append stay
 * whole; no shell is involved. The file is created when it is missing (mode 0644, less the umask).
 *
 * @param path  the file
 * @param mode  0 replaces the contents, 1 appends
 * @return 0 on success, -1 on failure: errno is that of the failing call, ENOSPC when only a part
 *         could be written, EINVAL for a NULL argument
 */
PLATFORM_API int do_file_cmd(const char *path, int mode, const char *format, ...)
    PLATFORM_PRINTF(3, 4);

/**
 * Whether a process of exactly that name runs; one that has ended and waits for its parent does
 * not. The kernel keeps 15 characters of a process name, so only those are compared.
 * @return non-zero when one does, 0 also for NULL and the empty name
 */
PLATFORM_API int monitor_check_exist(const char *process_name);

/**
 * Sends a signal to every process of that name; as with monitor_check_exist(), 15 characters of it
 * are compared, and one that has ended does not count.
 * @param signo  the signal
 * @return 0 when at least one was sent it, else -1: errno is ESRCH when there is none, EPERM when
 *         the caller may not, EINVAL for a NULL or empty name or a signal that is none
 */
PLATFORM_API int proc_send_signal(const char *process_name, int signo);

/**
 * Stops a daemon and keeps it stopped until it, or the device, is started again. One that the
 * process monitor supervises is stopped through the monitor, which would restart it otherwise; any
 * other process of that name is asked to end. One that has not ended two seconds later is killed.
 * @return 0 when none runs any more, or none did, else -1: errno is EPERM when the caller may not,
 *         ETIMEDOUT when one does not even end when killed, EINVAL for a name that is NULL, empty,
 *         begins with a dot or holds a slash
 */
PLATFORM_API int monitor_stop(const char *process_name);

/**
 * Delivers one frame to the daemon that listens on a local stream socket: the 4-byte Length in
 * host order, then Body. Does not wait for an answer. A daemon that does not accept or read is
 * waited for at most a second at a time; one that closes early raises no SIGPIPE.
 * @param socket_path  where the daemon listens
 * @return 0 on success, a negative value on failure: errno is ENOENT or ECONNREFUSED when nobody
 *         listens, EAGAIN after the wait, EPIPE or ECONNRESET, EINVAL for a NULL argument, a
 *         negative Length or a path of 108 characters or more
 */
PLATFORM_API int hlx_proc_send_msg(HLX_MSG *frame, const char *socket_path);

PLATFORM_END

#endif

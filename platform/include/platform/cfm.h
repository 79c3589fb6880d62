/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Configuration manager: the device's key=value store.
 *
 * Keys are dotted lower-case names ("lan.ip", "wan1.connecttype"), values NUL-terminated text.
 * Many processes read and write the one working copy at once; CommitCfm() makes it persistent. The
 * working copy lasts until the device is switched off; a start of the device begins with the
 * persistent file or, when there is none, with the factory defaults.
 *
 * Every function may be called from any thread and any process, also in a child after fork(), but
 * not from a signal handler. Each operation on one key is atomic: a reader sees the old value or
 * the new one, whole. Nothing spans two keys. A process that is killed at any point harms no other.
 * Nothing is logged; the library does that.
 */
#ifndef PLATFORM_CFM_H
#define PLATFORM_CFM_H

#include "platform/types.h"

/** Bytes that hold any value with its NUL. A port never delivers more than this. */
#define CFM_VALUE_SIZE 2308

/** Longest key in bytes, without its NUL. */
#define CFM_KEY_MAX 511

PLATFORM_BEGIN

/**
 * Copies the value stored under @p key. Never blocks, apart from a process's first access, which
 * opens the store.
 *
 * @param key    name of the value
 * @param value  receives the text with its NUL; must have CFM_VALUE_SIZE bytes, since the store
 *               is given no length. Left untouched when the key is absent.
 * @return non-zero when the key was found (its value may be empty), 0 when it is absent, cannot
 *         be a key (NULL, empty or longer than CFM_KEY_MAX) or the store cannot be read; also for
 *         a NULL @p value
 */
PLATFORM_API int GetValue(const char *key, char *value);

/**
 * Stores @p value under @p key in the working copy. Storing what is already there writes nothing
 * and costs no more than a read. Waits for another writer, whose turn is short except while it
 * restores or uploads a whole configuration.
 *
 * @return 1 when stored; 0 when refused: an impossible key (also one that holds '=' or begins with
 *         '#'), a value of CFM_VALUE_SIZE bytes or more, a line break (carriage return included) in
 *         either, a NULL argument, or a working copy that is full or cannot be written. A refused
 *         value leaves the old one.
 */
PLATFORM_API int SetValue(const char *key, const char *value);

/**
 * Removes @p key from the working copy. Waits as SetValue() does.
 * @return 1 when it was there and is gone, 0 otherwise
 */
PLATFORM_API int UnSetValue(const char *key);

/**
 * Writes the working copy to persistent storage. A power cut leaves the old file or the new one.
 * Blocks until the storage has it, and while another process commits.
 * @return 1 on success; 0 when it could not be written, and the old file then stands
 */
PLATFORM_API int CommitCfm(void);

/**
 * Replaces the working copy by the factory defaults and commits it. Blocks as CommitCfm() does.
 * @return non-zero on success, 0 when the defaults cannot be read or hold no setting, or the
 *         result cannot be written; working copy and persistent file are then as they were
 */
PLATFORM_API int RestoreValue(void);

PLATFORM_END

#endif

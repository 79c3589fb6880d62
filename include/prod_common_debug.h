/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Debug levels and log lines.
 *
 * Every program of the device logs through prod_debug(). Whether a line is written depends on the
 * level of its module, kept in one System V shared-memory table of the whole device, named
 * "prod.debug.info": a level that an operator sets is seen by every running process at its next log
 * call. Error lines (level 2) are always written and are also kept in "/var/debug.<module>.log".
 *
 * Programs log through the PROD_LOG_* macros below, which test the level before any argument is
 * evaluated and record the calling function and line.
 *
 * All functions may be called from any thread of any process; the table is read and written
 * without a lock, so a reader that races with set_dbg_level() may misjudge one line.
 */
#ifndef PROD_COMMON_DEBUG_H
#define PROD_COMMON_DEBUG_H

#include "prod_common_types.h"

/** Debug levels, least to most talkative. */
typedef enum {
    PROD_DBG_OFF = 0,   /**< the module is not registered */
    PROD_DBG_FUNC = 1,  /**< "F", blue */
    PROD_DBG_ERROR = 2, /**< "E", red; written whatever the module's level */
    PROD_DBG_DEBUG = 3, /**< "D", cyan */
    PROD_DBG_INFO = 4,  /**< "I", white */
    PROD_DBG_TRACE = 5, /**< "T", without colour */
    PROD_DBG_LVL_NUM = 6
} prod_dbg_lvl_t;

/** Modules that the table holds. */
#define PROD_DBG_MODULE_MAX 100

/** Bytes of a module's name with its NUL. */
#define PROD_DBG_NAME_SIZE 32

/** One registered module. The layout is shared by every process of the device. */
typedef struct {
    char name[PROD_DBG_NAME_SIZE];
    unsigned int valid : 1;  /**< 1 = slot in use */
    unsigned int level : 31; /**< a prod_dbg_lvl_t */
} prod_dbg_cb_t;

/** The shared table, all zero when it is created. */
typedef struct {
    unsigned short max_name_len; /**< longest name ever registered: width of the module column */
    unsigned short num;          /**< valid slots */
    prod_dbg_cb_t array[PROD_DBG_MODULE_MAX];
} prod_dbg_info_t;

PROD_BEGIN

/**
 * This process's attachment of the table. The first success attaches and is remembered; later
 * calls make no system call.
 *
 * @return the table, or NULL when it cannot be had (after printing "Failed to get shared
 *         memory!"); the next call tries again. The library owns it; never detach it.
 */
PROD_API prod_dbg_info_t *get_dbg_info(void);

/**
 * The level of a module. A suppressed message costs no more than this look-up: no system call, no
 * allocation.
 *
 * @param name  module name, case-sensitive
 * @return its level; PROD_DBG_OFF when nobody registered it, and also, after printing "invalid
 *         parameters", when @p name is NULL or the table cannot be had
 */
PROD_API prod_dbg_lvl_t get_dbg_level(const char *name);

/**
 * Registers, changes or removes a module. Meant for one operator tool at a time; nothing in the
 * library calls it.
 *
 * @param name   module name; its first 31 characters count
 * @param level  the new level; PROD_DBG_OFF removes the module
 * @return 1 when the table was changed (also for an unknown module at level 0, which leaves no
 *         trace but may widen the module column); 0 when @p name is NULL or the table cannot be
 *         had (both said on standard output), or 100 modules are registered already. A failure to
 *         detach the table again is said there too and changes nothing about the result.
 */
PROD_API int set_dbg_level(const char *name, prod_dbg_lvl_t level);

/**
 * Prints the table to standard output; without a table nothing but the complaint of
 * get_dbg_info().
 * @param name  the one module to print; NULL or empty prints all with a heading
 */
PROD_API void show_dbg_level(const char *name);

/**
 * Writes one log line of at most 10239 characters.
 *
 * The line goes to standard output in the level's colour (levels 0 to 4 and above 5 are flushed,
 * level 5 is not); an error line is also appended, with its date, to "/var/debug.<name>.log",
 * which starts again once it holds 204800 bytes. A line that cannot be written is lost silently.
 * Nothing is allocated. errno is kept.
 *
 * @param func    name of the calling function; NULL writes nothing
 * @param line    source line of the call
 * @param level   a prod_dbg_lvl_t; 2 is always written, others when the module's level is at
 *                least that
 * @param name    module; NULL writes nothing but the complaint of get_dbg_level()
 * @param format  printf format; trailing newlines are replaced by exactly one, and a NUL among the
 *                arguments ends the message
 */
PROD_API void prod_debug(const char *func, int line, int level, const char *name,
                         const char *format, ...) PROD_PRINTF(5, 6);

/** The letter of a level: "FEDIT" for 1 to 5, '-' for any other value. */
PROD_API char level2char(prod_dbg_lvl_t level);

/** The console foreground colour of a level; -1 means without colour, 30 stands for all others. */
PROD_API signed char level2color(prod_dbg_lvl_t level);

PROD_END

/** Writes an error line; not gated, since errors are always written. */
#define PROD_LOG_ERROR(module, ...) \
    prod_debug(__func__, __LINE__, PROD_DBG_ERROR, (module), __VA_ARGS__)

/** Writes a line of level 3 to 5 when the module's level allows; else evaluates no argument. */
#define PROD_LOG_GATED(level, module, ...)                                  \
    do {                                                                    \
        if (get_dbg_level(module) >= (level)) {                             \
            prod_debug(__func__, __LINE__, (level), (module), __VA_ARGS__); \
        }                                                                   \
    } while (0)

#define PROD_LOG_DEBUG(module, ...) PROD_LOG_GATED(PROD_DBG_DEBUG, module, __VA_ARGS__)
#define PROD_LOG_INFO(module, ...) PROD_LOG_GATED(PROD_DBG_INFO, module, __VA_ARGS__)
#define PROD_LOG_TRACE(module, ...) PROD_LOG_GATED(PROD_DBG_TRACE, module, __VA_ARGS__)

/** Function entry and exit traces. */
#define PROD_LOG_ENTER(module) PROD_LOG_TRACE(module, "ENTER >>> %s", __func__)
#define PROD_LOG_LEAVE(module) PROD_LOG_TRACE(module, "LEAVE <<< %s", __func__)

#endif

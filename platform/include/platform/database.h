/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Record database: the device's tables of records, such as DHCP pools and port-forwarding rules.
 *
 * A database is named ("default") and persistent; it holds tables, a table rows. A row has an id,
 * which is never given to another row, and one value for each column of its table. A program
 * describes a table by its columns and gets a handle, through whose members it works:
 *
 *     static const db_col_t columns[] = {{0, "host", DB_STRING, 1, 64}, {1, "port", DB_INT, 0, 0}};
 *     db_table servers;
 *     if (db_table_init("default", &servers, "servers", columns, 2) != 0) {
 *         db_row_t *row = servers.find(&servers, 0, "printer", 0);
 *         ...
 *         free(row);
 *     }
 *
 * Many processes may use a database at once, each with any number of threads, also a child after
 * fork() with the handles it inherited. Each operation is atomic and, once it has returned, safe
 * from a power cut; so is a series between lock() and unlock(). A process that is killed at any
 * point leaves whole rows. Every operation may block: for as long as another process writes, 5
 * seconds at most, while another thread of the process is in a call or holds the lock, and until
 * the storage has what was written. No operation may be called from a signal handler. Nothing is
 * logged.
 */
#ifndef PLATFORM_DATABASE_H
#define PLATFORM_DATABASE_H

#include "platform/types.h"

/** Most columns of a table. */
#define DB_COLUMN_MAX 64

/** Largest length of a text column, in bytes. */
#define DB_LENGTH_MAX 65536

PLATFORM_BEGIN

typedef enum { DB_INT = 0, DB_STRING = 1 } db_type_t;

/** A column of a table; in the order in which column tables are written. */
/* NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding) */
typedef struct {
    int index;        /**< its place in the table, from 0 */
    const char *name; /**< any text; "_id" is taken */
    db_type_t type;
    int unique; /**< non-zero: no two rows have the same value; rows without one do not count */
    int length; /**< DB_STRING: bytes of the longest text with its NUL; DB_INT: not used */
} db_col_t;

/** The value of a column; its type tells which member. */
typedef union {
    int n;   /**< DB_INT */
    char *s; /**< DB_STRING; NULL: no value */
} db_val_t;

/**
 * A row as it was when it was read. It is one block of memory with all its texts: free(row)
 * releases a row that find() or get() returned; the rows of a listing belong to the listing.
 */
typedef struct db_row {
    struct db_row *next; /**< the next row of a listing; NULL in the last one and outside of one */
    int id;              /**< above 0 */
    int refer;           /**< 0; for whoever holds the row, the database does not look at it */
    int col_num;
    db_val_t *values; /**< col_num of them; what they point to may be replaced, not written */
} db_row_t;

/** A listing. */
typedef struct db_result {
    db_row_t *rows; /**< the first row, NULL when there is none; in the order of their ids */
    int row_num;
    char **col_names; /**< col_num texts */
    int col_num;
    int inited; /**< 1 while there is something to release */
    /** Releases all of it, once; nothing happens when all() found no rows. */
    void (*free)(struct db_result *result);
} db_result;

/**
 * A table. The handle may be copied and moved; it holds no resource of its own. Each operation
 * fails for a NULL argument, and while the database is missing, damaged, locked for longer than 5
 * seconds or, to change it, read-only or full.
 */
typedef struct db_table {
    /**
     * The row of the smallest id in which a column has a value.
     * @param column  the column's place
     * @param value   a text for DB_STRING, the address of an int for DB_INT; compared exactly
     * @param flags   0; for anything else no row is found
     * @return the row, to be released with free(); NULL when there is none, or on failure
     */
    db_row_t *(*find)(struct db_table *table, int column, const void *value, int flags);

    /** The row of an id, to be released with free(); NULL when there is none, or on failure. */
    db_row_t *(*get)(struct db_table *table, int row_id);

    /**
     * Replaces all values of a row.
     * @param values  one per column
     * @return non-zero when stored; 0 when there is no such row, a text has as many bytes as its
     *         column's length or more, a unique value is another row's, or on failure. The row is
     *         then as it was.
     */
    int (*set)(struct db_table *table, int row_id, const db_val_t *values);

    /**
     * Lists all rows.
     * @param result  overwritten, whatever it held
     * @return non-zero when it holds rows; 0, and nothing to release, when there are none or on
     *         failure
     */
    int (*all)(struct db_table *table, db_result *result);

    /**
     * Begins a series of changes, of this table or others of the same database, by the calling
     * thread: all of them become visible to others and permanent at unlock(), together. Until then
     * other threads of the process wait, other processes read what was there before and cannot
     * write. Locks nest; the outermost counts. A child that the thread makes with fork() inside the
     * series cannot use the database; a fork() by another thread waits for the end of the series.
     * @return non-zero on success; 0 when it cannot be had, and changes are then made one by one
     */
    int (*lock)(struct db_table *table);

    /**
     * Ends the series that the calling thread began.
     * @return non-zero when all that was reported as changed is stored; 0 when there was no series,
     *         or when it could not be stored: the database is then as it was before lock()
     */
    int (*unlock)(struct db_table *table);

    /**
     * Adds a row.
     * @param values  one per column
     * @return its id, above 0; 0 when refused, for the reasons of set()
     */
    int (*add)(struct db_table *table, const db_val_t *values);

    /** Removes a row. @return non-zero when it was there and is gone */
    int (*del)(struct db_table *table, int row_id);

    const db_col_t *columns; /**< a copy of the columns, as good as the process lasts */
    int col_num;
    void *port; /**< the database's own */
} db_table;

/**
 * Fills the handle of a table. The database and the table are made when they are missing; a table
 * that lacks a column gets it, and its rows have no value there (0 for DB_INT). Columns of the
 * table that are not named are left alone. Cheap for a table that this process has asked for
 * before.
 *
 * @param db_name     at most 63 characters, no slash, no dot in front
 * @param table       overwritten
 * @param table_name  any text that does not start with "sqlite_"
 * @param columns     column_count of them, 1 to DB_COLUMN_MAX; in the order of their index, which
 *                    counts from 0, with different names and lengths of 2 to DB_LENGTH_MAX. Copied.
 * @return non-zero on success; 0 when an argument is not as described, the database is locked for
 *         longer than 5 seconds, is no database, or lacks the table and cannot be written. The
 *         handle's operations then all fail.
 */
PLATFORM_API int db_table_init(const char *db_name, db_table *table, const char *table_name,
                               const db_col_t *columns, int column_count);

/**
 * Appends a database to a backup file, as a section of text that holds all its tables as they are
 * at one moment. The text never contains "crc=" nor "##the ... configure end##", whatever bytes the
 * values hold. A missing database has no tables. Waits for a writer as the operations above do.
 *
 * @param table  the name of the database
 * @param file   made when it is missing, readable by its owner only
 * @return non-zero on success; 0, and the file is as it was, when the name is none, the database
 *         cannot be read or the file cannot be written
 */
PLATFORM_API int db_backup_save(const char *table, const char *file);

/**
 * Makes the rows of a database those of its section in a backup file. Tables and columns that are
 * missing are made, tables that the section does not know are emptied, all in one transaction. Ids
 * go on counting from the higher of now and then. Not for a thread that holds the database's lock.
 *
 * @param table   the name of the database
 * @param buffer  the whole file and a NUL; what stands behind the first "crc=" does not count, of
 *                several sections of the database the last does
 * @return non-zero on success; 0, and the database is as it was, when the name is none, the section
 *         is missing or damaged in any way, or the database cannot be written
 */
PLATFORM_API int db_backup_load(const char *table, const char *buffer);

PLATFORM_END

#endif

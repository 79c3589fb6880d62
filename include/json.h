/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Shorthands over cJSON: typed getters with defaults, adders for arrays, and adders that put a
 * configuration value, under its key or a formatted one, into an object.
 *
 * None of these functions reports anything. Where an argument is NULL, or cJSON finds no memory,
 * nothing is added and nothing leaks. Texts are copied into the tree, which the caller owns. A tree
 * may be used by one thread at a time.
 */
#ifndef PROD_JSON_H
#define PROD_JSON_H

#include <cjson/cJSON.h>

#include "prod_common_types.h"

PROD_BEGIN

/**
 * The integer of a member.
 * @param root  an object; as in cJSON, the case of @p name does not count
 * @return its value as cJSON holds it (limited to the range of int), or @p default_value when there
 *         is no such member or it is not a number
 */
PROD_API int cJSON_GetInt(cJSON *root, const char *name, int default_value);

/** As cJSON_GetInt(), with the fraction. */
PROD_API double cJSON_GetDouble(cJSON *root, const char *name, double default_value);

/** 1 for a member true, 0 for false; @p default_value for anything else, numbers included. */
PROD_API int cJSON_GetBool(cJSON *root, const char *name, int default_value);

/**
 * The text of a member.
 * @return the tree's own text, not a copy: it lives as long as the member; @p default_value, as it
 *         was passed, when there is no such member or it is not a text
 */
PROD_API char *cJSON_GetString(cJSON *root, const char *name, const char *default_value);

/** Appends null to an array. */
PROD_API void cJSON_AddNullToArray(cJSON *object);
/** Appends true to an array. */
PROD_API void cJSON_AddTrueToArray(cJSON *object);
/** Appends false to an array. */
PROD_API void cJSON_AddFalseToArray(cJSON *object);
/** Appends true for any @p value but 0, else false, to an array. */
PROD_API void cJSON_AddBoolToArray(cJSON *object, int value);
/** Appends a number to an array. */
PROD_API void cJSON_AddNumberToArray(cJSON *object, double value);
/** Appends a text to an array. */
PROD_API void cJSON_AddStringToArray(cJSON *object, const char *value);

/**
 * Adds a formatted text, cut to 255 characters, as a member.
 * @param fmt  printf format of the text
 */
PROD_API void cJSON_AddFormatStringToObject(cJSON *object, const char *jsonName, const char *fmt,
                                            ...) PROD_PRINTF(3, 4);

/**
 * Adds the value of a configuration key, or @p defaultVal when that is absent or empty. With a
 * NULL default such a key adds nothing.
 */
PROD_API void cJSON_AddMibStringToObject(cJSON *object, const char *jsonName, const char *key,
                                         const char *defaultVal);

/** As cJSON_AddMibStringToObject(), as a number: the integer the value starts with, else 0. */
PROD_API void cJSON_AddMibIntToObject(cJSON *object, const char *jsonName, const char *key,
                                      int defaultVal);

/** As cJSON_AddMibIntToObject(), as true for any number but 0. */
PROD_API void cJSON_AddMibBoolToObject(cJSON *object, const char *jsonName, const char *key,
                                       int defaultVal);

/**
 * Adds the value of the configuration key formatted from @p fmt (511 characters at most), or
 * @p defaultVal when the key is absent. Other than with a fixed key, one that holds the empty text
 * has a value: the empty text.
 */
PROD_API void cJSON_AddFormatMibStringToObject(cJSON *object, const char *jsonName,
                                               const char *defaultVal, const char *fmt, ...)
    PROD_PRINTF(4, 5);

/** As cJSON_AddFormatMibNumToObject(), as true for any number but 0. */
PROD_API void cJSON_AddFormatMibBoolToObject(cJSON *object, const char *jsonName, int defaultVal,
                                             const char *fmt, ...) PROD_PRINTF(4, 5);

/**
 * As cJSON_AddFormatMibStringToObject(), as a number: the integer at the start of the value's
 * first 20 characters, 0 when there is none.
 */
PROD_API void cJSON_AddFormatMibNumToObject(cJSON *object, const char *jsonName, int defaultVal,
                                            const char *fmt, ...) PROD_PRINTF(4, 5);

/**
 * As cJSON_AddFormatMibNumToObject(), with the fraction, of the value's first 255 characters; the
 * key has 255 characters at most and the default is an integer.
 */
PROD_API void cJSON_AddFormatMibDoubleToObject(cJSON *object, const char *jsonName, int defaultVal,
                                               const char *fmt, ...) PROD_PRINTF(4, 5);

/** Adds whether "<dir>/<file>", cut to 255 characters, exists. */
PROD_API void cJSON_AddFileStatusToObject(cJSON *object, const char *jsonName, const char *dir,
                                          const char *file);

PROD_END

#endif

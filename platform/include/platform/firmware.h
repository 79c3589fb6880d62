/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Firmware checks: what an image for this device looks like, and what fits its flash. Any thread
 * may call any of these; they block for the time that reading the image takes.
 *
 * What fails is told by the result and, in words, by one line of the platform's log
 * (log_debug_print(), level 2, module "firmware").
 */
#ifndef PLATFORM_FIRMWARE_H
#define PLATFORM_FIRMWARE_H

#include "platform/types.h"

/** Image types, of those that a header can name, with a meaning for the library. */
typedef enum {
    FW_TYPE_FLASH = 2,  /**< what the flash of the device takes */
    FW_TYPE_BUNDLE = 4, /**< several parts in one; has a checksum, but is not written */
    FW_TYPE_BUTT = 256  /**< first number that is no type */
} fw_type_t;

/** Why an image is refused. All are negative; a port may use one for several reasons. */
typedef enum {
    FW_CHECK_READ = -1,        /**< the file cannot be read */
    FW_CHECK_FORMAT = -2,      /**< no firmware image at all */
    FW_CHECK_HEADER_CRC = -3,  /**< its header is damaged */
    FW_CHECK_LENGTH = -4,      /**< shorter or longer than its header says */
    FW_CHECK_DATA_CRC = -5,    /**< its contents are damaged */
    FW_CHECK_TYPE = -6,        /**< of another type than the one given */
    FW_CHECK_BOARD = -7,       /**< made for another board */
    FW_CHECK_TOO_LARGE = -8,   /**< larger than the flash partition */
    FW_CHECK_NO_PARTITION = -9 /**< the board has no partition for it, or none of known size */
} fw_check_t;

PLATFORM_BEGIN

/**
 * The type of an image in memory. Only what marks an image is looked at; whether it is whole is
 * check_fw_crc()'s question.
 * @param size  bytes of the image
 * @return 0 to 255, what the header says; FW_CHECK_FORMAT, and nothing to log, for what is no image
 *         and for NULL
 */
PLATFORM_API int check_fw_type(const char *image, long size);

/**
 * Whether an image in memory is whole: header and contents match their checksums, and nothing is
 * missing or too much.
 * @param type  what check_fw_type() returned
 * @param size  bytes of the image
 * @return 0; negative, a fw_check_t, when it is not
 */
PLATFORM_API int check_fw_crc(int type, const char *image, long size);

/**
 * Whether a file is an image of that type for this board, by its header and its length. The
 * contents are not read: they are check_fw_crc()'s.
 * @return 0; negative, a fw_check_t, when it is not
 */
PLATFORM_API int check_fw_valid(int type, const char *path);

/**
 * Whether the file of an image fits the flash partition that images of that type are written to.
 * @return 0; negative, a fw_check_t, when it does not or when either size cannot be had
 */
PLATFORM_API int check_mtd_size(int type, const char *path);

PLATFORM_END

#endif

/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Firmware images: their checks, and the upgrade.
 *
 * Who receives an image (web server, cloud control daemon, application manager, IMS daemon) stores
 * it in PROD_FW_IMAGE, checks it, and starts the upgrade. An upgrade goes one way: once
 * prod_upgrade_kill_public_process() has run, the hardware watchdog is off, the daemons are stopped
 * and the LAN bridge is down until the device restarts.
 *
 * All functions may be called from any thread, but nothing is locked: that two upgrades do not run
 * at once is the callers' business.
 */
#ifndef PROD_COMMON_FLASH_H
#define PROD_COMMON_FLASH_H

#include "prod_common_types.h"

/** Where a received image is stored. */
#define PROD_FW_IMAGE "/var/image"

/** While this file exists, a rejected image is kept instead of deleted. */
#define PROD_FW_KEEP_MARKER "/var/upgrade_fw"

/** The largest image that is taken, in bytes. */
#define PROD_FW_LARGEST 67108864

/** Result of the checks. */
typedef enum {
    FW_VALID_IMAGE = 0,
    FW_INVALID_FORMAT = -1, /**< of a type that is not written here, or no valid image */
    FW_INVALID_CRC = -2,    /**< a checksum does not match */
    FW_INVALID_SIZE = -3,   /**< larger than its flash partition */
    FW_UPLOAD_ERROR = -4,   /**< no image was given */
    FW_NO_MEMORY = -5       /**< not in use */
} FW_RET_ENUM;
typedef FW_RET_ENUM FW_RET;

/** The daemon that started an upgrade and must survive it. */
typedef enum {
    UPGRADE_HTTPD = 0,     /**< web server */
    UPGRADE_SKYRELCTL = 1, /**< cloud control daemon */
    UPGRADE_APPMGR = 2,    /**< application manager */
    UPGRADE_IMSD = 3,      /**< IMS daemon */
    UPGRADE_BUTT = 4
} SYSTEM_UPGRADE_TYPE_ENUM;
typedef SYSTEM_UPGRADE_TYPE_ENUM SYSTEM_UPGRADE_TYPE;

PROD_BEGIN

/** The type that the last prod_systool_simple_upload() of this process found in its image. */
PROD_API extern int g_fw_type;

/**
 * Tells the type of an image in memory and checks its checksum, which types 2 and 4 have. Any other
 * type passes: flash_check_fw() is what refuses it. Logs entry and success at level 5, module
 * "prod".
 *
 * @param pBufStart  the image
 * @param fw_type    receives what the platform's check_fw_type() says; may be NULL
 * @param size       bytes of the image
 * @return FW_VALID_IMAGE; FW_INVALID_CRC, @p fw_type written; FW_UPLOAD_ERROR for a NULL
 *         @p pBufStart (logged at level 2, module "prod"), @p fw_type then untouched
 */
PROD_API FW_RET_ENUM flash_check_fw_type_and_crc(const char *pBufStart, int *fw_type, long size);

/**
 * Checks the file of an image: the type, of which only 2 is written on this device, whether the
 * image is valid for the device, and whether it fits the flash partition. A rejected file is
 * deleted, unless PROD_FW_KEEP_MARKER exists; one that does not fit is always deleted. Logs entry
 * and success at level 5, what is wrong at level 2, module "prod".
 *
 * @param firmware  path of the file
 * @param fw_type   as flash_check_fw_type_and_crc() found it
 * @return FW_VALID_IMAGE, FW_INVALID_FORMAT or FW_INVALID_SIZE; FW_INVALID_FORMAT for a NULL path
 */
PROD_API FW_RET_ENUM flash_check_fw(const char *firmware, int fw_type);

/**
 * Checks an uploaded image: its type and checksum in memory, the rest in the file PROD_FW_IMAGE,
 * which must hold the same image already and may be deleted (see flash_check_fw()). Sets g_fw_type.
 * Entry and success go to the platform's log, module "common_so"; a rejection is logged at level 3,
 * module "prod".
 * @param pbuf  the image
 * @param size  its bytes
 * @return 0, or the negative FW_RET_ENUM of the check that failed
 */
PROD_API int prod_systool_simple_upload(char *pbuf, long size);

/**
 * One of the file operations of the web interface.
 *
 * @param type  FILE_OPERATE_SIMPLE_UPGRADE: prod_systool_simple_upload();
 *              FILE_OPERATE_UPLOAD: prod_systool_cfg_upload();
 *              FILE_OPERATE_DOWNLOAD: prod_systool_sys_cfg_download()
 * @param buf   what that function takes; for a download it receives the file's name
 * @param size  bytes of @p buf; not used for a download
 * @return what that function returns; -1 for any other type (logged at level 2, module "prod")
 */
PROD_API int systool_file_handle(FILE_OPERATE_ENUM type, char *buf, long size);

/**
 * Checks the image in PROD_FW_IMAGE and starts its writing. Frees the page cache first, and prints
 * the memory that is left to standard output. The image is mapped, not copied. Returns as soon as
 * the writing thread is started, so that the caller can answer who asked for the upgrade; blocks
 * for the time that reading the file takes.
 *
 * @return 0 when the image is good, also when the writer's thread could not be started, which
 *         prod_systool_call_writeImage() logs. -1, and no daemon was stopped, when it is missing,
 *         empty or larger than PROD_FW_LARGEST, cannot be read, or is rejected: it is then deleted
 *         as flash_check_fw() says. The reason is logged at level 2, module "prod".
 */
PROD_API int prod_upgrade_image_to_flash(void);

/**
 * Starts a thread that runs prod_systool_write_image() until the device restarts. A thread that
 * cannot be started is logged at level 2, module "prod".
 */
PROD_API void prod_systool_call_writeImage(void);

/**
 * What the writing thread does: stops the daemons with prod_upgrade_kill_public_process() for
 * UPGRADE_IMSD, then runs the tool "upgrade" on PROD_FW_IMAGE, with type 2 and the name of the
 * calling process. The tool writes the flash and reboots; when it refuses or fails it says so on
 * the console, and this function returns.
 * @param arg  not used
 * @return NULL
 */
PROD_API void *prod_systool_write_image(void *arg);

/**
 * Frees the device for an upgrade: disables the hardware watchdog, stops the multi-WAN manager, the
 * daemons of each WAN ("wans.flag" of them, 64 at most), the others, and the upgrade's other
 * initiators, then takes the LAN bridge down. Nothing starts them again but a restart. Blocks while
 * daemons take their time to stop.
 * @param type  the initiator that goes on running
 */
PROD_API void prod_upgrade_kill_public_process(SYSTEM_UPGRADE_TYPE_ENUM type);

/**
 * Stops the three of the four upgrade initiators that are not @p type. UPGRADE_BUTT and above stop
 * none and are logged at level 2, module "prod".
 */
PROD_API void kill_other_upgrade_process(SYSTEM_UPGRADE_TYPE_ENUM type);

PROD_END

#endif

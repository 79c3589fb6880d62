/* SPDX-License-Identifier: MIT */
/**
 * @file
 * USB storage: the disks that are attached, and the room on their partitions, which web pages read
 * from "/tmp/UsbVolumeInfo".
 *
 * The file holds one record after the other, without line breaks: "%s:%.6fG*%.6fG*%.6fG*%.6fG~",
 * the partition's name and its total, used, free and available room in units of 2^30 bytes.
 * Available is what is left for unprivileged users. A reader that wants the file whole takes a
 * shared flock() of it.
 *
 * All functions may be called from any thread. What they log goes to module "prod".
 */
#ifndef PROD_COMMON_USB_H
#define PROD_COMMON_USB_H

#include "prod_common_types.h"

/** Bytes that hold any one record with its NUL. */
#define PROD_USB_RECORD_SIZE 512

PROD_BEGIN

/**
 * Names of the USB disks: the block devices that begin with "sd", with a blank between them. Waits
 * one second and tries once more when "/sys/block" cannot be opened.
 *
 * @param DiskName  receives the names; zeroed first. The first name that does not fit and those
 *                  after it are left out.
 * @param buf_size  bytes of @p DiskName
 * @return HLX_OK when there is a disk, even when its name does not fit; HLX_ERR when there is none,
 *         and, logged at level 2 as "Null param.", without a buffer
 */
PROD_API HLX_RETURN_CODE prod_common_usb_get_diskname(char *DiskName, int buf_size);

/**
 * Appends the record of one partition to a text: what statfs() tells of the folder of that name in
 * "/var/etc/upan", or "0.0G" and zero figures when it cannot be queried (logged at level 2).
 *
 * @param partitionName  255 characters of it count, and of the folder's path 126
 * @param tmpInfobuf     the text; the record stands behind its first @p totalSize bytes, where
 *                       PROD_USB_RECORD_SIZE more bytes must be
 * @return the new length of the text; 0 when an argument is NULL or @p totalSize is negative
 *         (logged at level 2 as "param error.")
 */
PROD_API int prod_common_write_usb_volume_to_file(const char *partitionName, char *tmpInfobuf,
                                                  int totalSize);

/**
 * Writes "/tmp/UsbVolumeInfo" anew, under an exclusive flock(): a record for each entry of
 * "/var/etc/upan" that begins as a disk's name does (three characters count), or for the disk
 * itself when it has none. Records beyond 1023 bytes in all are left out. A file that cannot be
 * opened is silently not written.
 * @return HLX_OK; HLX_ERR and the file as it was when there is no disk (logged at level 3) or no
 *         "/var/etc/upan" (logged at level 2)
 */
PROD_API HLX_RETURN_CODE prod_common_get_usbvolume(void);

PROD_END

#endif

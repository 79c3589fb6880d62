/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Enums and records that several areas share. What holds for every function of the library
 * (threads, ownership, outputs on failure) stands in docs/api-defaults.md.
 */
#ifndef PROD_COMMON_TYPES_H
#define PROD_COMMON_TYPES_H

#include "platform/types.h"

#ifdef __cplusplus
#define PROD_BEGIN extern "C" {
#define PROD_END }
#else
#define PROD_BEGIN
#define PROD_END
#endif

/** Marks an exported function or data item; abi/prod_common.map holds the same names. */
#define PROD_API __attribute__((visibility("default")))

/** Lets the compiler check a printf-style format against its arguments. */
#define PROD_PRINTF(format_at, first_argument_at) \
    __attribute__((format(printf, format_at, first_argument_at)))

/** Platform-wide result. Many functions return other values instead; each says so. */
typedef enum { HLX_OK = 0, HLX_ERR = 1, HLX_BUTT = 2 } HLX_RETURN_CODE;

/** Platform-wide truth value. */
typedef enum { HLX_BOOL_FALSE = 0, HLX_BOOL_TRUE = 1, HLX_BOOL_BUTT = 2 } HLX_BOOL_TYPE;

/** WAN ids are 1-based; 0 means none. */
typedef enum {
    WAN_ID_0 = 0,
    WAN_ID_1 = 1,
    WAN_ID_2 = 2,
    WAN_ID_3 = 3,
    WAN_ID_4 = 4,
    WAN_ID_BUTT = 5
} WAN_ID_NUM_ENUM;
typedef WAN_ID_NUM_ENUM WAN_ID_NUM;

/** "sys.mode": how the device meets its access line. */
typedef enum {
    HLX_SYS_MODE_ADSL_GW = 1,
    HLX_SYS_MODE_ADSL_BR = 2,
    HLX_SYS_MODE_GW = 3,
    HLX_SYS_MODE_BUTT = 4 /**< not set */
} HLX_SYS_WORK_MODE_ENUM;

/** "sys.workmode" with the radios' work modes: what the device is in its network. */
typedef enum {
    QX_ROUTE_MODE = 0,
    QX_WISP_MODE = 1,
    QX_APCLIENT_MODE = 2,
    QX_AP_MODE = 3,
    QX_FAULT = 4
} QX_SYSMODE;

/** "wan%d.connecttype". */
typedef enum {
    HLX_WAN_CONNECT_DHCP = 0,
    HLX_WAN_CONNECT_STATIC = 1,
    HLX_WAN_CONNECT_PPPOE = 2,
    HLX_WAN_CONNECT_PPTP = 3,
    HLX_WAN_CONNECT_L2TP = 4,
    HLX_WAN_CONNECT_PPPOE_DOUBLE = 5,
    HLX_WAN_CONNECT_IPOA_DHCP = 6,
    HLX_WAN_CONNECT_IPOA_STATIC = 7,
    HLX_WAN_CONNECT_PPPOA = 8,
    HLX_WAN_CONNECT_BUTT = 9
} HLX_WAN_CONNECT_TYPE_ENUM;

/** State of a WAN. */
typedef enum {
    HLX_WAN_NO_WIRE = 0,
    HLX_WAN_NOT_CONNECTED = 1,
    HLX_WAN_CONNECTING = 2,
    HLX_WAN_CONNECTED = 3,
    HLX_WAN_CONNECTED_NO_WAN = 4,
    HLX_WAN_LINK_STATUS_BUTT = 5
} HLX_WAN_LINK_STATUS_ENUM;
typedef HLX_WAN_LINK_STATUS_ENUM HLX_WAN_LINK_STATUS;

/** Layer-2 kind of a WAN. */
typedef enum { HLX_L2TYPE_WIRED = 0, HLX_L2TYPE_WIRELESS = 1, HLX_L2TYPE_BUTT = 2 } HLX_L2TYPE_ENUM;
typedef HLX_L2TYPE_ENUM HLX_L2TYPE;

/** File operations of the web interface. */
typedef enum {
    FILE_OPERATE_DOWNLOAD = 0,       /**< the configuration, to the browser */
    FILE_OPERATE_SIMPLE_UPGRADE = 1, /**< a firmware image, to the device */
    FILE_OPERATE_UPLOAD = 2,         /**< a configuration, to the device */
    FILE_OPERATE_BUTT = 3
} FILE_OPERATE_ENUM;
typedef FILE_OPERATE_ENUM FILE_OPERATE;

/** One DHCP client of the LAN. */
typedef struct {
    char mac[18];      /**< colon-separated MAC text */
    char ipaddr[16];   /**< dotted quad */
    char hostname[64]; /**< as the client gave it, or "(null)" */
} DHCPS_CLIENT_LIST, DHCPS_CLIENT_LIST_STRU;

#endif

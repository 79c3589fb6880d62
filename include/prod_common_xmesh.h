/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The node's role in the mesh network, and what the mesh daemons put into their messages: MAC
 * texts without separators and attribute records.
 *
 * A role is a fixed set of configuration values, written at once. "mesh.mode" codes it: "1" is the
 * controller, "2" an agent, which joins a controller over its 5 GHz backhaul, and "0" neither: a
 * stand-alone router, or a temporary controller while the node is being set up.
 *
 * All functions may be called from any thread. Setting a role starts the process's count of changes
 * anew (see prod_common_cfm.h), so no other thread may be amid a batch of changes then.
 */
#ifndef PROD_COMMON_XMESH_H
#define PROD_COMMON_XMESH_H

#include "prod_common_types.h"

/** A configuration key and the value that it gets. */
typedef struct {
    const char *mib_name;
    const char *mib_value;
} mesh_cfg, qx_xmesh_cfg;

/**
 * One attribute record. Records stand in a message back to back, at any address, so the type is
 * packed; the next one begins 8 + length bytes behind the beginning of this one. Numbers are in
 * network byte order.
 */
typedef struct {
    u16 type;    /**< mesh_attr_type_t */
    u16 padding; /**< neither written nor looked at */
    u32 length;  /**< bytes of value */
    u8 value[];
} __attribute__((packed)) mesh_attr_t;

/** What a record tells; the units and forms of the values are those of the mesh daemons. */
typedef enum {
    MESH_ATTR_TIMESTAMP = 0,
    MESH_ATTR_MAC = 1,
    MESH_ATTR_IP = 2,
    MESH_ATTR_SN = 3,
    MESH_ATTR_NAME = 4,
    MESH_ATTR_REMARK = 5,
    MESH_ATTR_VERSION = 6,
    MESH_ATTR_UPTIME = 7,
    MESH_ATTR_CPU_USAGE = 8,
    MESH_ATTR_MEM_USAGE = 9,
    MESH_ATTR_UPPER_NODE_MAC = 10,
    MESH_ATTR_UPPER_NODE_RATE = 11,
    MESH_ATTR_UPPER_NODE_TYPE = 12,
    MESH_ATTR_UPPER_NODE_RSSI = 13,
    MESH_ATTR_24G_BBSS_MAC = 14,
    MESH_ATTR_5G_BBSS_MAC = 15,
    MESH_ATTR_REMOTE_ADDR = 16,
    MESH_ATTR_MESHID = 17,
    MESH_ATTR_FREQ_BAND = 18,
    MESH_ATTR_SSID = 19,
    MESH_ATTR_CLEANT_RSSI = 20, /**< the spelling that the daemons know */
    MESH_ATTR_BOUNDARY = 21,
    MESH_ATTR_STA_IFNAME = 22,
    MESH_ATTR_TIME = 23,
    MESH_ATTR_TIMEZONE = 24,
    MESH_ATTR_TIMESYN = 25
} mesh_attr_type_t;

PROD_BEGIN

/* ---- roles ---------------------------------------------------------------------------------- */

/*
 * The values of each role, written in the order of the rows. The numbers of rows are part of the
 * binary interface: a program that is not position-independent gets a copy of each table it names,
 * as large as the table was when the program was linked, and the library then reads that copy.
 */

/** The mesh controller. */
PROD_API extern const mesh_cfg controller_cfg_table[19];

/** An agent. */
PROD_API extern const mesh_cfg agent_cfg_table[13];

/** The temporary controller. Its last two keys lack the "bss_" that such keys have elsewhere. */
PROD_API extern const mesh_cfg temp_controller_cfg_table[12];

/** The stand-alone router. */
PROD_API extern const mesh_cfg xmesh_default_cfg_table[49];

/*
 * Each of these counts this process's changes from 0, writes the values that differ, and commits
 * when one did. It blocks as CommitCfm() does. The values are not taken back when the commit fails.
 * Returns 1 when a value was changed and the configuration committed, else 0: nothing had to
 * change, or the commit failed, which prod_cfm_is_change() tells apart.
 */

/**
 * Makes the node the mesh controller, by controller_cfg_table.
 * @return 1 when a value was changed and the configuration committed, else 0
 */
PROD_API int set_mesh_to_controller_cfg(void);

/**
 * Makes the node an agent, by agent_cfg_table.
 * @return as set_mesh_to_controller_cfg()
 */
PROD_API int set_mesh_to_agent_cfg(void);

/**
 * Makes the node a stand-alone router, by xmesh_default_cfg_table. "serial.number" gets the factory
 * setting "QX_ATE_SN" first, of which 31 characters count; a missing one empties it.
 * @return as set_mesh_to_controller_cfg()
 */
PROD_API int set_mesh_to_default_cfg(void);

/**
 * Makes the node a temporary controller, by temp_controller_cfg_table. As long as the factory
 * setting "QX_FINISH_TSTFLAG", of which 59 characters count, is missing or reads as 0, the node is
 * still on the production line: both radios then become access points that do not choose their
 * channel ("wlan0_workmode" and "wlan1_workmode" "ap", "wlan0_autochannel_type" and
 * "wlan1_autochannel_type" "0"). One of these is another value than the table's, so every such call
 * changes and commits.
 * @return as set_mesh_to_controller_cfg()
 */
PROD_API int set_mesh_to_temp_controller_cfg(void);

/* ---- MAC texts ------------------------------------------------------------------------------ */

/**
 * Hardware address of a BSS's interface as 12 upper-case digits without separators.
 * @param mibif  configuration name of the BSS ("wlan1.5")
 * @param mac    13 bytes, passed empty; untouched when the address cannot be had, which
 *               get_mac_by_ifname() logs
 * @return @p mac when it is not empty afterwards, whatever put the text there; else NULL, also for
 *         a NULL argument
 */
PROD_API char *xmesh_wifi_get_bss_mac(const char *mibif, char *mac);

/**
 * Writes 12 digits as upper-case MAC text with colons.
 * @param mac_format  18 bytes, all of which are written; may be @p str
 * @param str         12 characters count. A shorter text counts as ending in NULs, so that the
 *                    result ends where the first is missing, which may be behind a colon.
 * @return 1; 0 when the result is empty, or, and then nothing is written, an argument is NULL
 */
PROD_API int xmesh_mac_str_to_format(char *mac_format, const char *str);

/**
 * Writes MAC text with separators, which may be any, as 12 upper-case digits. Note the order of the
 * arguments.
 * @param mac_str  17 characters count; a shorter text counts as ending in NULs
 * @param str      13 bytes, all of which are written; may be @p mac_str
 * @return 1; 0 when the result is empty, or, and then nothing is written, an argument is NULL
 */
PROD_API int xmesh_mac_format_to_str(const char *mac_str, char *str);

/* ---- attribute records ---------------------------------------------------------------------- */

/**
 * Writes one record at *@p pattr and moves *@p pattr behind it. The caller sees to it that 8 +
 * @p length bytes are there.
 *
 * Nothing happens when @p pattr or *@p pattr is NULL, or @p data is and @p length is not 0.
 *
 * @param type  the record's type
 * @param data  @p length bytes; with a length of 0 not looked at
 */
PROD_API void mesh_set_attr(mesh_attr_t **pattr, uint16_t type, uint32_t length, const void *data);

/** @{ */
/**
 * As mesh_set_attr(), for a number, which is stored in network byte order: 9, 10, 12 and 16 bytes
 * are needed.
 */
PROD_API void mesh_set_attr_u8(mesh_attr_t **pattr, uint16_t type, uint8_t value);
PROD_API void mesh_set_attr_u16(mesh_attr_t **pattr, uint16_t type, uint16_t value);
PROD_API void mesh_set_attr_u32(mesh_attr_t **pattr, uint16_t type, uint32_t value);
PROD_API void mesh_set_attr_u64(mesh_attr_t **pattr, uint16_t type, uint64_t value);
/** @} */

/** As mesh_set_attr(), for a text with its NUL; NULL makes a record without a value. */
PROD_API void mesh_set_attr_str(mesh_attr_t **pattr, uint16_t type, const char *text);

/**
 * Finds the first record of a type in a list, which may come from anywhere: a record that does not
 * fit into the list ends the search.
 * @param list_len  bytes of @p list
 * @param val       receives where the value begins in @p list, at any address and in network byte
 *                  order; may be NULL
 * @param len       receives its length in host byte order; may be NULL
 * @return 1 when found; 0 otherwise, also for a NULL list, and nothing is then written
 */
PROD_API int mesh_get_attr(const void *list, uint32_t list_len, uint16_t type, void **val,
                           uint32_t *len);

PROD_END

#endif

/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The whole library: every area's header.
 */
#ifndef PROD_COMMON_H
#define PROD_COMMON_H

#include "ipc/lock.h"
#include "ipc/msg_queue.h"
#include "ipc/shared_memory.h"
#include "ipc/thread.h"
#include "json.h"
#include "prod_common_audit_log.h"
#include "prod_common_cfm.h"
#include "prod_common_check.h"
#include "prod_common_debug.h"
#include "prod_common_file.h"
#include "prod_common_flash.h"
#include "prod_common_fnotify.h"
#include "prod_common_hal.h"
#include "prod_common_ifaddrs.h"
#include "prod_common_string.h"
#include "prod_common_system.h"
#include "prod_common_systool.h"
#include "prod_common_time.h"
#include "prod_common_types.h"
#include "prod_common_usb.h"
#include "prod_common_wan.h"
#include "prod_common_wifi.h"
#include "prod_common_xmesh.h"
#include "rbtree.h"

#endif

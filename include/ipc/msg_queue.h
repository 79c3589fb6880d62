/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Message queues between programs of the device.
 *
 * A queue carries records of one size, which both sides agree on, in the order in which they were
 * put. It is a System V message queue whose number is its key, created by whichever side touches it
 * first; that call appends a line to the registry "/var/run/id.mq": key, id, process id, process
 * name. Queues stay until the device restarts. A thread remembers the queue that it used last and
 * asks for it again when the kernel no longer has it; a program that moves to another IPC namespace
 * does so before its first record.
 *
 * All functions may be called from any thread of any process. Failures are logged at level 2 under
 * "prod".
 */
#ifndef IPC_MSG_QUEUE_H
#define IPC_MSG_QUEUE_H

#include "prod_common_types.h"

/** The queues that the device has. Any other number is a queue too, but 0: each call makes a new
 * one. */
enum {
    MQ_BEGIN = 0x8900,
    MQ_PORTAL_SEND_SMS = 0x8901,
    MQ_PORTAL_SEND_EMAIL = 0x8902,
    MQ_PORTAL_SEND_FACEBOOK = 0x8903,
    MQ_ID_NUM = 0x8904
};
typedef unsigned int mq_id_t;

/** The type that every message carries and that receivers ask for. */
#define MQ_MSG_TYPE 0x89AB

/** A message as the kernel takes it, for a program that uses a queue without this library. */
__extension__ typedef struct {
    long msg_type;        /**< MQ_MSG_TYPE */
    unsigned char data[]; /**< the record */
} msg_buf_t;

PROD_BEGIN

/**
 * The kernel's id of a queue, which is created (0666) when there is none.
 * @param key  the queue's number
 * @return the id; negative on failure
 */
PROD_API int get_or_create_mq(int key);

/**
 * Puts one record into a queue. While the queue is full it tries again every 100 ms.
 * @param id        the queue's number; the queue is created when there is none
 * @param data      the record; copied
 * @param data_len  its bytes, at least 1
 * @param block     0: try once; otherwise for about 3 seconds (2 to 3: whole seconds of the wall
 *                  clock are compared, so setting the clock back prolongs it)
 * @return 1 when it is in the queue; 0 otherwise, also when the queue stayed full
 */
PROD_API int mq_put(mq_id_t id, const void *data, int data_len, int block);

/**
 * Takes the oldest record out of a queue.
 *
 * A record longer than @p data_len is not cut: the call fails and the record stays for a reader
 * with more room. Behind a shorter one @p data is filled with zeros.
 * @param id        the queue's number; the queue is created when there is none
 * @param data      room for the record; unchanged on failure
 * @param data_len  its bytes, at least 1
 * @param block     0: only what is there now; otherwise wait without limit, though a signal ends
 *                  the wait as a failure
 * @return 1 with a record; 0 otherwise, silently when @p block is 0 and nothing was there
 */
PROD_API int mq_get(mq_id_t id, void *data, int data_len, int block);

PROD_END

#endif

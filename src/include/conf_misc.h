/**
 * @file conf_misc.h
 * Helpers for descriptors, epoll, strings, time and XML texts, and the table of client addresses.
 */
#ifndef CONF_MISC_H
#define CONF_MISC_H

#include "conf_def.h"

#include <libxml/tree.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes a descriptor non-blocking; its other flags stay.
 *
 * @return 0, or -1 (reported to syslog) with the flags as they were
 */
CONF_API int conf_non_block_fd(int fd);

/** Bits of the mask that conf_event_add() and conf_event_reset() take. */
enum _conf_event {
    CONF_EVENT_IN = 1, /**< wait for input */
    CONF_EVENT_OUT = 2 /**< wait for room to write */
};

/**
 * Adds a descriptor to an epoll set, edge-triggered; the peer's hang-up is always waited for.
 *
 * @param event  CONF_EVENT_IN, CONF_EVENT_OUT, both or none
 * @param para   comes back as the event's data.u32; the upper half of data is 0
 * @return 0, or -1 (reported to syslog)
 */
CONF_API int conf_event_add(int epfd, int fd, int event, int para);

/** As conf_event_add(), for a descriptor that is in the set already. */
CONF_API int conf_event_reset(int epfd, int fd, int event, int para);

/**
 * Copies a string without the white space (isspace() of the locale) at its ends.
 *
 * @return a new string, to be given to free(); null when str is null or nothing is left, or without
 *         memory; nothing is reported
 */
CONF_API char* conf_strip(const char* str);

/** @return the wall clock in microseconds since 1970-01-01 00:00:00 UTC. */
CONF_API long long conf_get_unix_time(void);

/**
 * Reads the text of an element or an attribute: that of its first child, if this is a text.
 *
 * @return the tree's own text, valid as long as it; null when there is none
 */
CONF_API const char* conf_get_node_content(xmlNode* node);

/**
 * Writes a number in decimal.
 *
 * @param buf   area for the digits, a sign and a terminating zero
 * @param size  its bytes; longer output is cut, and with 0 nothing is written
 * @return buf; null, with nothing written, when that is null
 */
CONF_API char* conf_itoa(long i, char* buf, unsigned int size);

/**
 * One client of an SSH server process, as it lies in shared memory: 24 bytes.
 *
 * The table looks at sshd_pid and valid alone. The byte order of port and address is a matter
 * between those who store and those who look up.
 */
typedef struct _conf_cli_info {
    int sshd_pid;        /**< the SSH server process; the key */
    u32_t valid : 1;     /**< 1 when the slot holds an entry; the table sets it */
    u32_t ipv6 : 1;      /**< 1 when addr_buf holds an IPv6 address */
    u32_t cli_port : 16; /**< the client's port */
    u32_t addr_buf[4];   /**< the client's address; IPv6 fills it */
} conf_cli_info_t;

/**
 * Creates the table of clients in shared memory, for all processes of the device; the caller stays
 * attached. When a table exists already, the call fails and removes it: call again for a new one.
 *
 * A table that the process still holds from earlier, under the key of a profile since replaced, is
 * removed as well. The segment and its semaphore are keyed by the daemon profile, which must exist.
 *
 * @param max_num  slots
 * @return 0; -1 (reported to syslog) with nothing left behind. A max_num below 1, or one whose
 *         segment would not fit 32 bits of bytes, touches nothing.
 */
CONF_API int conf_clishm_create(int max_num);

/**
 * Removes the table, whoever created it. Nothing is reported.
 *
 * A process that still holds a table which somebody else has replaced since lets go of its own, and
 * the new one stays: a second call removes that, too.
 */
CONF_API void conf_clishm_destroy(void);

/**
 * Stores a record in the first free slot. Other entries of the same sshd_pid are not looked for.
 *
 * All three data calls attach for their duration unless the process is attached, and wait for the
 * table's lock as long as it takes; the lock of a process that dies is released by the system. That
 * lock is between processes: within one, a single thread at a time makes the calls of the table.
 *
 * @param info  stays the caller's; its valid bit does not matter
 * @return 0, or -1 (reported to syslog): null record, no free slot, or no table
 */
CONF_API int conf_save_client_info(conf_cli_info_t* info);

/**
 * Frees the first slot that holds sshd_pid; nothing happens when there is none. A table or a lock
 * that is not to be had is reported to syslog.
 */
CONF_API void conf_free_client_info(pid_t sshd_pid);

/**
 * Looks a client up.
 *
 * @param info  receives a copy of the first record of sshd_pid; unchanged on failure
 * @return 0, or -1 (reported to syslog): null info, no such record, or no table
 */
CONF_API int conf_get_client_info(pid_t sshd_pid, conf_cli_info_t* info);

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file conf_buffer.h
 * A growable byte buffer in one anonymous page mapping.
 *
 * Sizes are bytes, signed 32-bit. buf[used] is always 0, so the content can be read as a string.
 * A buffer has one owner and no lock. Calls that may move it take the handle by address
 * (conf_buffer_t**): keep no other copy of the handle across them. Every byte is zeroed before its
 * mapping goes back to the system. Failures are reported to syslog.
 */
#ifndef CONF_BUFFER_H
#define CONF_BUFFER_H

#include "conf_def.h"

#ifdef __cplusplus
extern "C" {
#endif

CONF_FLEXIBLE_BEGIN
/** Bytes that grow, behind a handle. */
typedef struct _conf_buffer {
    int total;  /**< bytes in buf: the mapping's length less these two counters */
    int used;   /**< bytes of content; less than total after an insert or append */
    char buf[]; /**< the content and, behind it, a zero byte */
} conf_buffer_t;
CONF_FLEXIBLE_END

/**
 * Makes an empty buffer.
 *
 * @param size  bytes of content to make room for; whole pages are taken, one at least
 * @return the buffer, to be given to conf_buffer_destroy(); null when size is negative or beyond
 *         what an int can count with its page, or when there is no memory
 */
CONF_API conf_buffer_t* conf_buffer_create(int size);

/** Zeroes the buffer and gives its memory back. Null is ignored. */
CONF_API void conf_buffer_destroy(conf_buffer_t* buf);

/**
 * Inserts len bytes so that the first of them stands at offset; what stood there moves up.
 *
 * @param buf      handle; replaced when the buffer moves, unchanged on failure
 * @param offset   0 to the content's length; the length appends
 * @param context  bytes to copy, not null and not inside the buffer; stays the caller's
 * @param len      how many; 0 is fine
 * @return 0, or -1 for a bad argument or no memory; the content is then as before
 */
CONF_API int conf_buffer_insert(conf_buffer_t** buf, int offset, void* context, int len);

/**
 * Appends len bytes and a terminating zero.
 *
 * @param buf      handle; replaced when the buffer moves, unchanged on failure
 * @param context  bytes to copy, not null and not inside the buffer; stays the caller's
 * @param len      how many; 0 is fine
 * @return 0, or -1 for a bad argument or no memory; the content is then as before
 */
CONF_API int conf_buffer_append(conf_buffer_t** buf, void* context, int len);

/**
 * Takes len bytes out, beginning at start; what stands behind them moves down. A range that
 * reaches the end of the content or beyond cuts the content off at start. Capacity stays.
 *
 * A null buffer, a negative start, a start at or behind the end and a len below 1 are reported and
 * change nothing.
 */
CONF_API void conf_buffer_remove(conf_buffer_t* buf, int start, int len);

/** Empties the buffer. Capacity stays and the old bytes are not wiped. Null is ignored. */
CONF_API void conf_buffer_flush(conf_buffer_t* buf);

/**
 * Gives memory back: a buffer that is at most half full moves to a fresh mapping of just the pages
 * its content needs, and the old one is wiped. Without memory for that it stays as it is.
 *
 * @param buf  handle; replaced when the buffer moves
 */
CONF_API void conf_buffer_slim(conf_buffer_t** buf);

/** @return the first byte of the content, valid until the buffer moves; null for a null buffer. */
CONF_API void* conf_buffer_data(conf_buffer_t* buf);

/** @return bytes of content; 0 for a null buffer. */
CONF_API int conf_buffer_length(conf_buffer_t* buf);

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file conf_hash.h
 * A hash table from strings to values of any length, with copies of both in the table's hands.
 *
 * The number of buckets is fixed at creation. No lock: one thread at a time. Failures are reported
 * to syslog.
 */
#ifndef CONF_HASH_H
#define CONF_HASH_H

#include "conf_def.h"
#include "conf_dlq.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The head of an entry's block; k_len bytes of key and v_len bytes of value follow it directly. */
typedef struct _conf_hash_node {
    conf_dlq_node_t dlq; /**< link in the chain of its bucket */
    u32_t k_len;         /**< bytes of key, its terminating zero included */
    u32_t v_len;         /**< bytes of value */
} conf_hash_node_t;

CONF_FLEXIBLE_BEGIN
/** Chains of entries, behind a handle. */
typedef struct _conf_hash_tbl {
    u32_t num;                 /**< buckets; never 0 */
    u32_t seed;                /**< multiplier of the string hash, chosen from num */
    conf_dlq_list_t buckets[]; /**< one chain per bucket */
} conf_hash_tbl_t;
CONF_FLEXIBLE_END

/**
 * Makes an empty table.
 *
 * @param bucket_num  how many chains: about the number of keys expected
 * @return the table, to be given to conf_hash_destroy(); null for 0, for a count whose table would
 *         not fit 32 bits of bytes or that is 2^31 or more, or without memory
 */
CONF_API conf_hash_tbl_t* conf_hash_create(u32_t bucket_num);

/** Frees the table itself: delete its entries first, they are not looked for. Null is ignored. */
CONF_API void conf_hash_destroy(conf_hash_tbl_t* hash_tbl);

/**
 * Stores a copy of a value under a copy of a key, in place of what stood there.
 *
 * @param key    zero-terminated, may be empty; stays the caller's
 * @param val    v_len bytes, not null even for a v_len of 0; may lie in the value being replaced
 * @param v_len  bytes of value
 * @return 0; -1 for a null argument (nothing changed), or when the block would not fit 32 bits of
 *         bytes or there is no memory (the key is then absent)
 */
CONF_API int conf_hash_add(conf_hash_tbl_t* hash_tbl, char* key, void* val, u32_t v_len);

/**
 * Finds the value of a key.
 *
 * @return its bytes, at no particular alignment, the table's own; valid until the key is added with
 *         another length or deleted, or the table is destroyed. Null (silently) when there is none.
 */
CONF_API void* conf_hash_get(conf_hash_tbl_t* hash_tbl, char* key);

/** Removes a key and its value. Does nothing, silently, when there is none. */
CONF_API void conf_hash_del(conf_hash_tbl_t* hash_tbl, char* key);

#ifdef __cplusplus
}
#endif

#endif

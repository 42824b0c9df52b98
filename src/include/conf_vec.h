/**
 * @file conf_vec.h
 * A table of pointers whose indexes stay stable: removal empties a slot, adding takes the first
 * empty one, and a full table doubles.
 *
 * The elements belong to the caller. No lock: one thread at a time. Failures are reported to
 * syslog.
 */
#ifndef CONF_VEC_H
#define CONF_VEC_H

#include "conf_def.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A slot. */
typedef struct _conf_vec_node {
    void* data; /**< the element, or null for an empty slot */
} conf_vec_node_t;

CONF_FLEXIBLE_BEGIN
/** Slots, behind a handle. */
typedef struct _conf_vec {
    u32_t size;            /**< slots: the capacity, not the number of elements */
    conf_vec_node_t vec[]; /**< the slots */
} conf_vec_t;
CONF_FLEXIBLE_END

/**
 * Makes a vector of empty slots.
 *
 * @param size  slots to begin with, 1 at least
 * @return the vector, to be given to conf_vector_destroy(); null for 0, for a count whose block
 *         would not fit 32 bits of bytes, or without memory
 */
CONF_API conf_vec_t* conf_vector_create(u32_t size);

/**
 * Calls free_func for each element in order of index, then frees the vector. A null vector is
 * reported.
 *
 * @param free_func  may be null: the elements are then left alone
 */
CONF_API void conf_vector_destroy(conf_vec_t* vector, void (*free_func)(void* data));

/**
 * Stores an element in the first empty slot; doubles the slots when there is none.
 *
 * @param vector  handle; replaced when the vector grows, unchanged on failure
 * @param data    the element, not null: null marks an empty slot
 * @return its index, good until it is removed; -1 for a bad argument or no memory
 */
CONF_API int conf_vector_add(conf_vec_t** vector, void* data);

/**
 * @return the element at idx, null for an empty slot; null (reported) for a bad index or a null
 *         vector
 */
CONF_API void* conf_vector_get(conf_vec_t* vector, u32_t idx);

/**
 * Empties a slot; the element itself is not touched.
 *
 * @return 0, also for an empty slot; -1 (reported) for a bad index or a null vector
 */
CONF_API int conf_vector_remove(conf_vec_t* vector, u32_t idx);

/** @return the number of slots; 0 (reported) for a null vector. */
CONF_API int conf_vector_size(conf_vec_t* vector);

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file conf_dlq.h
 * An intrusive doubly linked queue.
 *
 * Make a conf_dlq_node_t the first member of your record and link the record through it: the
 * node's address is the record's. The list allocates and frees nothing. Each node records its
 * list, so a node can be removed from, or stepped from within, the list that holds it only.
 *
 * No lock: one thread at a time. A node that is in a list must be removed before it is linked
 * again; this is not detected. What is reported goes to syslog.
 */
#ifndef CONF_DLQ_H
#define CONF_DLQ_H

#include "conf_def.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What makes a structure one that can be queued. */
typedef struct _conf_dlq_node {
    void* list;                  /**< the list that holds the node; null when in none */
    struct _conf_dlq_node* prev; /**< the node before; null for the first */
    struct _conf_dlq_node* next; /**< the node behind; null for the last */
} conf_dlq_node_t;

/** A queue. */
typedef struct _conf_dlq_list {
    u32_t num;             /**< nodes in the list */
    conf_dlq_node_t* head; /**< first node, null when empty */
    conf_dlq_node_t* tail; /**< last node, null when empty */
} conf_dlq_list_t;

/** Makes an empty list of the memory given. A null list is reported. */
CONF_API void conf_dlq_init(conf_dlq_list_t* list);

/**
 * Calls free_func with each node, first to last, and leaves the list empty. The nodes' own fields
 * are not cleared. A null list or function is reported and changes nothing.
 */
CONF_API void conf_dlq_free(conf_dlq_list_t* list, void (*free_func)(void* node));

/**
 * Links a node at the end.
 *
 * @return 0, or -1 (reported) for a null list or node
 */
CONF_API int conf_dlq_append(conf_dlq_list_t* list, conf_dlq_node_t* node);

/**
 * Links a node in front of another.
 *
 * @param pos  a node of this list; null links at the end
 * @return 0, or -1 (reported) for a null list or node, or a pos of another list
 */
CONF_API int conf_dlq_insert(conf_dlq_list_t* list, conf_dlq_node_t* pos, conf_dlq_node_t* node);

/** Unlinks a node and clears its fields. Does nothing, silently, unless this list holds it. */
CONF_API void conf_dlq_remove(conf_dlq_list_t* list, conf_dlq_node_t* node);

/** @return the first node; null when the list is empty or null (silently). */
CONF_API conf_dlq_node_t* conf_dlq_head(conf_dlq_list_t* list);

/** @return the node behind; null at the end, and (silently) unless this list holds the node. */
CONF_API conf_dlq_node_t* conf_dlq_next(conf_dlq_list_t* list, conf_dlq_node_t* node);

/** @return the last node; null when the list is empty, or null (reported). */
CONF_API conf_dlq_node_t* conf_dlq_tail(conf_dlq_list_t* list);

/** @return the node before; null at the front, and (reported) unless this list holds the node. */
CONF_API conf_dlq_node_t* conf_dlq_prev(conf_dlq_list_t* list, conf_dlq_node_t* node);

#ifdef __cplusplus
}
#endif

#endif

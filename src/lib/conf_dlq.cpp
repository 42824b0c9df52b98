#include "conf_dlq.h"

#include "support/report.h"

#include <cstddef>

using namespace conf;

static_assert(offsetof(conf_dlq_node_t, list) == 0);
static_assert(offsetof(conf_dlq_node_t, prev) == sizeof(void*));
static_assert(offsetof(conf_dlq_node_t, next) == 2 * sizeof(void*));
static_assert(sizeof(conf_dlq_node_t) == 3 * sizeof(void*));
static_assert(offsetof(conf_dlq_list_t, num) == 0);
static_assert(offsetof(conf_dlq_list_t, head) == sizeof(void*)); // padded behind num on 64 bits
static_assert(offsetof(conf_dlq_list_t, tail) == 2 * sizeof(void*));
static_assert(sizeof(conf_dlq_list_t) == 3 * sizeof(void*));

namespace {

void* address(void* pointer) noexcept { return pointer; } // "%p" takes no other pointer

bool holds(const conf_dlq_list_t* list, const conf_dlq_node_t* node) noexcept {
    return list != nullptr && node != nullptr && node->list == list;
}

void make_empty(conf_dlq_list_t* list) noexcept {
    list->tail = nullptr;
    list->head = nullptr;
    list->num = 0;
}

} // namespace

void conf_dlq_init(conf_dlq_list_t* list) {
    if (list == nullptr) {
        syslog_failure("[ERROR] Error input parameter.\n");
        return;
    }
    make_empty(list);
}

void conf_dlq_free(conf_dlq_list_t* list, void (*free_func)(void* node)) {
    if (list == nullptr || free_func == nullptr) {
        syslog_failure("[ERROR] Error input parameter(list=%p, free_func=%p).\n", address(list),
                       reinterpret_cast<void*>(free_func));
        return;
    }
    for (conf_dlq_node_t* node = list->head; node != nullptr;) {
        conf_dlq_node_t* next = node->next; // the node may be gone after the call
        free_func(node);
        node = next;
    }
    make_empty(list);
}

int conf_dlq_append(conf_dlq_list_t* list, conf_dlq_node_t* node) {
    if (list == nullptr || node == nullptr)
        return syslog_failure("[ERROR] Error input parameter(list=%p, node=%p).\n", address(list),
                              address(node));
    node->list = list;
    node->next = nullptr;
    if (list->num == 0) {
        node->prev = nullptr;
        list->head = node;
    } else {
        node->prev = list->tail;
        list->tail->next = node;
    }
    list->tail = node;
    ++list->num;
    return 0;
}

int conf_dlq_insert(conf_dlq_list_t* list, conf_dlq_node_t* pos, conf_dlq_node_t* node) {
    if (list == nullptr || node == nullptr || (pos != nullptr && pos->list != list))
        return syslog_failure("[ERROR] Error input parameter(list=%p, before=%p, node=%p).\n",
                              address(list), address(pos), address(node));
    if (pos == nullptr)
        return conf_dlq_append(list, node);
    node->list = list;
    node->prev = pos->prev;
    node->next = pos;
    pos->prev = node;
    (node->prev != nullptr ? node->prev->next : list->head) = node;
    ++list->num;
    return 0;
}

void conf_dlq_remove(conf_dlq_list_t* list, conf_dlq_node_t* node) {
    if (!holds(list, node))
        return;
    (node->prev != nullptr ? node->prev->next : list->head) = node->next;
    (node->next != nullptr ? node->next->prev : list->tail) = node->prev;
    --list->num;
    *node = {};
}

conf_dlq_node_t* conf_dlq_head(conf_dlq_list_t* list) {
    return list != nullptr ? list->head : nullptr;
}

conf_dlq_node_t* conf_dlq_next(conf_dlq_list_t* list, conf_dlq_node_t* node) {
    return holds(list, node) ? node->next : nullptr;
}

conf_dlq_node_t* conf_dlq_tail(conf_dlq_list_t* list) {
    if (list == nullptr)
        return syslog_failure("[ERROR] Error input parameter.\n");
    return list->tail;
}

conf_dlq_node_t* conf_dlq_prev(conf_dlq_list_t* list, conf_dlq_node_t* node) {
    if (!holds(list, node))
        return syslog_failure("[ERROR] Error input parameter(list=%p, node=%p).\n", address(list),
                              address(node));
    return node->prev;
}

#include "conf_vec.h"

#include "support/bounded.h"
#include "support/report.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace conf;

static_assert(offsetof(conf_vec_t, size) == 0);
static_assert(offsetof(conf_vec_t, vec) == sizeof(void*)); // padded behind size on 64 bits
static_assert(sizeof(conf_vec_t) == sizeof(void*) && sizeof(conf_vec_node_t) == sizeof(void*));

namespace {

// Blocks that a 32-bit device could not have are made nowhere; all indexes then fit an int.
constexpr u32_t max_size = (UINT32_MAX - sizeof(conf_vec_t)) / sizeof(conf_vec_node_t);

// A vector of empty slots; null, with errno set, without memory.
conf_vec_t* new_vector(u32_t size) noexcept {
    const std::size_t block = sizeof(conf_vec_t) + size * sizeof(conf_vec_node_t);
    auto* vector = static_cast<conf_vec_t*>(std::malloc(block));
    if (vector == nullptr)
        return nullptr;
    wipe(vector, block);
    vector->size = size;
    return vector;
}

// The same slots and as many empty ones behind them; null, with errno set, without memory.
conf_vec_t* doubled(const conf_vec_t* vector) noexcept {
    if (vector->size > max_size / 2) {
        errno = ENOMEM;
        return nullptr;
    }
    conf_vec_t* grown = new_vector(vector->size * 2);
    if (grown != nullptr)
        (void)memcpy_s(grown->vec, grown->size * sizeof(conf_vec_node_t), vector->vec,
                       vector->size * sizeof(conf_vec_node_t));
    return grown;
}

bool has_slot(const conf_vec_t* vector, u32_t idx) noexcept {
    return vector != nullptr && idx < vector->size;
}

} // namespace

conf_vec_t* conf_vector_create(u32_t size) {
    if (size == 0 || size > max_size)
        return syslog_failure("[ERROR] Error input parameter(size=%d).\n", static_cast<int>(size));
    conf_vec_t* vector = new_vector(size);
    if (vector == nullptr)
        return syslog_failure("[ERROR] Allocate memory failed(%m).\n");
    return vector;
}

void conf_vector_destroy(conf_vec_t* vector, void (*free_func)(void* data)) {
    if (vector == nullptr) {
        syslog_failure("[ERROR] Error input parameter.\n");
        return;
    }
    for (u32_t idx = 0; free_func != nullptr && idx < vector->size; ++idx)
        if (vector->vec[idx].data != nullptr)
            free_func(vector->vec[idx].data);
    std::free(vector);
}

int conf_vector_add(conf_vec_t** vector, void* data) {
    if (vector == nullptr || *vector == nullptr || data == nullptr)
        return syslog_failure("[ERROR] Error input parameter(vector=%p, data=%p).\n",
                              static_cast<void*>(vector), data);
    u32_t idx = 0;
    while (idx < (*vector)->size && (*vector)->vec[idx].data != nullptr)
        ++idx;
    if (idx == (*vector)->size) {
        conf_vec_t* grown = doubled(*vector);
        if (grown == nullptr)
            return syslog_failure("[ERROR] Malloc memory failed(%m).\n");
        std::free(*vector);
        *vector = grown;
    }
    (*vector)->vec[idx].data = data;
    return static_cast<int>(idx);
}

void* conf_vector_get(conf_vec_t* vector, u32_t idx) {
    if (!has_slot(vector, idx))
        return syslog_failure("[ERROR] Error input parameter(vector=%p, index=%d).\n",
                              static_cast<void*>(vector), static_cast<int>(idx));
    return vector->vec[idx].data;
}

int conf_vector_remove(conf_vec_t* vector, u32_t idx) {
    if (!has_slot(vector, idx))
        return syslog_failure("[ERROR] Error input parameter(vector=%p, index=%d).\n",
                              static_cast<void*>(vector), static_cast<int>(idx));
    vector->vec[idx].data = nullptr;
    return 0;
}

int conf_vector_size(conf_vec_t* vector) {
    if (vector == nullptr) {
        syslog_failure("[ERROR] Error input parameter(vector=%p).\n", static_cast<void*>(vector));
        return 0;
    }
    return static_cast<int>(vector->size);
}

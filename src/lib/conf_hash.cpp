#include "conf_hash.h"

#include "support/bounded.h"
#include "support/division.h"
#include "support/handle.h"
#include "support/report.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace conf;

static_assert(offsetof(conf_hash_tbl_t, num) == 0 && offsetof(conf_hash_tbl_t, seed) == 4);
static_assert(offsetof(conf_hash_tbl_t, buckets) == 8 && sizeof(conf_hash_tbl_t) == 8);
static_assert(offsetof(conf_hash_node_t, dlq) == 0); // a link's address is its entry's
static_assert(offsetof(conf_hash_node_t, k_len) == sizeof(conf_dlq_node_t));
static_assert(offsetof(conf_hash_node_t, v_len) == sizeof(conf_dlq_node_t) + 4);
static_assert(sizeof(conf_hash_node_t) == sizeof(conf_dlq_node_t) + 8);

namespace {

using unique_entry = unique_handle<freed_by<conf_hash_node_t, std::free>>;

char* key_of(conf_hash_node_t* entry) noexcept { return reinterpret_cast<char*>(entry + 1); }

char* value_of(conf_hash_node_t* entry) noexcept { return key_of(entry) + entry->k_len; }

// The largest of 131, 1313, 13131, 131313 and so on that is not above the number of buckets, and 31
// where all are.
u32_t conf_hash_seed(u32_t bucket_num) noexcept {
    u32_t seed = 31;
    std::uint64_t next = 131;
    for (u32_t digit = 3; next <= bucket_num; digit = 4 - digit) { // 3 and 1 in turn
        seed = static_cast<u32_t>(next);
        next = next * 10 + digit;
    }
    return seed;
}

conf_dlq_list_t* conf_hash_bucket(conf_hash_tbl_t* hash_tbl, const char* key) noexcept {
    u32_t hash = 0;
    for (; *key != '\0'; ++key)
        hash = hash * hash_tbl->seed + static_cast<unsigned char>(*key);
    return &hash_tbl->buckets[hash - quotient_of(hash, hash_tbl->num) * hash_tbl->num];
}

conf_hash_node_t* conf_hash_lookup(conf_dlq_list_t* bucket, const char* key) noexcept {
    for (auto* link = conf_dlq_head(bucket); link != nullptr; link = conf_dlq_next(bucket, link))
        if (auto* entry = reinterpret_cast<conf_hash_node_t*>(link);
            strcmp(key_of(entry), key) == 0)
            return entry;
    return nullptr;
}

conf_hash_node_t* new_entry(std::uint64_t key_bytes, u32_t v_len) noexcept {
    const std::uint64_t size = sizeof(conf_hash_node_t) + key_bytes + v_len;
    if (size > UINT32_MAX)
        return syslog_failure("[ERROR] Allocate memory size is less than 0.\n");
    void* memory = std::malloc(static_cast<std::size_t>(size));
    if (memory == nullptr)
        return syslog_failure("[ERROR] Allocate memory failed(%m).\n");
    return static_cast<conf_hash_node_t*>(memory);
}

} // namespace

conf_hash_tbl_t* conf_hash_create(u32_t bucket_num) {
    const std::uint64_t size =
        sizeof(conf_hash_tbl_t) + std::uint64_t{bucket_num} * sizeof(conf_dlq_list_t);
    if (bucket_num == 0 || size > UINT32_MAX) // which every number from 2^31 on exceeds
        return syslog_failure("[ERROR] Error input parameter(size=%d).\n",
                              static_cast<int>(bucket_num));
    const auto block = static_cast<std::size_t>(size);
    auto* hash_tbl = static_cast<conf_hash_tbl_t*>(std::malloc(block));
    if (hash_tbl == nullptr)
        return syslog_failure("[ERROR] Allocate memory failed(%m).\n");
    wipe(hash_tbl, block);
    hash_tbl->num = bucket_num;
    hash_tbl->seed = conf_hash_seed(bucket_num);
    return hash_tbl;
}

void conf_hash_destroy(conf_hash_tbl_t* hash_tbl) { std::free(hash_tbl); }

int conf_hash_add(conf_hash_tbl_t* hash_tbl, char* key, void* val, u32_t v_len) {
    if (hash_tbl == nullptr || key == nullptr || val == nullptr)
        return syslog_failure("[ERROR] Error input parameter(key=%p, data=%p).\n",
                              static_cast<void*>(key), val);
    const std::size_t key_bytes = strlen(key) + 1;
    conf_dlq_list_t* bucket = conf_hash_bucket(hash_tbl, key);
    // Lives until the end of the call when it is not used again: key and val may lie inside.
    unique_entry old{conf_hash_lookup(bucket, key)};
    if (old)
        conf_dlq_remove(bucket, &old.get()->dlq);
    const bool fits = old && old.get()->v_len == v_len;
    unique_entry entry{fits ? old.release() : new_entry(key_bytes, v_len)};
    if (!entry)
        return -1;
    entry.get()->k_len = static_cast<u32_t>(key_bytes);
    entry.get()->v_len = v_len;
    (void)memmove_s(key_of(entry.get()), key_bytes, key, key_bytes);
    (void)memmove_s(value_of(entry.get()), v_len, val, v_len);
    return conf_dlq_append(bucket, &entry.release()->dlq);
}

void* conf_hash_get(conf_hash_tbl_t* hash_tbl, char* key) {
    if (hash_tbl == nullptr || key == nullptr)
        return nullptr;
    conf_hash_node_t* entry = conf_hash_lookup(conf_hash_bucket(hash_tbl, key), key);
    return entry != nullptr ? value_of(entry) : nullptr;
}

void conf_hash_del(conf_hash_tbl_t* hash_tbl, char* key) {
    if (hash_tbl == nullptr || key == nullptr)
        return;
    conf_dlq_list_t* bucket = conf_hash_bucket(hash_tbl, key);
    const unique_entry entry{conf_hash_lookup(bucket, key)};
    if (entry)
        conf_dlq_remove(bucket, &entry.get()->dlq);
}

#include "conf_plugin/registry.h"

#include "conf_misc.h"
#include "conf_plugin/log.h"
#include "support/bounded.h"
#include "support/handle.h"

#include <cstddef>
#include <cstdlib>
#include <unistd.h>

// The daemon and its modules share these shapes.
static_assert(sizeof(conf_plugin_data) == 2 * sizeof(void*));
static_assert(offsetof(conf_plugin_data, pelmd_hooks) == sizeof(void*));
static_assert(sizeof(pelmd_plugin_callback_t) == 8 * sizeof(void*));
static_assert(offsetof(conf_plugin_context_t, name) == (sizeof(void*) == 8 ? 8 : 4));
static_assert(offsetof(conf_plugin_context_t, sock) == (sizeof(void*) == 8 ? 20 : 12));
static_assert(offsetof(conf_plugin_context_t, rpc_id) == (sizeof(void*) == 8 ? 24 : 16));
static_assert(offsetof(conf_plugin_context_t, err_code) == (sizeof(void*) == 8 ? 28 : 20));
static_assert(offsetof(conf_plugin_context_t, err_msg) == (sizeof(void*) == 8 ? 32 : 24));
static_assert(offsetof(conf_plugin_context_t, send_pos) == (sizeof(void*) == 8 ? 40 : 28));
static_assert(offsetof(conf_plugin_context_t, recv_buf) == (sizeof(void*) == 8 ? 48 : 32));
static_assert(offsetof(conf_plugin_context_t, cbs_nums) == (sizeof(void*) == 8 ? 64 : 40));
static_assert(offsetof(conf_plugin_context_t, cbs) == (sizeof(void*) == 8 ? 72 : 44));

conf_hash_tbl_t* g_plugin_hash = nullptr;

namespace conf {

const char def_err_msg[] = "Service process failed.";

namespace {

constexpr u32_t registry_buckets = 8;

struct {
    u32_t lives_ended;
    u32_t config_end; // slots 1 up to this are configuration callbacks
    u32_t status_end; // from there up to this are status callbacks, operations behind
    const conf_plugin_context_t* recorded; // the context of which that is known
} process;

// The entry is the process's, so the key is formatted anew at each call: a child has another one.
struct registry_key {
    char text[32] = {};

    bool format() noexcept {
        char id[32];
        if (snprintf_s(text, sizeof text, sizeof text - 1, "plugin_tid_%s",
                       conf_itoa(getpid(), id, sizeof id)) >= 0)
            return true;
        (void)plugin_failure("build hash_key failed");
        return false;
    }
};

slot_kind kind_of(u32_t index) noexcept {
    if (index == 0)
        return slot_kind::kick_off;
    if (index < process.config_end)
        return slot_kind::config;
    return index < process.status_end ? slot_kind::status : slot_kind::operate;
}

} // namespace

life this_life() noexcept {
    return life{std::uint64_t{static_cast<u32_t>(getpid())} << 32 | process.lives_ended};
}

void record_slots(const conf_plugin_context_t* ctxt, u32_t configs, u32_t statuses) noexcept {
    process.recorded = ctxt;
    process.config_end = 1 + configs;
    process.status_end = process.config_end + statuses;
}

econf_subpub_cb_t find_callback(const conf_plugin_context_t* ctxt, u32_t index,
                                slot_kind kind) noexcept {
    if (index >= ctxt->cbs_nums)
        return nullptr;
    // Of a context that somebody else has put into the entry, only slot 0 is known.
    const bool fits = ctxt == process.recorded ? kind_of(index) == kind
                                               : (index == 0) == (kind == slot_kind::kick_off);
    return fits ? ctxt->cbs[index] : nullptr;
}

void _free_plugin_context() noexcept {
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr || plugin->plugin_ctxt == nullptr)
        return;
    ++process.lives_ended;
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    if (ctxt->sock >= 0)
        (void)close(ctxt->sock);
    conf_buffer_destroy(ctxt->recv_buf);
    conf_buffer_destroy(ctxt->send_buf);
    std::free(ctxt->name);
    error_text_traits::close(ctxt->err_msg);
    std::free(ctxt);
    process.recorded = nullptr;
    plugin->plugin_ctxt = nullptr;
    if (plugin->pelmd_hooks == nullptr) // which stay for the life of the process
        del_plugin_from_hash();
}

} // namespace conf

using namespace conf;

conf_plugin_data* get_plugin_from_hash(void) {
    registry_key key;
    if (g_plugin_hash == nullptr)
        g_plugin_hash = conf_hash_create(registry_buckets);
    if (g_plugin_hash == nullptr || !key.format())
        return nullptr;
    if (void* entry = conf_hash_get(g_plugin_hash, key.text))
        return static_cast<conf_plugin_data*>(entry);
    _conf_write_log(DBG_INFO, "Hash key = %s.", key.text);
    conf_plugin_data empty{};
    if (conf_hash_add(g_plugin_hash, key.text, &empty, sizeof empty) < 0)
        return nullptr;
    return static_cast<conf_plugin_data*>(conf_hash_get(g_plugin_hash, key.text));
}

void del_plugin_from_hash(void) {
    registry_key key;
    if (g_plugin_hash == nullptr || !key.format())
        return;
    conf_hash_del(g_plugin_hash, key.text);
    ++process.lives_ended;
}

pelmd_plugin_callback_t* get_plugin_hooks(void) {
    const conf_plugin_data* plugin = get_plugin_from_hash();
    return plugin != nullptr ? plugin->pelmd_hooks : nullptr;
}

conf_plugin_context_t* get_plugin_context(void) {
    const conf_plugin_data* plugin = get_plugin_from_hash();
    return plugin != nullptr ? plugin->plugin_ctxt : nullptr;
}

int conf_plugin_init_api(pelmd_plugin_callback_t* api) {
    if (api == nullptr)
        return plugin_failure("Error input parameter.");
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr)
        return -1;
    if (plugin->pelmd_hooks != nullptr)
        return plugin_failure("Conf API had initialized.");
    void* copy = std::malloc(sizeof *api);
    if (copy == nullptr)
        return plugin_failure("Allocate memory for pelmd api failed.");
    (void)memcpy_s(copy, sizeof *api, api, sizeof *api);
    plugin->pelmd_hooks = static_cast<pelmd_plugin_callback_t*>(copy);
    return 0;
}

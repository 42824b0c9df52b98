#include "conf_plugin/registry.h"

#include "conf_plugin/log.h"
#include "support/bounded.h"

#include <cstddef>
#include <cstdlib>
#include <unistd.h>

// The daemon and its modules share these shapes.
static_assert(sizeof(conf_plugin_data) == 2 * sizeof(void*));
static_assert(offsetof(conf_plugin_data, pelmd_hooks) == sizeof(void*));
static_assert(sizeof(pelmd_plugin_callback_t) == 8 * sizeof(void*));

conf_hash_tbl_t* g_plugin_hash = nullptr;

namespace conf {
namespace {

constexpr u32_t registry_buckets = 8;

u32_t lives_ended;

// The entry is the process's, so the key is formatted anew at each call: a child has another one.
struct registry_key {
    char text[32] = {};

    bool format(pid_t process) noexcept {
        if (snprintf_s(text, sizeof text, sizeof text - 1, "plugin_tid_%d", process) >= 0)
            return true;
        plugin_failure("build hash_key failed");
        return false;
    }
};

life life_of(pid_t process) noexcept {
    return life{std::uint64_t{static_cast<u32_t>(process)} << 32 | lives_ended};
}

conf_plugin_data* entry_of(pid_t process) noexcept {
    registry_key key;
    if (g_plugin_hash == nullptr)
        g_plugin_hash = conf_hash_create(registry_buckets);
    if (g_plugin_hash == nullptr || !key.format(process))
        return nullptr;
    if (void* entry = conf_hash_get(g_plugin_hash, key.text))
        return static_cast<conf_plugin_data*>(entry);
    _conf_write_log(DBG_INFO, "Hash key = %s.", key.text);
    conf_plugin_data empty{};
    if (conf_hash_add(g_plugin_hash, key.text, &empty, sizeof empty) < 0)
        return nullptr;
    return static_cast<conf_plugin_data*>(conf_hash_get(g_plugin_hash, key.text));
}

} // namespace

life this_life() noexcept { return life_of(getpid()); }

conf_plugin_data* find_entry(life* now) noexcept {
    const pid_t process = getpid();
    *now = life_of(process);
    return entry_of(process);
}

void end_life() noexcept { ++lives_ended; }

} // namespace conf

using namespace conf;

conf_plugin_data* get_plugin_from_hash(void) { return entry_of(getpid()); }

void del_plugin_from_hash(void) {
    registry_key key;
    if (g_plugin_hash == nullptr || !key.format(getpid()))
        return;
    end_life();
    conf_hash_del(g_plugin_hash, key.text);
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
    copy_from(*static_cast<pelmd_plugin_callback_t*>(copy), api);
    plugin->pelmd_hooks = static_cast<pelmd_plugin_callback_t*>(copy);
    return 0;
}

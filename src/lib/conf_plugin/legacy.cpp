// The older plugin API, on top of the present one. The handle that its calls take is never read.
#include "conf_api.h"
#include "conf_plugin.h"
#include "conf_plugin/log.h"
#include "conf_plugin/registry.h"
#include "conf_plugin/transport.h"
#include "support/xml.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <sys/epoll.h>

// Older tables are registered as they stand, so the layouts must agree field by field.
static_assert(offsetof(conf_plugin_info_t, config_cbs) ==
              offsetof(econf_plugin_subpub_info_t, config_cbs));
static_assert(offsetof(conf_plugin_info_t, status_cbs) ==
              offsetof(econf_plugin_subpub_info_t, status_cbs));
static_assert(offsetof(conf_plugin_info_t, rpc_cbs) ==
              offsetof(econf_plugin_subpub_info_t, operate_cbs));
static_assert(offsetof(conf_plugin_info_t, kickoff) ==
              offsetof(econf_plugin_subpub_info_t, kick_off));
static_assert(sizeof(config_callback_t) == sizeof(econf_config_cb_info_t));
static_assert(offsetof(config_callback_t, path) == offsetof(econf_config_cb_info_t, path));
static_assert(offsetof(config_callback_t, priority) == offsetof(econf_config_cb_info_t, priority));
static_assert(offsetof(config_callback_t, config_cb) == offsetof(econf_config_cb_info_t, callback));
static_assert(sizeof(status_callback_t) == sizeof(econf_status_cb_info_t));
static_assert(offsetof(status_callback_t, path) == offsetof(econf_status_cb_info_t, path));
static_assert(offsetof(status_callback_t, status_cb) == offsetof(econf_status_cb_info_t, callback));
static_assert(sizeof(rpc_callback_t) == sizeof(econf_operate_cb_info_t));
static_assert(offsetof(rpc_callback_t, rpc_name) == offsetof(econf_operate_cb_info_t, path));
static_assert(offsetof(rpc_callback_t, rpc_cb) == offsetof(econf_operate_cb_info_t, callback));
static_assert(offsetof(conf_plugin_context_t, version) == offsetof(conf_context_t, stub));

using namespace conf;

namespace {

// Out of line: in line it would cost each caller a stack guard, 124 bytes together.
[[gnu::noinline]] xmlNode* pulled(int old_flag, const char* path) noexcept {
    xmlNode* data = nullptr;
    (void)econf_plugin_pull(old_flag, path, &data); // which leaves null on failure
    return data;
}

// Wraps what stands at a path in a "data" element. A failed pull counts as an empty value.
int get_value(int old_flag, const char* path, conf_val_t* val) noexcept {
    if (path == nullptr || val == nullptr)
        return plugin_failure("Input parameters error(path=%p, val=%p).",
                              static_cast<const void*>(path), static_cast<void*>(val));
    val->data = nullptr;
    unique_node_list list{pulled(old_flag, path)};
    if (!list)
        return 0;
    unique_node data{new_element("data")};
    if (data && attach_list(data.get(), list)) {
        val->data = data.release();
        return 0;
    }
    clean_xml_content(list.get());
    return plugin_failure(data ? "Add <data> children node failed." : "Create <data> node failed.");
}

// A request made outside the loop may have left frames in the buffer, for which no event will come.
void serve_what_has_arrived(const conf_plugin_context_t* ctxt) noexcept {
    if (ctxt->bit_activate && ctxt->recv_buf->used > 0)
        econf_plugin_run();
}

// Serves requests until the connection ends, or a callback ends the plugin: the set is empty then.
void serve_events(const conf_plugin_context_t* ctxt, int epoll) noexcept {
    const life serving = this_life();
    serve_what_has_arrived(ctxt);
    while (serving == this_life()) {
        epoll_event event;
        const int count = epoll_wait(epoll, &event, 1, -1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            plugin_failure("Epoll wait failed(%m).");
            return;
        }
        if (event.events != EPOLLIN) {
            plugin_failure("An error epoll event occur(0x%x).", event.events);
            return;
        }
        econf_plugin_run();
    }
}

} // namespace

conf_context_t* conf_plugin_init(char* name, conf_plugin_info_t* plugin_info) {
    if (econf_plugin_init(name, reinterpret_cast<econf_plugin_subpub_info_t*>(plugin_info)) < 0)
        return nullptr;
    conf_plugin_context_t* ctxt = get_plugin_context();
    if (ctxt == nullptr)
        return nullptr;
    ctxt->version = 1;
    return reinterpret_cast<conf_context_t*>(ctxt);
}

int conf_start_session(conf_context_t* /*ctxt*/, int with_cfgr) {
    return econf_plugin_activate(with_cfgr);
}

int conf_plg_get_hconf(conf_context_t* /*ctxt*/) {
    const conf_plugin_context_t* plugin = get_plugin_context();
    return plugin != nullptr ? plugin->sock : -1;
}

int conf_run(conf_context_t* /*ctxt*/, int with_block) {
    const conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr)
        return -1;
    if (with_block == 0) {
        econf_plugin_run();
        return 0;
    }
    if (plugin->plugin_ctxt == nullptr)
        return -1;
    const unique_fd epoll{
        watch_socket(conf_plg_get_hconf(nullptr), EPOLLIN | EPOLLRDHUP | EPOLLET)};
    if (!epoll)
        return -1;
    serve_events(plugin->plugin_ctxt, epoll.get());
    return 0;
}

xmlNode* conf_get_config(const char* path) { return pulled(0, path); }

xmlNode* conf_get_old_config(const char* path) { return pulled(1, path); }

int conf_set_config(const char* path, xmlNode* data) { return econf_plugin_push(path, data); }

int conf_set_error(int err_code, const char* err_msg) {
    econf_plugin_error(err_code, err_msg);
    return 0;
}

int conf_plg_get_value(conf_context_t* /*ctxt*/, char* path, conf_val_t* val) {
    return get_value(0, path, val);
}

int conf_plg_get_old_value(conf_context_t* /*ctxt*/, char* path, conf_val_t* val) {
    return get_value(1, path, val);
}

int conf_plg_set_value(conf_context_t* /*ctxt*/, int /*oper*/, char* path, conf_val_t* val) {
    if (path == nullptr || val == nullptr)
        return plugin_failure("Input parameters error(path=%p, val=%p).",
                              static_cast<const void*>(path), static_cast<void*>(val));
    return econf_plugin_push(path, val->data);
}

int conf_plg_set_error(conf_context_t* /*ctxt*/, int err_code, char* err_msg) {
    econf_plugin_error(err_code, err_msg);
    return 0;
}

int conf_recovery_status(void) { return g_rdb_recovery_status; }

int conf_plugin_close(conf_context_t* /*ctxt*/) {
    econf_plugin_close();
    return 0;
}

int conf_send_reply(int session_id, xmlNode* rpc, xmlNode* data) {
    plugin_failure("WARN: conf_send_reply is obsolete.");
    const conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr)
        return plugin_failure("Can not get plugin information on reply.");
    const pelmd_plugin_callback_t* hooks = plugin->pelmd_hooks;
    if (hooks == nullptr || hooks->conf_plugin_reply == nullptr)
        return -1;
    return hooks->conf_plugin_reply(session_id, rpc, data);
}

#include "conf_plugin/session.h"

#include "conf_api.h"
#include "conf_misc.h"
#include "conf_plugin/log.h"
#include "conf_plugin/message.h"
#include "conf_plugin/registry.h"
#include "conf_plugin/transport.h"
#include "support/socket.h"
#include "support/xml.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>

namespace conf {
namespace {

constexpr int buffer_bytes = 1000;

template <class Entry> u32_t count_entries(const Entry* entries) noexcept {
    u32_t count = 0;
    for (; entries != nullptr && entries->path != nullptr; ++entries)
        ++count;
    return count;
}

int _connect_to_pelmd() noexcept {
    unique_fd sock{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!sock)
        return plugin_failure("Create socket failed(%m).");
    if (!connect_path(sock.get(), g_conf_plugin_socket))
        return plugin_failure("Connect to pelmd failed(%m).");
    if (conf_non_block_fd(sock.get()) < 0)
        return plugin_failure("Set connect to pelmd sock to nonblock failed.");
    return sock.release();
}

// Makes the context, without a connection and without the callbacks.
conf_plugin_context_t* allocate_context(conf_plugin_data* plugin,
                                        const econf_plugin_subpub_info_t* info) noexcept {
    const u32_t configs = count_entries(info->config_cbs);
    const u32_t statuses = count_entries(info->status_cbs);
    const std::size_t slots =
        std::size_t{1} + configs + statuses + count_entries(info->operate_cbs);
    const std::size_t bytes =
        offsetof(conf_plugin_context_t, cbs) + slots * sizeof(econf_subpub_cb_t);
    plugin->plugin_ctxt = static_cast<conf_plugin_context_t*>(std::calloc(1, bytes));
    if (plugin->plugin_ctxt == nullptr)
        return plugin_failure("Allocate %d byte(s) memmory for plugin context failed.",
                              static_cast<int>(bytes));
    plugin->plugin_ctxt->sock = -1;
    record_slots(plugin->plugin_ctxt, configs, statuses);
    return plugin->plugin_ctxt;
}

// What a failure leaves of the context is for the caller to release.
int _init_plugin_context(conf_plugin_data* plugin, const char* name,
                         const econf_plugin_subpub_info_t* info) noexcept {
    conf_plugin_context_t* ctxt = allocate_context(plugin, info);
    if (ctxt == nullptr)
        return -1;
    ctxt->name = strdup(name);
    if (ctxt->name == nullptr)
        return -1;
    ctxt->recv_buf = conf_buffer_create(buffer_bytes);
    ctxt->send_buf = conf_buffer_create(buffer_bytes);
    if (ctxt->recv_buf == nullptr || ctxt->send_buf == nullptr)
        return plugin_failure("Create message buffer for remote plugin failed.");
    ctxt->sock = _connect_to_pelmd();
    if (ctxt->sock < 0)
        return -1;
    ctxt->rpc_id = 1;
    ctxt->version = 2;
    ctxt->cbs[0] = callback_cast<econf_subpub_cb_t>(info->kick_off);
    ctxt->cbs_nums = 1;
    return 0;
}

// Adds an element whose content is read for entity references, as paths are written with them.
bool add_value(xmlNode* parent, const char* name, const char* value) noexcept {
    const memory_watch watch;
    return xmlNewChild(parent, nullptr, BAD_CAST name, BAD_CAST value) != nullptr &&
           !watch.ran_out();
}

// Describes a callback, and gives it the next slot, whose index is announced.
bool add_entry(conf_plugin_context_t* ctxt, xmlNode* section, const char* element, const char* path,
               const int* priority, econf_subpub_cb_t callback) noexcept {
    xmlNode* entry = add_empty(section, element);
    if (entry == nullptr || !add_value(entry, "path", path) ||
        (priority != nullptr && add_number(entry, "priority", *priority) == nullptr) ||
        add_number(entry, "callback", static_cast<long>(ctxt->cbs_nums)) == nullptr)
        return false;
    ctxt->cbs[ctxt->cbs_nums++] = callback;
    return true;
}

const int* priority_of(const econf_config_cb_info_t& info) noexcept { return &info.priority; }
template <class Info> const int* priority_of(const Info&) noexcept { return nullptr; }

template <class Info>
int build_section(conf_plugin_context_t* ctxt, xmlNode* params, const char* name,
                  const char* element, const Info* infos) noexcept {
    xmlNode* section = add_empty(params, name);
    if (section == nullptr)
        return -1;
    for (; infos->path != nullptr; ++infos)
        if (!add_entry(ctxt, section, element, infos->path, priority_of(*infos),
                       callback_cast<econf_subpub_cb_t>(infos->callback)))
            return plugin_failure("Build %s on path %s failed.", name, infos->path);
    return 0;
}

int _build_config_subscribe(conf_plugin_context_t* ctxt, xmlNode* params,
                            const econf_config_cb_info_t* infos) noexcept {
    return build_section(ctxt, params, "config-subscribe", "subscriber", infos);
}

int _build_status_publish(conf_plugin_context_t* ctxt, xmlNode* params,
                          const econf_status_cb_info_t* infos) noexcept {
    return build_section(ctxt, params, "status-publish", "publisher", infos);
}

int _build_operate_subscribe(conf_plugin_context_t* ctxt, xmlNode* params,
                             const econf_operate_cb_info_t* infos) noexcept {
    return build_section(ctxt, params, "operate-subscribe", "subscriber", infos);
}

// Fills the callback slots on the way.
xmlNode* _build_register_params(conf_plugin_context_t* ctxt, const char* name,
                                const econf_plugin_subpub_info_t* info) noexcept {
    secret_node params{new_element("params")};
    if (!params || add_text(params.get(), "plugin-name", name) == nullptr)
        return nullptr;
    if (info->config_cbs != nullptr &&
        _build_config_subscribe(ctxt, params.get(), info->config_cbs) < 0)
        return nullptr;
    if (info->status_cbs != nullptr &&
        _build_status_publish(ctxt, params.get(), info->status_cbs) < 0)
        return nullptr;
    if (info->operate_cbs != nullptr &&
        _build_operate_subscribe(ctxt, params.get(), info->operate_cbs) < 0)
        return nullptr;
    return params.release();
}

xmlNode* _build_register_rpc(conf_plugin_context_t* ctxt, const char* name,
                             const econf_plugin_subpub_info_t* info) noexcept {
    xmlNode* params = _build_register_params(ctxt, name, info);
    return params != nullptr ? plugin_build_rpc_message("register", params, ctxt->rpc_id) : nullptr;
}

// The words of a mode: of its element, null for none, and in the log.
struct mode_words {
    const char* element;
    const char* shown;
};

mode_words words_of(int start_mode) noexcept {
    switch (start_mode) {
    case ACTIVATE_WITH_CFGR:
        return {"with-cfgr", "cfgr"};
    case ACTIVATE_WITH_SMOOTH:
        return {"with-smooth", "smooth"};
    default:
        return {nullptr, "none"};
    }
}

xmlNode* _build_activate_rpc(const conf_plugin_context_t* ctxt, const mode_words& mode) noexcept {
    secret_node params{new_element("params")};
    if (!params || (mode.element != nullptr && add_empty(params.get(), mode.element) == nullptr))
        return plugin_failure("Build activate rpc for plugin %s failed.", ctxt->name);
    return plugin_build_rpc_message("activate", params.release(), ctxt->rpc_id);
}

xmlNode* _build_deactivate_rpc(const conf_plugin_context_t* ctxt) noexcept {
    xmlNode* params = new_element("params");
    return params != nullptr ? plugin_build_rpc_message("deactivate", params, ctxt->rpc_id)
                             : nullptr;
}

// Announces the plugin. The context is there, and stays for the caller to release on failure.
int register_plugin(conf_plugin_data* plugin, const char* name,
                    const econf_plugin_subpub_info_t* info) noexcept {
    const unique_node rpc{_build_register_rpc(plugin->plugin_ctxt, name, info)};
    if (!rpc)
        return plugin_failure("Build register rpc for plugin %s failed.", name);
    if (_plugin_single_rpc_send(plugin, rpc.get()) < 0)
        return plugin_failure("Plugin %s register to pelmd failed.", name);
    return 0;
}

} // namespace

void _plugin_set_error(conf_plugin_data* plugin, int err_code, const char* err_msg, ...) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    char* text = nullptr;
    va_list arguments;
    va_start(arguments, err_msg);
    if (err_msg == nullptr || vasprintf(&text, err_msg, arguments) < 0)
        text = default_error();
    va_end(arguments);
    ctxt->err_code = err_code;
    error_text_traits::close(std::exchange(ctxt->err_msg, text)); // the new text may quote the old
}

} // namespace conf

using namespace conf;

int econf_plugin_init(const char* name, econf_plugin_subpub_info_t* cb_info) {
    if (name == nullptr || cb_info == nullptr)
        return plugin_failure("Input parameters error(name=%p, reg_info=%p).",
                              static_cast<const void*>(name), static_cast<void*>(cb_info));
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr)
        return -1;
    (void)conf_load_config(nullptr); // without a profile the path in force serves
    if (plugin->pelmd_hooks != nullptr)
        return plugin_failure("Plugin %s context has been created.", "local");
    if (plugin->plugin_ctxt != nullptr)
        return plugin_failure("Plugin %s context has been created.", "remote");
    if (_init_plugin_context(plugin, name, cb_info) < 0) {
        _free_plugin_context();
        return plugin_failure("Initialize context for plugin %s failed.", name);
    }
    if (register_plugin(plugin, name, cb_info) < 0) {
        _free_plugin_context();
        return -1;
    }
    _conf_write_log(DBG_DEBUG, "Register plugin %s success.", name);
    return plugin->plugin_ctxt->sock;
}

int econf_plugin_activate(int start_mode) {
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr || plugin->plugin_ctxt == nullptr)
        return plugin_failure("Plugin context is not ready when active.");
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    if (ctxt->bit_activate)
        return plugin_failure("Plugin %s has been activated.", ctxt->name);
    const mode_words mode = words_of(start_mode);
    const unique_node rpc{_build_activate_rpc(ctxt, mode)};
    if (!rpc)
        return plugin_failure("Build activate rpc in mode(%s) for plugin %s failed.", mode.shown,
                              ctxt->name);
    if (_plugin_single_rpc_send(plugin, rpc.get()) < 0)
        return plugin_failure("Activate plugin %s failed.", ctxt->name);
    ctxt->bit_activate = 1;
    _conf_write_log(DBG_DEBUG, "Activate plugin %s success.", ctxt->name);
    return 0;
}

void econf_plugin_deactivate(void) {
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr || plugin->plugin_ctxt == nullptr) {
        (void)plugin_failure("Plugin context is not ready.");
        return;
    }
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    if (!ctxt->bit_activate) {
        _conf_write_log(DBG_DEBUG, "Plugin %s has been deactivated.", ctxt->name);
        return;
    }
    const unique_node rpc{_build_deactivate_rpc(ctxt)};
    if (!rpc) {
        (void)plugin_failure("Build deactivate rpc for plugin %s failed.", ctxt->name);
    } else if (_plugin_single_rpc_send(plugin, rpc.get()) < 0) {
        (void)plugin_failure("Dectivate plugin %s failed.", ctxt->name);
    } else {
        ctxt->bit_activate = 0;
        _conf_write_log(DBG_DEBUG, "Dectivate plugin %s success.", ctxt->name);
    }
}

void econf_plugin_close(void) {
    const conf_plugin_context_t* ctxt = get_plugin_context();
    if (ctxt == nullptr) {
        (void)plugin_failure("Plugin context is not ready when close.");
        return;
    }
    _conf_write_log(DBG_DEBUG, "Close plugin %s.", ctxt->name);
    _free_plugin_context();
}

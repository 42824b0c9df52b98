// A plugin's way from registration to its end.
#include "conf_api.h"
#include "conf_misc.h"
#include "conf_plugin/context.h"
#include "conf_plugin/exchange.h"
#include "conf_plugin/log.h"
#include "conf_plugin/message.h"
#include "support/socket.h"
#include "support/xml.h"

#include <sys/socket.h>

namespace conf {
namespace {

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

// What a failure leaves of the context is for the caller to release.
int _init_plugin_context(conf_plugin_data* plugin, const char* name,
                         const econf_plugin_subpub_info_t* info) noexcept {
    if (make_context(plugin, name, info) < 0)
        return -1;
    plugin->plugin_ctxt->sock = _connect_to_pelmd();
    return plugin->plugin_ctxt->sock < 0 ? -1 : 0;
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

// Fills the callback slots on the way.
xmlNode* _build_register_params(conf_plugin_context_t* ctxt, const char* name,
                                const econf_plugin_subpub_info_t* info) noexcept {
    secret_node params{new_element("params")};
    if (!params || add_text(params.get(), "plugin-name", name) == nullptr)
        return nullptr;
    if (info->config_cbs != nullptr &&
        build_section(ctxt, params.get(), "config-subscribe", "subscriber", info->config_cbs) < 0)
        return nullptr;
    if (info->status_cbs != nullptr &&
        build_section(ctxt, params.get(), "status-publish", "publisher", info->status_cbs) < 0)
        return nullptr;
    if (info->operate_cbs != nullptr &&
        build_section(ctxt, params.get(), "operate-subscribe", "subscriber", info->operate_cbs) < 0)
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
        return plugin_failure("Build %s rpc for plugin %s failed.", "activate", ctxt->name);
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
        return plugin_failure("Build %s rpc for plugin %s failed.", "register", name);
    if (_plugin_single_rpc_send(plugin, rpc.get()) < 0)
        return plugin_failure("Plugin %s register to pelmd failed.", name);
    return 0;
}

} // namespace

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
        plugin_failure("Plugin context is not ready.");
        return;
    }
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    if (!ctxt->bit_activate) {
        _conf_write_log(DBG_DEBUG, "Plugin %s has been deactivated.", ctxt->name);
        return;
    }
    const unique_node rpc{_build_deactivate_rpc(ctxt)};
    if (!rpc) {
        plugin_failure("Build %s rpc for plugin %s failed.", "deactivate", ctxt->name);
    } else if (_plugin_single_rpc_send(plugin, rpc.get()) < 0) {
        plugin_failure("Dectivate plugin %s failed.", ctxt->name);
    } else {
        ctxt->bit_activate = 0;
        _conf_write_log(DBG_DEBUG, "Dectivate plugin %s success.", ctxt->name);
    }
}

void econf_plugin_close(void) {
    const conf_plugin_context_t* ctxt = get_plugin_context();
    if (ctxt == nullptr) {
        plugin_failure("Plugin context is not ready when close.");
        return;
    }
    _conf_write_log(DBG_DEBUG, "Close plugin %s.", ctxt->name);
    _free_plugin_context();
}

// What a plugin asks of the daemon: over its connection, or of the hooks of a daemon that it runs inside.
#include "conf_api.h"
#include "conf_misc.h"
#include "conf_plugin/context.h"
#include "conf_plugin/exchange.h"
#include "conf_plugin/log.h"
#include "conf_plugin/paths.h"
#include "support/xml.h"

#include <cstring>
#include <type_traits>

namespace conf {
namespace {

bool is_active(const conf_plugin_data* plugin) noexcept {
    if (plugin->plugin_ctxt != nullptr && plugin->plugin_ctxt->bit_activate)
        return true;
    plugin_failure("Plugin context is not ready or not be activated.");
    return false;
}

failure parameter_failure(const char* path, const void* result) noexcept {
    return plugin_failure("Input parameters error(path=%p, result=%p).",
                          static_cast<const void*>(path), result);
}

// The entry that a call without arguments works on.
conf_plugin_data* entry_for_call() noexcept {
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr)
        plugin_failure("Input parameters error, plugin is null.");
    return plugin;
}

failure build_failure(const char* what, const conf_plugin_context_t* ctxt) noexcept {
    return plugin_failure("Build %s rpc for plugin %s failed.", what, ctxt->name);
}

// Calls a hook of the daemon's, which may not have given that one.
template <class Hook, class... Arguments>
int call_hook(Hook hook, const char* name, Arguments... arguments) noexcept {
    if (hook == nullptr)
        return plugin_failure("Pelmd doesn't inject %s function.", name);
    if constexpr (std::is_void_v<std::invoke_result_t<Hook, Arguments...>>)
        return hook(arguments...), 0;
    else
        return hook(arguments...);
}

// The same for one that hands out nodes, and is not believed when it fails.
template <class Hook>
int call_query_hook(Hook hook, const char* name, int old_flag, const char* path,
                    xmlNode** out) noexcept {
    const int ret = call_hook(hook, name, bool_t{old_flag != 0}, path, out);
    if (ret != 0)
        *out = nullptr;
    return ret;
}

xmlNode* build_query_params(int old_flag, const char* path) noexcept {
    secret_node params{new_element("params")};
    if (!params || (old_flag != 0 && add_empty(params.get(), "old") == nullptr) ||
        add_text(params.get(), "path", path) == nullptr)
        return nullptr;
    return params.release();
}

xmlNode* build_query(const conf_plugin_context_t* ctxt, const char* method, int old_flag,
                     const char* path) noexcept {
    xmlNode* params = build_query_params(old_flag, path);
    if (params == nullptr)
        return build_failure("pull", ctxt);
    return plugin_build_rpc_message(method, params, ctxt->rpc_id);
}

// Asks for what stands at a path. *reply is the caller's, whatever is returned; *result, within it, is
// null when the daemon answered with an error.
int query(conf_plugin_data* plugin, const char* method, int old_flag, const char* path,
          xmlNode** reply, xmlNode** result) noexcept {
    if (!is_active(plugin))
        return -1;
    const conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    const unique_node rpc{build_query(ctxt, method, old_flag, path)};
    if (!rpc)
        return build_failure("pull", ctxt);
    *reply = ask_pelmd(plugin, rpc.get());
    xmlNode* error;
    return *reply != nullptr ? split_reply(plugin, *reply, result, &error) : -1;
}

// Whether what is below may lean on a namespace that is declared here or further up.
bool has_namespaces(const xmlNode* node) noexcept {
    for (; node != nullptr; node = node->parent)
        if (node->nsDef != nullptr)
            return true;
    return false;
}

// The children of an element of an answer: themselves, or copies where they may lean on what stays. Null,
// for none too, is reported but is no failure.
xmlNode* take_children(const conf_plugin_data* plugin, xmlNode* parent) noexcept {
    xmlNode* first = has_namespaces(parent) ? copy_siblings(parent->children) : cut_off(parent);
    if (first == nullptr)
        plugin_failure("Plugin %s copy child list failed.", plugin->plugin_ctxt->name);
    return first;
}

// What the answer to a pull holds.
xmlNode* take_data(const conf_plugin_data* plugin, const xmlNode* result) noexcept {
    for (xmlNode* child = result->children; child != nullptr; child = child->next)
        if (is_named(child, "data"))
            return child->children != nullptr ? take_children(plugin, child) : nullptr;
    return nullptr;
}

// The content of a node is read for entity references, a text of its own is not.
void unquote_position(xmlNode* node) noexcept {
    const char* text = conf_get_node_content(node);
    if (text == nullptr)
        return;
    const unique_string path{datastore_path_rm_quotes(strdup(text))};
    unique_node content{path ? xmlNewText(BAD_CAST path.get()) : nullptr};
    if (!content || content.get()->content == nullptr)
        return;
    // The old content goes first, since texts that meet are joined, and comes back on failure.
    unique_node_list old{std::exchange(node->children, nullptr)};
    xmlNode* const last = std::exchange(node->last, nullptr);
    if (attach(node, content))
        return;
    node->children = old.release();
    node->last = last;
}

// What the answer to a locate holds.
xmlNode* take_position(const conf_plugin_data* plugin, xmlNode* result) noexcept {
    xmlNode* position = take_children(plugin, result);
    for (xmlNode* node = position; node != nullptr; node = node->next)
        if (is_named(node, "prev") || is_named(node, "next"))
            unquote_position(node);
    return position;
}

// Builds "params" with the path, the operation's word if there is one, and a copy of the data.
xmlNode* build_data_params(const char* path, const char* oper_word, xmlNode* data) noexcept {
    secret_node params{new_element("params")};
    if (!params || add_text(params.get(), "path", path) == nullptr ||
        (oper_word != nullptr && add_text(params.get(), "oper-type", oper_word) == nullptr))
        return nullptr;
    xmlNode* holder = add_empty(params.get(), "data");
    unique_node_list copy{copy_siblings(data)};
    if (holder != nullptr && copy && attach_list(holder, copy))
        return params.release();
    clean_xml_content(copy.get());
    return nullptr;
}

xmlNode* build_push(const conf_plugin_context_t* ctxt, const char* path, xmlNode* data) noexcept {
    xmlNode* params = build_data_params(path, nullptr, data);
    if (params == nullptr)
        return build_failure("push", ctxt);
    return plugin_build_rpc_message("push", params, ctxt->rpc_id);
}

const char* deployment_word(int oper) noexcept {
    switch (oper) {
    case 0:
        return "add";
    case 1:
        return "delete";
    default:
        return "update";
    }
}

xmlNode* build_deployment(const conf_plugin_context_t* ctxt, const char* path, int oper,
                          xmlNode* data) noexcept {
    xmlNode* params = build_data_params(path, deployment_word(oper), data);
    if (params == nullptr)
        return build_failure("config_deployment", ctxt);
    return plugin_build_rpc_message("config_deployment", params, ctxt->rpc_id);
}

// Sends a request that carries data, and takes it over. It may not have been built.
int send_data(conf_plugin_data* plugin, const char* what, xmlNode* request,
              const char* content) noexcept {
    const secret_node rpc{request};
    const conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    if (!rpc)
        return build_failure(what, ctxt);
    _conf_write_log(DBG_INFO, "Begin to send %s packet, name:%s", what, ctxt->name);
    const int ret = _plugin_single_rpc_send(plugin, rpc.get());
    if (ret < 0)
        plugin_failure("Plugin %s publish %s failed.", ctxt->name, content);
    _conf_write_log(DBG_INFO, "End to send %s packet, name:%s", what, ctxt->name);
    return ret;
}

// Sends a request that carries none, and takes it over. It may not have been built.
int send_order(conf_plugin_data* plugin, xmlNode* request, const char* content) noexcept {
    const unique_node rpc{request};
    if (!rpc || _plugin_single_rpc_send(plugin, rpc.get()) < 0)
        return plugin_failure("Plugin %s %s data failed.", plugin->plugin_ctxt->name, content);
    return 0;
}

} // namespace
} // namespace conf

using namespace conf;

int econf_plugin_pull(int old_flag, const char* path, xmlNode** result) {
    if (result != nullptr)
        *result = nullptr;
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr || path == nullptr || result == nullptr)
        return parameter_failure(path, result);
    if (const pelmd_plugin_callback_t* hooks = plugin->pelmd_hooks)
        return call_query_hook(hooks->conf_plugin_pull, "conf_plugin_pull", old_flag, path, result);
    secret_node reply;
    xmlNode* found = nullptr;
    if (query(plugin, "pull", old_flag, path, reply.out(), &found) < 0)
        return -1;
    if (found != nullptr)
        *result = take_data(plugin, found);
    return 0;
}

int econf_plugin_locate(int old_flag, const char* path, xmlNode** position) {
    if (position != nullptr)
        *position = nullptr;
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr || path == nullptr || position == nullptr)
        return parameter_failure(path, position);
    if (const pelmd_plugin_callback_t* hooks = plugin->pelmd_hooks)
        return call_query_hook(hooks->conf_plugin_locate, "conf_plugin_locate", old_flag, path,
                               position);
    unique_node reply; // paths are no secrets
    xmlNode* found = nullptr;
    if (query(plugin, "locate", old_flag, path, reply.out(), &found) < 0)
        return -1;
    if (found != nullptr)
        *position = take_position(plugin, found);
    return 0;
}

int econf_plugin_push(const char* path, xmlNode* data) {
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr || path == nullptr || data == nullptr)
        return parameter_failure(path, data);
    if (const pelmd_plugin_callback_t* hooks = plugin->pelmd_hooks)
        return call_hook(hooks->conf_plugin_push, "conf_plugin_push", path, data);
    if (!is_active(plugin))
        return -1;
    const conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    _conf_write_log(DBG_INFO, "Build push packet, path:%s, name:%s", path, ctxt->name);
    return send_data(plugin, "push", build_push(ctxt, path, data), "data");
}

int econf_plugin_config_deployment(const char* path, int oper, xmlNode* data) {
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr || path == nullptr || data == nullptr)
        return parameter_failure(path, data);
    if (const pelmd_plugin_callback_t* hooks = plugin->pelmd_hooks)
        return call_hook(hooks->conf_plugin_config_deployment, "conf_plugin_config_deployment",
                         path, oper, data);
    if (!is_active(plugin))
        return -1;
    const conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    _conf_write_log(DBG_INFO, "Build config deployment packet, path:%s, oper:%u, name:%s", path,
                    static_cast<u32_t>(oper), ctxt->name);
    return send_data(plugin, "config deployment", build_deployment(ctxt, path, oper, data),
                     "deployment data");
}

int econf_plugin_save_deployment(void) {
    conf_plugin_data* plugin = entry_for_call();
    if (plugin == nullptr)
        return -1;
    if (const pelmd_plugin_callback_t* hooks = plugin->pelmd_hooks)
        return call_hook(hooks->conf_plugin_save_deployment, "conf_plugin_save_deployment");
    if (!is_active(plugin))
        return -1;
    const conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    xmlNode* params = new_element("params");
    if (params == nullptr)
        return build_failure("save_deployment", ctxt);
    return send_order(plugin, plugin_build_rpc_message("save_deployment", params, ctxt->rpc_id),
                      "save deployment");
}

int econf_plugin_copy_running_to_deployment(int override) {
    conf_plugin_data* plugin = entry_for_call();
    if (plugin == nullptr)
        return -1;
    if (const pelmd_plugin_callback_t* hooks = plugin->pelmd_hooks)
        return call_hook(hooks->conf_plugin_copy_running_to_deployment,
                         "conf_plugin_copy_running_to_deployment", override);
    if (!is_active(plugin))
        return -1;
    const conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    unique_node params{new_element("params")};
    if (!params)
        return build_failure("copy_deployment_to_memory", ctxt);
    if (add_text(params.get(), "override", override == 1 ? "1" : "0") == nullptr)
        return -1;
    return send_order(
        plugin,
        plugin_build_rpc_message("copy_deployment_to_memory", params.release(), ctxt->rpc_id),
        "copy deployment to memory");
}

void econf_plugin_error(int err_code, const char* err_msg) {
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr) {
        plugin_failure("Can not get plugin information on error set.");
    } else if (const pelmd_plugin_callback_t* hooks = plugin->pelmd_hooks) {
        (void)call_hook(hooks->conf_plugin_error, "conf_plugin_error", err_code, err_msg);
    } else if (is_active(plugin)) {
        if (err_msg == nullptr)
            _plugin_set_error(plugin, err_code, nullptr);
        else
            _plugin_set_error(plugin, err_code, "%s", err_msg);
    }
}

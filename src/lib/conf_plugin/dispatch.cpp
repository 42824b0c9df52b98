// The dispatch loop: each request is parsed, handled, answered and freed before the next is looked at.
//
// A handler returns what its request is to be answered with, and serve() sends it. The callbacks that
// handlers run are foreign code: one may end its own plugin, even register anew, or return in a child that
// it made. Then nothing of the plugin is touched, the request gets no answer, and the loop ends.
#include "conf_api.h"
#include "conf_misc.h"
#include "conf_plugin/context.h"
#include "conf_plugin/exchange.h"
#include "conf_plugin/log.h"
#include "conf_plugin/message.h"
#include "conf_plugin/paths.h"
#include "conf_plugin/registry.h"
#include "conf_plugin/transport.h"
#include "support/xml.h"

#include <cstdlib>
#include <cstring>

int g_rdb_recovery_status = 0;

namespace conf {
namespace {

constexpr int legacy_version = 1;
constexpr u32_t no_index = UINT32_MAX;

int number_of(const char* text) noexcept {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

// A number that is no index stays none, however wide a long is.
u32_t index_of(const char* text) noexcept {
    const long long number = std::strtoll(text, nullptr, 10);
    return number >= 0 && number < no_index ? static_cast<u32_t>(number) : no_index;
}

// What the daemon asks, and of whom. The texts point into its message, and older callbacks take them
// as their own.
struct request {
    conf_plugin_data* plugin;
    life serving; // the plugin's, until its own code has ended it
    const char* method;
    u32_t id;
    bool is_legacy; // calls and answers in the forms of the older API
    const char* type = nullptr;
    xmlNode* info = nullptr;
    char* path = nullptr;
    char* filter = nullptr;
    int session = -1;
    u32_t callback = no_index;
};

void read_arguments(const xmlNode* params, request* rpc) noexcept {
    for (xmlNode* child = params->children; child != nullptr; child = child->next) {
        char* text = const_cast<char*>(conf_get_node_content(child));
        if (is_named(child, "type"))
            rpc->type = text;
        else if (is_named(child, "info"))
            rpc->info = child;
        else if (is_named(child, "path"))
            rpc->path = text;
        else if (is_named(child, "filter"))
            rpc->filter = text;
        else if (is_named(child, "session-id") && text != nullptr)
            rpc->session = number_of(text);
        else if (is_named(child, "callback") && text != nullptr)
            rpc->callback = index_of(text);
    }
}

// What a request is answered with: a result of its own, what stands in the error slot (the error recorded,
// or success), or nothing: at all, or because the plugin is gone.
enum class answer { result, recorded, none, gone };

answer failed(const request& rpc, const char* text) noexcept {
    _plugin_set_error(rpc.plugin, -1, "%s", text);
    return answer::recorded;
}

// What a callback's failure is answered with is what it recorded, or else its result.
answer failed(const request& rpc, int result) noexcept {
    if (rpc.plugin->plugin_ctxt->err_msg == nullptr)
        _plugin_set_error(rpc.plugin, result, nullptr);
    return answer::recorded;
}

// Runs a plugin's own code. @return whether the plugin being served is still there
template <class Code> bool run_foreign(const request& rpc, Code code) noexcept {
    code();
    return rpc.serving == this_life();
}

// What a publish says of a change.
struct config_change {
    int oper = 0;
    int more = 0;
    int priority = 0;
    unique_string path;
};

// @return false (reported) without memory for the path
bool read_change(const xmlNode* info, config_change* change) noexcept {
    for (xmlNode* child = info->children; child != nullptr; child = child->next) {
        const char* text = conf_get_node_content(child);
        if (text == nullptr)
            continue;
        if (is_named(child, "oper-type")) {
            change->oper = number_of(text);
        } else if (is_named(child, "more-flag")) {
            change->more = number_of(text);
        } else if (is_named(child, "priority")) {
            change->priority = number_of(text);
        } else if (is_named(child, "path")) {
            change->path.reset(datastore_path_rm_quotes(strdup(text)));
            if (!change->path) {
                plugin_failure("Duplicated path %s failed.", text);
                return false;
            }
        }
    }
    return true;
}

// Rounds once, in hardware: the compiler's own way is a routine of 512 bytes on the device.
float to_float(long long number) noexcept {
    return static_cast<float>(static_cast<double>(static_cast<std::int32_t>(number >> 32)) *
                                  0x1p32 +
                              static_cast<std::uint32_t>(number));
}

int call_config(const request& rpc, econf_subpub_cb_t callback,
                const config_change& change) noexcept {
    if (rpc.is_legacy)
        return callback_cast<conf_config_cb_t>(callback)(change.oper, change.more, change.priority,
                                                         change.path.get());
    const long long start = conf_get_unix_time();
    const int result = callback_cast<econf_config_cb_t>(callback)(
        rpc.session, change.oper, change.more, change.priority, change.path.get());
    const auto elapsed = to_float(conf_get_unix_time() - start) / 1000000;
    _conf_write_log(
        DBG_DEBUG,
        "Service publish result: %d for path:%s oper:%d priority:%d time consumed:%.3f seconds",
        result, shown(change.path.get()), change.oper, change.priority,
        static_cast<double>(elapsed));
    if (result != 0 && (change.oper & CONFIG_OP_CFGR) != 0)
        ++g_rdb_recovery_status;
    return result;
}

answer _publish_config_proc(const request& rpc, unique_node& /*result*/) noexcept {
    conf_plugin_context_t* ctxt = rpc.plugin->plugin_ctxt;
    config_change change;
    if (!read_change(rpc.info, &change)) { // without its path it must not be served
        _plugin_set_error(rpc.plugin, -1, nullptr);
        return answer::recorded;
    }
    const econf_subpub_cb_t callback = find_callback(ctxt, rpc.callback, slot_kind::config);
    if (callback == nullptr) {
        _conf_write_log(DBG_DEBUG, "Cann't find the callback for path:%s oper:%d priority:%d",
                        shown(change.path.get()), change.oper, change.priority);
        return failed(rpc, "Cann't find the callback function.");
    }
    int ret = 0;
    if (!run_foreign(rpc, [&] { ret = call_config(rpc, callback, change); }))
        return answer::gone;
    if (ret != 0)
        return failed(rpc, ret);
    ctxt->err_code = 0; // a change that was accepted is no failure, whatever was recorded
    return answer::recorded;
}

// Calls a callback that hands nodes back, and fills "result" with them. @return null, or what went wrong
using nodes_call = int(const request& rpc, econf_subpub_cb_t callback, xmlNode** nodes) noexcept;
using nodes_fill = const char*(const request& rpc, xmlNode* result,
                               unique_node_list& nodes) noexcept;

answer serve_nodes(const request& rpc, slot_kind kind, nodes_call* call, nodes_fill* fill,
                   unique_node& result) noexcept {
    const conf_plugin_context_t* ctxt = rpc.plugin->plugin_ctxt;
    const econf_subpub_cb_t callback = find_callback(ctxt, rpc.callback, kind);
    if (callback == nullptr)
        return failed(rpc, rpc.callback < ctxt->cbs_nums ? "Cann't find the callback function."
                                                         : "Callback index is invalid.");
    unique_node_list nodes;
    int ret = 0;
    if (!run_foreign(rpc, [&] { ret = call(rpc, callback, nodes.out()); }))
        return answer::gone;
    if (ret != 0)
        return failed(rpc, ret);
    result.reset(new_element("result"));
    const char* fault = result ? fill(rpc, result.get(), nodes) : "New <result> xml node failed.";
    return fault != nullptr ? failed(rpc, fault) : answer::result;
}

int call_operate(const request& rpc, econf_subpub_cb_t callback, xmlNode** output) noexcept {
    xmlNode* input = rpc.info->children;
    return rpc.is_legacy ? callback_cast<conf_operate_cb_t>(callback)(input, output)
                         : callback_cast<econf_operate_cb_t>(callback)(rpc.session, input, output);
}

// The older API hands back one node, whose children are the answer.
const char* copy_output(xmlNode* result, const xmlNode* output) noexcept {
    unique_node_list copies{copy_siblings(output->children)};
    if (!copies)
        return "Copy <data> xml node failed.";
    return attach_list(result, copies) ? nullptr : "Add <data> as children failed.";
}

const char* fill_output(const request& rpc, xmlNode* result, unique_node_list& output) noexcept {
    if (!output)
        return add_empty(result, "ok") != nullptr ? nullptr : "New <ok> xml node failed.";
    if (rpc.is_legacy)
        return copy_output(result, output.get());
    return attach_list(result, output) ? nullptr : "add <output> xml node failed.";
}

answer _publish_operate_proc(const request& rpc, unique_node& result) noexcept {
    return serve_nodes(rpc, slot_kind::operate, call_operate, fill_output, result);
}

answer refuse_publish(const request& rpc, unique_node& /*result*/) noexcept {
    const bool is_whole = rpc.info != nullptr && rpc.type != nullptr;
    return failed(rpc, is_whole ? "Unknown publish type." : "Error publish rpc message.");
}

int call_status(const request& rpc, econf_subpub_cb_t callback, xmlNode** status) noexcept {
    return rpc.is_legacy ? callback_cast<conf_status_cb_t>(callback)(rpc.path, rpc.filter, status)
                         : callback_cast<econf_status_cb_t>(callback)(rpc.session, rpc.path,
                                                                      rpc.filter, status);
}

// Builds "path" (not in the older API) and "data".
const char* fill_status(const request& rpc, xmlNode* result, unique_node_list& status) noexcept {
    if (!rpc.is_legacy && add_text(result, "path", rpc.path) == nullptr)
        return "New <path> xml node failed.";
    xmlNode* data = add_empty(result, "data");
    if (data == nullptr)
        return "New <data> xml node failed.";
    if (status && !attach_list(data, status))
        return "Add status as a child failed.";
    return nullptr;
}

answer _method_subscribe_proc(const request& rpc, unique_node& result) noexcept {
    return serve_nodes(rpc, slot_kind::status, call_status, fill_status, result);
}

answer _method_kickoff_proc(const request& rpc, unique_node& /*result*/) noexcept {
    conf_plugin_context_t* ctxt = rpc.plugin->plugin_ctxt;
    _conf_write_log(DBG_INFO, "Plugin %s kickoff now.", ctxt->name);
    if (const econf_subpub_cb_t callback = find_callback(ctxt, 0, slot_kind::kick_off))
        if (!run_foreign(rpc, callback_cast<void (*)()>(callback)))
            return answer::gone;
    error_text left; // which never reaches the daemon
    (void)take_error(ctxt, &left);
    if (left && left.get() != def_err_msg)
        _conf_write_log(DBG_WARN, "Plugin kickoff have error %s now.", left.get());
    return answer::recorded;
}

answer _method_default_proc(const request& rpc, unique_node& /*result*/) noexcept {
    if (rpc.id == 0)
        return answer::none;
    _plugin_set_error(rpc.plugin, -1, "Method <%s> doesn't be supported", rpc.method);
    return answer::recorded;
}

// The words lie in the row itself, so that the loader has only the functions to place.
struct handler {
    char method[12];
    char type[12]; // empty for any
    answer (*run)(const request&, unique_node& result) noexcept;
    bool is_operation;
};

constexpr handler handlers[] = {
    {"publish", "config", _publish_config_proc, false},
    {"publish", "operate", _publish_operate_proc, true},
    {"publish", "", refuse_publish, false},
    {"subscribe", "", _method_subscribe_proc, false},
    {"kickoff", "", _method_kickoff_proc, false},
};

const handler* find_handler(const request& rpc) noexcept {
    const bool has_type = rpc.type != nullptr && rpc.info != nullptr;
    for (const handler& row : handlers)
        if (std::strcmp(row.method, rpc.method) == 0 &&
            (row.type[0] == '\0' || (has_type && std::strcmp(row.type, rpc.type) == 0)))
            return &row;
    return nullptr;
}

// Sends the answer of an operation or a status query, which leaves the error slot alone.
// @return false, with the error recorded, when there is nothing to send
bool send_result(const request& rpc, unique_node& result) noexcept {
    const unique_node reply{plugin_build_reply_message(result.release(), rpc.id)};
    if (!reply) {
        _plugin_set_error(rpc.plugin, -1, "Build reply message failed.");
        return false;
    }
    if (_syn_send_reply(rpc.plugin, reply.get()) < 0)
        plugin_failure("Send reply message to pelmd failed.");
    return true;
}

// @return whether the plugin is still there
bool serve(const request& rpc) noexcept {
    const handler* known = find_handler(rpc);
    if (known == nullptr)
        _conf_write_log(DBG_WARN, "Receive an unknown rpc method %s.", rpc.method);
    unique_node result;
    const answer reply =
        known != nullptr ? known->run(rpc, result) : _method_default_proc(rpc, result);
    if (reply == answer::gone)
        return false;
    if (reply == answer::none || (reply == answer::result && send_result(rpc, result)))
        return true;
    if (_plugin_single_reply_send(rpc.plugin, rpc.id) == 0)
        return true;
    const char* name = rpc.plugin->plugin_ctxt->name;
    if (known != nullptr && known->is_operation)
        plugin_failure("Plugin %s send error-reply failed.", name);
    else // whatever it was that is served
        plugin_failure("Plugin %s send reply for %s rpc failed.", name,
                       known != nullptr ? "publish" : rpc.method);
    return true;
}

// Paths and filters point into the message, so it is wiped once the answer has been sent.
// @return whether the plugin is still there
bool serve_frame(conf_plugin_data* plugin, life serving) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    const secret_node message{take_message(ctxt->recv_buf, message_parser())};
    if (!message) {
        _conf_write_log(DBG_DEBUG, "Plugin %s parse message failed.", ctxt->name);
        return true;
    }
    const char* method;
    xmlNode* params;
    if (plugin_parse_rpc(message.get(), &method, &params) < 0) {
        _conf_write_log(DBG_DEBUG, "Plugin %s parse rpc failed.", ctxt->name);
        return true;
    }
    request rpc{plugin, serving, method, plugin_get_msgid(message.get()),
                ctxt->version == legacy_version};
    read_arguments(params, &rpc);
    return serve(rpc);
}

} // namespace
} // namespace conf

using namespace conf;

void econf_plugin_run(void) {
    life serving{};
    conf_plugin_data* plugin = find_entry(&serving);
    if (plugin == nullptr || plugin->plugin_ctxt == nullptr || !plugin->plugin_ctxt->bit_activate) {
        plugin_failure("Plugin context is not ready or not be activated.");
        return;
    }
    // A callback may deactivate the plugin: what is behind the daemon's answer to that stays unread.
    bool goes_on = true;
    bool_t ready = 0;
    while (goes_on && _recv_message(plugin, &ready) == 0 && ready)
        goes_on = serve_frame(plugin, serving) && plugin->plugin_ctxt->bit_activate;
}

// The dispatch loop: each request is parsed, handled, answered and freed before the next is looked at.
//
// A callback is foreign code: it may end its own plugin, even register anew, or return in a child that
// it made. After each one the life of the plugin tells whether the context is still the one being
// served; when it is not, nothing of it is touched, the request gets no answer, and the loop ends.
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

// @return the callback that a request names, or null with the error recorded
econf_subpub_cb_t named_callback(conf_plugin_data* plugin, u32_t index, slot_kind kind) noexcept {
    const conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    const econf_subpub_cb_t callback = find_callback(ctxt, index, kind);
    if (callback == nullptr)
        _plugin_set_error(plugin, -1, "%s",
                          index >= ctxt->cbs_nums ? "Callback index is invalid."
                                                  : "Cann't find the callback function.");
    return callback;
}

// Says what a callback's failure is answered with: what it recorded, or else its result.
void record_result(conf_plugin_data* plugin, int result) noexcept {
    if (plugin->plugin_ctxt->err_msg == nullptr)
        _plugin_set_error(plugin, result, nullptr);
}

void send_publish_reply(conf_plugin_data* plugin, u32_t msgid) noexcept {
    if (_plugin_single_reply_send(plugin, msgid) < 0)
        plugin_failure("Plugin %s send reply for publish rpc failed.", plugin->plugin_ctxt->name);
}

constexpr const char* no_result = "New <result> xml node failed.";

// Wraps and sends the answer of an operation or a status query, which leaves the error slot alone. The
// result is ours, and fault says what is wrong with it, if anything is.
// @return false, with the error recorded, when there is nothing to send
bool send_result(conf_plugin_data* plugin, xmlNode* result, const char* fault,
                 u32_t msgid) noexcept {
    unique_node owned{result};
    if (fault != nullptr) {
        _plugin_set_error(plugin, -1, "%s", fault);
        return false;
    }
    const unique_node reply{plugin_build_reply_message(owned.release(), msgid)};
    if (!reply) {
        _plugin_set_error(plugin, -1, "Build reply message failed.");
        return false;
    }
    if (_syn_send_reply(plugin, reply.get()) < 0)
        plugin_failure("Send reply message to pelmd failed.");
    return true;
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

// Rounds once, in hardware: the compiler's own way is a routine for floats without hardware.
float to_float(long long number) noexcept {
    return static_cast<float>(static_cast<double>(static_cast<std::int32_t>(number >> 32)) *
                                  0x1p32 +
                              static_cast<std::uint32_t>(number));
}

int run_config_callback(int version, econf_subpub_cb_t callback, int sid,
                        const config_change& change) noexcept {
    if (version == legacy_version)
        return callback_cast<conf_config_cb_t>(callback)(change.oper, change.more, change.priority,
                                                         change.path.get());
    const long long start = conf_get_unix_time();
    const int result = callback_cast<econf_config_cb_t>(callback)(
        sid, change.oper, change.more, change.priority, change.path.get());
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

void _publish_config_proc(conf_plugin_data* plugin, int sid, u32_t cb_idx, xmlNode* info,
                          u32_t msgid) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    config_change change;
    const econf_subpub_cb_t callback = find_callback(ctxt, cb_idx, slot_kind::config);
    if (!read_change(info, &change)) {
        _plugin_set_error(plugin, -1, nullptr); // without its path a change must not be served
    } else if (callback == nullptr) {
        _conf_write_log(DBG_DEBUG, "Cann't find the callback for path:%s oper:%d priority:%d",
                        shown(change.path.get()), change.oper, change.priority);
        _plugin_set_error(plugin, -1, "Cann't find the callback function.");
    } else {
        const life serving = this_life();
        const int result = run_config_callback(ctxt->version, callback, sid, change);
        if (serving != this_life())
            return;
        if (result == 0)
            ctxt->err_code = 0;
        else
            record_result(plugin, result);
    }
    send_publish_reply(plugin, msgid);
}

// The older API hands back one node, whose children are the answer.
const char* copy_output(xmlNode* result, const xmlNode* output) noexcept {
    unique_node_list copies{copy_siblings(output->children)};
    if (!copies)
        return "Copy <data> xml node failed.";
    return attach_list(result, copies) ? nullptr : "Add <data> as children failed.";
}

// Fills "result" with what an operation handed back. @return null, or what went wrong
const char* fill_output(xmlNode* result, int version, unique_node_list& output) noexcept {
    if (!output)
        return add_empty(result, "ok") != nullptr ? nullptr : "New <ok> xml node failed.";
    if (version == legacy_version)
        return copy_output(result, output.get());
    return attach_list(result, output) ? nullptr : "add <output> xml node failed.";
}

int _publish_operate_proc_func(conf_plugin_data* plugin, int sid, u32_t cb_idx, xmlNode* info,
                               xmlNode** output) noexcept {
    const conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    const econf_subpub_cb_t callback = named_callback(plugin, cb_idx, slot_kind::operate);
    if (callback == nullptr)
        return -1;
    const life serving = this_life();
    const int result =
        ctxt->version == legacy_version
            ? callback_cast<conf_operate_cb_t>(callback)(info->children, output)
            : callback_cast<econf_operate_cb_t>(callback)(sid, info->children, output);
    if (result != 0 && serving == this_life())
        record_result(plugin, result);
    return result;
}

// @return false, with the error recorded, when there is no success to be sent
bool send_operation_result(conf_plugin_data* plugin, unique_node_list& output,
                           u32_t msgid) noexcept {
    unique_node result{new_element("result")};
    const char* fault =
        result ? fill_output(result.get(), plugin->plugin_ctxt->version, output) : no_result;
    return send_result(plugin, result.release(), fault, msgid);
}

void _publish_operate_proc(conf_plugin_data* plugin, int sid, u32_t cb_idx, xmlNode* info,
                           u32_t msgid) noexcept {
    unique_node_list output;
    const life serving = this_life();
    const int result = _publish_operate_proc_func(plugin, sid, cb_idx, info, output.out());
    if (serving != this_life())
        return;
    if (result == 0 && send_operation_result(plugin, output, msgid))
        return;
    if (_plugin_single_reply_send(plugin, msgid) < 0)
        plugin_failure("Plugin %s send error-reply failed.", plugin->plugin_ctxt->name);
}

void _method_publish_proc(conf_plugin_data* plugin, xmlNode* params, u32_t msgid) noexcept {
    const char* type = nullptr;
    int sid = -1;
    xmlNode* info = nullptr;
    u32_t cb_idx = no_index;
    for (xmlNode* child = params->children; child != nullptr; child = child->next) {
        const char* text = conf_get_node_content(child);
        if (is_named(child, "type"))
            type = text;
        else if (is_named(child, "info"))
            info = child;
        else if (is_named(child, "session-id") && text != nullptr)
            sid = number_of(text);
        else if (is_named(child, "callback") && text != nullptr)
            cb_idx = index_of(text);
    }
    if (info == nullptr || type == nullptr) {
        _plugin_set_error(plugin, -1, "Error publish rpc message.");
        return send_publish_reply(plugin, msgid);
    }
    if (std::strcmp(type, "config") == 0)
        return _publish_config_proc(plugin, sid, cb_idx, info, msgid);
    if (std::strcmp(type, "operate") == 0)
        return _publish_operate_proc(plugin, sid, cb_idx, info, msgid);
    _plugin_set_error(plugin, -1, "Unknown publish type.");
    send_publish_reply(plugin, msgid);
}

// Asks the status callback. *opath points into params.
int _method_subscribe_parse_args(conf_plugin_data* plugin, xmlNode* params, char** opath,
                                 xmlNode** status) noexcept {
    const conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    char* filter = nullptr;
    int sid = -1;
    u32_t cb_idx = no_index;
    for (xmlNode* child = params->children; child != nullptr; child = child->next) {
        char* text = const_cast<char*>(conf_get_node_content(child));
        if (is_named(child, "path"))
            *opath = text;
        else if (is_named(child, "filter"))
            filter = text;
        else if (is_named(child, "session-id") && text != nullptr)
            sid = number_of(text);
        else if (is_named(child, "callback") && text != nullptr)
            cb_idx = index_of(text);
    }
    const econf_subpub_cb_t callback = named_callback(plugin, cb_idx, slot_kind::status);
    if (callback == nullptr)
        return -1;
    const life serving = this_life();
    const int result =
        ctxt->version == legacy_version
            ? callback_cast<conf_status_cb_t>(callback)(*opath, filter, status)
            : callback_cast<econf_status_cb_t>(callback)(sid, *opath, filter, status);
    if (result != 0 && serving == this_life())
        record_result(plugin, result);
    return result;
}

// Builds "path" (not in the older API) and "data" below "result". @return null, or what went wrong
const char* fill_status(xmlNode* result, int version, const char* path,
                        unique_node_list& status) noexcept {
    if (version != legacy_version && add_text(result, "path", path) == nullptr)
        return "New <path> xml node failed.";
    xmlNode* data = add_empty(result, "data");
    if (data == nullptr)
        return "New <data> xml node failed.";
    if (status && !attach_list(data, status))
        return "Add status as a child failed.";
    return nullptr;
}

// @return false, with the error recorded, when there is no success to be sent
bool send_status_result(conf_plugin_data* plugin, const char* path, unique_node_list& status,
                        u32_t msgid) noexcept {
    unique_node result{new_element("result")};
    const char* fault =
        result ? fill_status(result.get(), plugin->plugin_ctxt->version, path, status) : no_result;
    return send_result(plugin, result.release(), fault, msgid);
}

void _method_subscribe_proc(conf_plugin_data* plugin, xmlNode* params, u32_t msgid) noexcept {
    char* path = nullptr;
    unique_node_list status;
    const life serving = this_life();
    const int result = _method_subscribe_parse_args(plugin, params, &path, status.out());
    if (serving != this_life())
        return;
    if (result == 0 && send_status_result(plugin, path, status, msgid))
        return;
    send_publish_reply(plugin, msgid);
}

void _method_kickoff_proc(conf_plugin_data* plugin, xmlNode* /*params*/, u32_t msgid) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    _conf_write_log(DBG_INFO, "Plugin %s kickoff now.", ctxt->name);
    if (const econf_subpub_cb_t callback = find_callback(ctxt, 0, slot_kind::kick_off)) {
        const life serving = this_life();
        callback_cast<void (*)()>(callback)();
        if (serving != this_life())
            return;
    }
    ctxt->err_code = 0;
    if (ctxt->err_msg != nullptr && ctxt->err_msg != def_err_msg) {
        _conf_write_log(DBG_WARN, "Plugin kickoff have error %s now.", ctxt->err_msg);
        free_error_text(std::exchange(ctxt->err_msg, nullptr));
    }
    send_publish_reply(plugin, msgid);
}

void _method_default_proc(conf_plugin_data* plugin, const char* method, u32_t msgid) noexcept {
    if (msgid == 0)
        return;
    _plugin_set_error(plugin, -1, "Method <%s> doesn't be supported", method);
    if (_plugin_single_reply_send(plugin, msgid) < 0)
        plugin_failure("Plugin %s send reply for %s rpc failed.", plugin->plugin_ctxt->name,
                       method);
}

void serve(conf_plugin_data* plugin, const char* method, xmlNode* params, u32_t msgid) noexcept {
    if (std::strcmp(method, "publish") == 0)
        return _method_publish_proc(plugin, params, msgid);
    if (std::strcmp(method, "subscribe") == 0)
        return _method_subscribe_proc(plugin, params, msgid);
    if (std::strcmp(method, "kickoff") == 0)
        return _method_kickoff_proc(plugin, params, msgid);
    _conf_write_log(DBG_WARN, "Receive an unknown rpc method %s.", method);
    _method_default_proc(plugin, method, msgid);
}

// Paths and filters point into the request, so it is wiped once the answer has been sent.
void serve_frame(conf_plugin_data* plugin) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    const secret_node rpc{take_message(ctxt->recv_buf)};
    if (!rpc) {
        _conf_write_log(DBG_DEBUG, "Plugin %s parse message failed.", ctxt->name);
        return;
    }
    const char* method;
    xmlNode* params;
    if (plugin_parse_rpc(rpc.get(), &method, &params) < 0) {
        _conf_write_log(DBG_DEBUG, "Plugin %s parse rpc failed.", ctxt->name);
        return;
    }
    serve(plugin, method, params, plugin_get_msgid(rpc.get()));
}

} // namespace
} // namespace conf

using namespace conf;

void econf_plugin_run(void) {
    conf_plugin_data* plugin = get_plugin_from_hash();
    if (plugin == nullptr || plugin->plugin_ctxt == nullptr || !plugin->plugin_ctxt->bit_activate) {
        plugin_failure("Plugin context is not ready or not be activated.");
        return;
    }
    // A callback may deactivate the plugin: what is behind the daemon's answer to that stays unread.
    const life serving = this_life();
    bool_t ready = 0;
    while (serving == this_life() && plugin->plugin_ctxt->bit_activate &&
           _recv_message(plugin, &ready) == 0 && ready)
        serve_frame(plugin);
}

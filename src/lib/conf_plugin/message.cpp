#include "conf_plugin/message.h"

#include "buffer_parts.h"
#include "conf_misc.h"
#include "conf_plugin.h"
#include "conf_plugin/log.h"
#include "conf_plugin/parser.h"
#include "frame.h"
#include "support/xml.h"

#include <cstdlib>

using namespace conf;

namespace {

failure rpc_failure(const char* method) noexcept {
    return plugin_failure("Build rpc <method = %s> message failed.", shown(method));
}

failure reply_failure() noexcept { return plugin_failure("Build reply message failed."); }

failure node_failure(const char* name) noexcept {
    return plugin_failure("Create <%s> node failed.", name);
}

bool add_id(xmlNode* message, u32_t id) noexcept {
    return add_number(message, "id", static_cast<long>(id)) != nullptr;
}

// The text of the first child of that name, even when that one has none.
const char* first_text(const xmlNode* parent, const char* name) noexcept {
    if (parent == nullptr)
        return nullptr;
    for (xmlNode* child = parent->children; child != nullptr; child = child->next)
        if (is_named(child, name))
            return conf_get_node_content(child);
    return nullptr;
}

bool holds_a_frame(const conf_buffer_t* buf) noexcept {
    return buf->used >= header_bytes &&
           static_cast<std::uint64_t>(buf->used) >= frame_bytes(front_length(buf));
}

} // namespace

xmlNode* conf::add_number(xmlNode* parent, const char* name, long number) noexcept {
    char digits[32];
    return add_text(parent, name, conf_itoa(number, digits, sizeof digits));
}

xmlNode* conf::new_error(int code, const char* text) noexcept {
    unique_node error{new_element("error")};
    if (!error)
        return node_failure("error");
    if (add_number(error.get(), "code", code) == nullptr)
        return node_failure("code");
    if (add_text(error.get(), "message", text) == nullptr)
        return node_failure("message");
    return error.release();
}

xmlNode* conf::new_result() noexcept {
    xmlNode* result = new_element("result");
    return result != nullptr ? result : node_failure("result");
}

xmlNode* plugin_build_rpc_message(const char* method, xmlNode* params, u32_t id) {
    secret_node owned{params}; // ours in every case, so it goes on every early return
    secret_node rpc{new_element("rpc")};
    if (!owned || !adopt(owned) || !rpc || method == nullptr ||
        add_text(rpc.get(), "method", method) == nullptr || !attach(rpc.get(), owned) ||
        !add_id(rpc.get(), id))
        return rpc_failure(method);
    return rpc.release();
}

xmlNode* plugin_build_reply_message(xmlNode* result, u32_t id) {
    unique_node owned{result};
    unique_node reply{new_element("reply")};
    if (!owned || !adopt(owned) || !reply || !attach(reply.get(), owned) ||
        !add_id(reply.get(), id))
        return reply_failure();
    return reply.release();
}

xmlNode* plugin_parse_message(conf_buffer_t** buf) {
    if (buf == nullptr || *buf == nullptr || !holds_a_frame(*buf))
        return nullptr;
    const int length = static_cast<int>(front_length(*buf));
    xmlNode* root = parse_copy((*buf)->buf + header_bytes, length);
    buffer_cut(buf, header_bytes + length);
    return root;
}

xmlNode* conf::take_message(conf_buffer_t* buf, body_parser* parser) noexcept {
    const int length = static_cast<int>(front_length(buf));
    xmlNode* root = parser->parse(buf->buf + header_bytes, length);
    buffer_consume(buf, header_bytes + length);
    return root;
}

int plugin_parse_rpc(xmlNode* rpc, const char** method, xmlNode** params) {
    if (rpc == nullptr || method == nullptr || params == nullptr)
        return plugin_failure("Input parameters error(rpc=%p, method=%p, params=%p).",
                              static_cast<void*>(rpc), static_cast<void*>(method),
                              static_cast<void*>(params));
    *method = nullptr;
    *params = nullptr;
    for (xmlNode* child = rpc->children; child != nullptr; child = child->next) {
        if (is_named(child, "method"))
            *method = conf_get_node_content(child);
        else if (is_named(child, "params"))
            *params = child;
    }
    if (*method == nullptr || *params == nullptr)
        return plugin_failure("Invalid rpc message(without <method> or <params>).");
    return 0;
}

int plugin_parse_reply(xmlNode* reply, xmlNode** result, xmlNode** error) {
    if (reply == nullptr || result == nullptr || error == nullptr)
        return plugin_failure("Input parameters error(reply=%p, result=%p, error=%p).",
                              static_cast<void*>(reply), static_cast<void*>(result),
                              static_cast<void*>(error));
    *result = nullptr;
    *error = nullptr;
    for (xmlNode* child = reply->children; child != nullptr; child = child->next) {
        if (is_named(child, "result"))
            *result = child;
        else if (is_named(child, "error"))
            *error = child;
    }
    if (*result != nullptr && *error != nullptr)
        return plugin_failure("Invalid reply message(both <error> and <result>).");
    if (*result == nullptr && *error == nullptr)
        return plugin_failure("Invalid reply message(without <error> and <result>).");
    return 0;
}

u32_t plugin_get_msgid(xmlNode* root) {
    const char* text = first_text(root, "id");
    return text != nullptr ? static_cast<u32_t>(std::strtol(text, nullptr, 10)) : 0;
}

int plugin_get_reply_errcode(xmlNode* error) {
    const char* text = first_text(error, "code");
    return text != nullptr ? static_cast<int>(std::strtol(text, nullptr, 10)) : -1;
}

const char* plugin_get_reply_errmsg(xmlNode* error) { return first_text(error, "message"); }

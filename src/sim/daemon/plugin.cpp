#include "daemon/plugin.h"

#include "model/xml.h"

#include <conf_plugin.h>

namespace pelmsim {
namespace {

constexpr u32_t last_message_id = 65535;

outcome read_answer(unique_node reply) {
    xmlNode* result = nullptr;
    xmlNode* error = nullptr;
    if (plugin_parse_reply(reply.get(), &result, &error) < 0)
        return outcome::no_answer("an answer with neither a result nor an error alone");
    if (error != nullptr) {
        const char* const text = plugin_get_reply_errmsg(error);
        return outcome::error(plugin_get_reply_errcode(error), text == nullptr ? "" : text);
    }
    outcome good;
    if (result->children != nullptr) // the data stays where it is, in its tree
        good.data = {std::shared_ptr<xmlNode>(std::move(reply)), result->children};
    return good;
}

// What the plugin is answered, or nothing.
std::optional<outcome> outcome_of(const xmlNode* answer) {
    if (answer == nullptr)
        return std::nullopt;
    if (local_name(answer) == "result")
        return outcome{};
    return outcome::error(
        static_cast<int>(std::strtol(child_text(answer, "code").c_str(), nullptr, 10)),
        child_text(answer, "message"));
}

} // namespace

unique_node new_error(int code, const std::string& text) {
    unique_node error = new_element("error");
    add_element(error.get(), "code", std::to_string(code));
    add_element(error.get(), "message", text);
    return error;
}

peer plugin::who() const { return {role::plugin, name, pid(), !name.empty()}; }

outcome plugin::ask(const std::string& method, unique_node params, const data_path* path,
                    std::optional<int> operation) {
    const moment begin = loop().now();
    last_id_ = last_id_ % last_message_id + 1;
    awaited_id_ = last_id_;
    answer_.reset();
    const unique_node rpc(plugin_build_rpc_message(method.c_str(), params.release(), last_id_));
    send(rpc.get());
    loop().run_until([this] { return answer_ || !is_open(); }, owner_.answer_limit());
    if (!answer_)
        answer_ = outcome::no_answer(is_open() ? "time-out" : "hang-up");
    awaited_id_ = 0;
    events().report({.kind = event_kind::request,
                     .who = who(),
                     .way = direction::to_peer,
                     .method = method,
                     .id = std::to_string(last_id_),
                     .path = path == nullptr ? "" : path->text(),
                     .operation = operation,
                     .result = &*answer_,
                     .took = loop().now() - begin});
    return *std::exchange(answer_, std::nullopt);
}

void plugin::on_frame(unique_node body) {
    if (local_name(body.get()) == "reply")
        on_answer(std::move(body));
    else
        on_request(body.get());
}

void plugin::on_answer(unique_node reply) {
    const u32_t id = plugin_get_msgid(reply.get());
    if (awaited_id_ != 0 && id == awaited_id_ && !answer_)
        answer_ = read_answer(std::move(reply));
    else
        events().report({.kind = event_kind::stray_answer,
                         .who = who(),
                         .way = direction::from_peer,
                         .id = std::to_string(id)});
}

void plugin::on_request(xmlNode* rpc) {
    const char* method = nullptr;
    xmlNode* params = nullptr;
    if (local_name(rpc) != "rpc" || plugin_parse_rpc(rpc, &method, &params) < 0)
        return on_unreadable({cause::no_parameters, 0, local_name(rpc)});
    const u32_t id = plugin_get_msgid(rpc);
    unique_node answer = owner_.serve(*this, method, params);
    const auto result = outcome_of(answer.get());
    events().report({.kind = event_kind::request,
                     .who = who(),
                     .way = direction::from_peer,
                     .method = method,
                     .id = std::to_string(id),
                     .path = child_text(params, "path"),
                     .result = result ? &*result : nullptr,
                     .body = params});
    if (answer == nullptr)
        return;
    const unique_node reply(plugin_build_reply_message(answer.release(), id));
    send(reply.get());
}

void plugin::on_unreadable(const defect& what) {
    complain(what);
    if (awaited_id_ != 0 && !answer_)
        answer_ = outcome::no_answer("unreadable frame");
}

void plugin::on_closed() {
    active = false;
    owner_.gone(*this);
}

} // namespace pelmsim

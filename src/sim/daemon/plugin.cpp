#include "daemon/plugin.h"

#include "model/xml.h"

#include <conf_plugin.h>

namespace pelmsim {
namespace {

constexpr u32_t last_message_id = 65535;

std::string describe_answer(const xmlNode* answer) {
    if (answer == nullptr)
        return "left without an answer";
    if (local_name(answer) == "result")
        return "ok";
    return "error " + child_text(answer, "code") + " (" + child_text(answer, "message") + ")";
}

// What a request is about, for its event line.
std::string subject_of(const std::string& method, const xmlNode* params) {
    std::string subject = method;
    for (const char* name : {"plugin-name", "path", "oper-type"})
        if (const std::string text = child_text(params, name); !text.empty())
            subject += " " + text;
    for (const char* name : {"old", "with-cfgr", "with-smooth"})
        if (find_child(params, name) != nullptr)
            subject += " (" + std::string(name) + ")";
    return subject;
}

outcome read_answer(xmlNode* reply) {
    xmlNode* result = nullptr;
    xmlNode* error = nullptr;
    if (plugin_parse_reply(reply, &result, &error) < 0)
        return outcome::no_answer("an answer with neither a result nor an error alone");
    if (error != nullptr) {
        const char* const text = plugin_get_reply_errmsg(error);
        return outcome::error(plugin_get_reply_errcode(error), text == nullptr ? "" : text);
    }
    outcome good;
    good.xml = compact(result->children);
    return good;
}

} // namespace

unique_node new_error(int code, const std::string& text) {
    unique_node error = new_element("error");
    add_element(error.get(), "code", std::to_string(code));
    add_element(error.get(), "message", text);
    return error;
}

std::string plugin::label() const { return name.empty() ? "pid " + std::to_string(pid()) : name; }

outcome plugin::ask(const std::string& method, unique_node params, const std::string& subject) {
    const auto begin = std::chrono::steady_clock::now();
    last_id_ = last_id_ % last_message_id + 1;
    awaited_id_ = last_id_;
    answer_.reset();
    const unique_node rpc(plugin_build_rpc_message(method.c_str(), params.release(), last_id_));
    send(rpc.get());
    loop().run_until([this] { return answer_ || !is_open(); }, server_.answer_limit);
    if (!answer_)
        answer_ = outcome::no_answer(is_open() ? "time-out" : "hang-up");
    awaited_id_ = 0;
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    out().report({label(), '>', method + (subject.empty() ? "" : " " + subject),
                  answer_->describe(), answer_->is_ok(), took.count()});
    return *std::exchange(answer_, std::nullopt);
}

void plugin::on_frame(unique_node body) {
    if (local_name(body.get()) == "reply")
        on_answer(body.get());
    else
        on_request(body.get());
}

void plugin::on_answer(xmlNode* reply) {
    const u32_t id = plugin_get_msgid(reply);
    if (awaited_id_ != 0 && id == awaited_id_ && !answer_)
        answer_ = read_answer(reply);
    else
        out().report({label(), '<', "answer with id " + std::to_string(id),
                      "nobody waits for it (too late, or twice)", false});
}

void plugin::on_request(xmlNode* rpc) {
    const char* method = nullptr;
    xmlNode* params = nullptr;
    if (local_name(rpc) != "rpc" || plugin_parse_rpc(rpc, &method, &params) < 0)
        return on_unreadable("<" + local_name(rpc) + "> without a method and params");
    const u32_t id = plugin_get_msgid(rpc);
    unique_node answer = server_.serve(*this, method, params);
    out().report({label(), '<', subject_of(method, params), describe_answer(answer.get()),
                  answer != nullptr && local_name(answer.get()) == "result"});
    if (answer == nullptr)
        return;
    const unique_node reply(plugin_build_reply_message(answer.release(), id));
    send(reply.get());
}

void plugin::on_unreadable(const std::string& why) {
    complain(why);
    if (awaited_id_ != 0 && !answer_)
        answer_ = outcome::no_answer("unreadable frame");
}

void plugin::on_closed(bool by_peer) {
    active = false;
    server_.gone(*this, by_peer);
}

} // namespace pelmsim

#include "tap/plugin_conversation.h"

#include "journal/wording.h"
#include "model/problem.h"
#include "model/xml.h"
#include "wire/answer.h"

#include <cstdlib>

namespace pelmsim {
namespace {

constexpr std::size_t most_served = 4096;

} // namespace

void plugin_conversation::on_frame(direction way, unique_node body, moment at) {
    const bool by_plugin = way == direction::from_peer;
    if (local_name(body.get()) == "reply")
        return by_plugin ? answers(std::move(body), at) : is_answered(std::move(body), at);
    const char* method = nullptr;
    xmlNode* params = nullptr;
    if (local_name(body.get()) != "rpc" || plugin_parse_rpc(body.get(), &method, &params) < 0)
        return complain(way, {cause::no_parameters, 0, local_name(body.get())});
    event its{.kind = event_kind::request,
              .who = who(),
              .way = way,
              .method = method,
              .id = std::to_string(plugin_get_msgid(body.get()))};
    if (by_plugin)
        asks(std::move(its), body.get(), params, at);
    else
        asked(std::move(its), params, at);
}

// What the daemon wants, in the words of its users. Of an operation only the callback says which.
void plugin_conversation::describe(event& its, const xmlNode* params) const {
    const xmlNode* const info = find_child(params, "info");
    its.path = child_text(params, "path");
    if (its.method == "subscribe")
        its.called = "status";
    if (its.method != "publish" || info == nullptr)
        return;
    if (child_text(params, "type") == "operate") {
        const auto found = served_.find(child_text(params, "callback"));
        its.called = "operate";
        its.path = found == served_.end() ? "" : found->second;
        return;
    }
    its.path = child_text(info, "path");
    its.operation =
        static_cast<int>(std::strtol(child_text(info, "oper-type").c_str(), nullptr, 10));
}

void plugin_conversation::asked(event its, xmlNode* params, moment at) {
    describe(its, params);
    event told = its;
    told.kind = event_kind::asked;
    told.body = params;
    told.text = own_.first() == nullptr ? "" : own_.first()->subject;
    events().report(std::move(told));
    asked_.add({.about = std::move(its), .at = at});
}

void plugin_conversation::answers(unique_node reply, moment at) {
    const std::string id = std::to_string(plugin_get_msgid(reply.get()));
    auto found = asked_.take(id);
    if (!found)
        return report_stray(direction::from_peer, id, asked_);
    const outcome result = read_answer(std::move(reply));
    event answered = std::move(found->about);
    answered.who = who();
    answered.result = &result;
    answered.took = at - found->at;
    events().report(std::move(answered));
}

// It is told of with its answer, and kept as text until then: a tree takes many times the room.
void plugin_conversation::asks(event its, const xmlNode* rpc, const xmlNode* params, moment at) {
    its.path = child_text(params, "path");
    its.body = params;
    std::string subject = subject_of(its);
    its.body = nullptr;
    own_.add({std::move(its), compact_node(rpc), std::move(subject), at});
}

void plugin_conversation::is_answered(unique_node reply, moment at) {
    const std::string id = std::to_string(plugin_get_msgid(reply.get()));
    const auto found = own_.take(id);
    if (!found)
        return report_stray(direction::to_peer, id, own_);
    const outcome result = read_answer(std::move(reply));
    report_own(*found, &result, at);
}

void plugin_conversation::report_own(const open_request& which, const outcome* result, moment at) {
    const unique_nodes rpc = parse_nodes(which.text);
    event its = which.about;
    its.body = find_child(rpc.get(), "params");
    if (its.method == "register" && result != nullptr && result->is_ok())
        has_registered(its.body, which.text.size());
    its.who = who();
    its.result = result;
    if (result != nullptr)
        its.took = at - which.at;
    events().report(std::move(its));
}

void plugin_conversation::has_registered(const xmlNode* params, std::size_t bytes) {
    if (!room().has(bytes))
        return;
    room().change(std::exchange(registered_, bytes), bytes);
    name_ = child_text(params, "plugin-name");
    for (const xmlNode* section : child_elements(params))
        for (const xmlNode* each : child_elements(section))
            if (served_.size() < most_served)
                served_[child_text(each, "callback")] = child_text(each, "path");
}

void plugin_conversation::leave_open() {
    while (const auto each = asked_.take_first()) {
        const outcome none = outcome::no_answer("hang-up");
        event its = each->about;
        its.who = who();
        its.result = &none;
        events().report(std::move(its));
    }
    while (const auto each = own_.take_first())
        report_own(*each, nullptr, each->at);
}

void plugin_conversation::forget_open() {
    asked_.clear();
    own_.clear();
}

} // namespace pelmsim

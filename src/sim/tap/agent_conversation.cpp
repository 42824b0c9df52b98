#include "tap/agent_conversation.h"

#include "model/xml.h"

#include <cstdlib>

namespace pelmsim {
namespace {

const xmlNode* first_element(const xmlNode* parent) {
    const auto all = child_elements(parent);
    return all.empty() ? nullptr : all.front();
}

outcome outcome_of(const xmlNode* answer) {
    if (answer == nullptr || local_name(answer) != "rpc-error")
        return {};
    const std::string code = child_text(answer, "error-app-tag");
    return outcome::error(code.empty() ? -1
                                       : static_cast<int>(std::strtol(code.c_str(), nullptr, 10)),
                          child_text(answer, "error-message"));
}

} // namespace

void agent_conversation::on_frame(direction way, unique_node body, moment at) {
    const std::string name = local_name(body.get());
    if (way == direction::to_peer && name == "rpc-reply")
        is_answered(body.get(), at);
    else if (way == direction::from_peer && name == "rpc")
        asks(body.get(), at);
    else if (way == direction::from_peer)
        complain(way, {cause::no_request, 0, name});
}

void agent_conversation::asks(const xmlNode* rpc, moment at) {
    const xmlNode* const operation = first_element(rpc);
    own_.add({.about = {.kind = event_kind::request,
                        .way = direction::from_peer,
                        .method = operation == nullptr ? "" : local_name(operation),
                        .id = attribute(rpc, "message-id")},
              .text = compact_node(rpc),
              .at = at});
}

void agent_conversation::is_answered(const xmlNode* reply, moment at) {
    const std::string id = attribute(reply, "message-id");
    if (const auto found = own_.take(id))
        return report(*found, first_element(reply), at);
    report_stray(direction::to_peer, id, own_);
}

void agent_conversation::report(const open_request& which, const xmlNode* answer, moment at) {
    const unique_nodes rpc = parse_nodes(which.text);
    const outcome result = outcome_of(answer);
    event its = which.about;
    if (answer != nullptr && result.is_ok() && its.method == "create-session")
        user_ = child_text(first_element(rpc.get()), "username");
    if (answer != nullptr && result.is_ok())
        is_introduced_ |= its.method == "create-session" || its.method == "create-subscription";
    its.who = who();
    its.body = rpc.get();
    its.result = answer == nullptr ? nullptr : &result;
    its.text = answer == nullptr ? "" : local_name(answer);
    if (answer != nullptr)
        its.took = at - which.at;
    events().report(std::move(its));
}

void agent_conversation::leave_open() {
    while (const auto each = own_.take_first())
        report(*each, nullptr, each->at);
}

} // namespace pelmsim

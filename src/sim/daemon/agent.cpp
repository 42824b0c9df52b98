#include "daemon/agent.h"

#include "daemon/faults.h"
#include "model/xml.h"

#include <algorithm>

namespace pelmsim {
namespace {

constexpr const char* base_uri = "urn:ietf:params:xml:ns:netconf:base:1.0";
constexpr const char* capabilities[] = {
    "urn:ietf:params:netconf:base:1.0",
    "urn:ietf:params:netconf:capability:notification:1.0",
};

// An element without a namespace of its own is written, and so read, as being in the message's.
reply rpc_error(const char* type, const char* tag, const outcome& why, const std::string& app_tag) {
    unique_node error = new_element("rpc-error");
    add_element(error.get(), "error-type", type);
    add_element(error.get(), "error-tag", tag);
    add_element(error.get(), "error-severity", "error");
    if (!app_tag.empty())
        add_element(error.get(), "error-app-tag", app_tag);
    add_element(error.get(), "error-message", why.text);
    return {std::move(error), why};
}

reply rpc_error(const char* type, const char* tag, const std::string& message) {
    return rpc_error(type, tag, outcome::error(-1, message), "");
}

reply arranged_error(const arranged_answer& wanted) {
    return rpc_error("application", "operation-failed", outcome::error(wanted.code, wanted.text),
                     std::to_string(wanted.code));
}

unique_node reply_message(const std::string& id, unique_node body) {
    unique_node message = new_element("rpc-reply", base_uri);
    if (!id.empty())
        xmlNewProp(message.get(), BAD_CAST "message-id", BAD_CAST id.c_str());
    attach(message.get(), std::move(body));
    return message;
}

} // namespace

peer agent::who() const { return {role::agent, user_, pid(), session_ != 0 || subscribed_}; }

void agent::on_frame(unique_node body) {
    if (local_name(body.get()) != "rpc")
        return complain({cause::no_request, 0, local_name(body.get())});
    const auto operations = child_elements(body.get());
    const xmlNode* const operation = operations.empty() ? nullptr : operations.front();
    const std::string id = attribute(body.get(), "message-id");
    const std::string method = operation == nullptr ? "" : local_name(operation);
    const bool introduces_itself = method == "create-session" && user_.empty();
    const auto planted =
        fault_of({.is_answer = true,
                  .method = method,
                  .id = id,
                  .name = introduces_itself ? child_text(operation, "username") : ""});
    const auto instead = instead_of_answer(planted);
    std::optional<reply> given = answer(operation, id, instead ? &*instead : nullptr);
    events().report({.kind = event_kind::request,
                     .who = who(),
                     .way = direction::from_peer,
                     .method = method,
                     .id = id,
                     .result = given ? &given->result : nullptr,
                     .body = body.get(),
                     .text = given ? local_name(given->body.get()) : ""});
    if (!given)
        return;
    const bool is_wrong = planted && planted->kind == fault_kind::wrong_id;
    const unique_node message =
        reply_message((is_wrong ? "not-" : "") + id, std::move(given->body));
    send(message.get(), planted);
}

// Nothing when a script wants none.
std::optional<reply> agent::answer(const xmlNode* operation, const std::string& id,
                                   const arranged_answer* instead) {
    if (id.empty())
        return rpc_error("rpc", "missing-attribute", "There is no message-id.");
    if (operation == nullptr)
        return rpc_error("rpc", "missing-element", "There is no operation.");
    const std::string name = local_name(operation);
    if (instead == nullptr)
        instead = owner_.arranged(name);
    if (instead != nullptr)
        return instead->silence ? std::nullopt : std::optional(arranged_error(*instead));
    if (const server serve = server_of(name); serve != nullptr)
        return (this->*serve)(operation);
    return rpc_error("protocol", "operation-not-supported",
                     "pelmsim does not serve <" + name + ">.");
}

agent::server agent::server_of(const std::string& operation) {
    static constexpr struct {
        const char* name;
        server serve;
    } operations[] = {
        {"create-session", &agent::create_session},
        {"create-subscription", &agent::create_subscription},
        {"get-capability", &agent::get_capability},
    };
    const auto* const found =
        std::ranges::find_if(operations, [&](const auto& each) { return operation == each.name; });
    return found == std::end(operations) ? nullptr : found->serve;
}

bool agent::may_ask_for(const std::string& operation) { return server_of(operation) != nullptr; }

reply agent::create_session(const xmlNode* operation) {
    if (child_text(operation, "username").empty())
        return rpc_error("application", "missing-element", "There is no username.");
    if (child_text(operation, "username").size() > longest_name)
        return rpc_error("application", "invalid-value", "The username is too long.");
    if (child_text(operation, "agent-ppid").size() > longest_name)
        return rpc_error("application", "invalid-value", "The agent-ppid is too long.");
    user_ = child_text(operation, "username");
    parent_pid_ = child_text(operation, "agent-ppid");
    session_ = owner_.next_session();
    return {new_element("ok")};
}

reply agent::create_subscription(const xmlNode*) {
    subscribed_ = true;
    return {new_element("ok")};
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): it is one of a table of members
reply agent::get_capability(const xmlNode*) {
    unique_node data = new_element("data");
    xmlNode* const list = add_element(data.get(), "capabilities");
    for (const char* uri : capabilities)
        add_element(list, "capability", uri);
    return {std::move(data)};
}

} // namespace pelmsim

#include "daemon/agent.h"

#include "model/xml.h"

namespace pelmsim {
namespace {

constexpr const char* base_uri = "urn:ietf:params:xml:ns:netconf:base:1.0";
constexpr const char* capabilities[] = {
    "urn:ietf:params:netconf:base:1.0",
    "urn:ietf:params:netconf:capability:notification:1.0",
};

// An element without a namespace of its own is written, and so read, as being in the message's.
reply rpc_error(const char* type, const char* tag, const std::string& message) {
    unique_node error = new_element("rpc-error");
    add_element(error.get(), "error-type", type);
    add_element(error.get(), "error-tag", tag);
    add_element(error.get(), "error-severity", "error");
    add_element(error.get(), "error-message", message);
    return {std::move(error), outcome::error(-1, message)};
}

reply capability_data() {
    unique_node data = new_element("data");
    xmlNode* const list = add_element(data.get(), "capabilities");
    for (const char* uri : capabilities)
        add_element(list, "capability", uri);
    return {std::move(data)};
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
    reply given = answer(operation, id);
    events().report({.kind = event_kind::request,
                     .who = who(),
                     .way = direction::from_peer,
                     .method = operation == nullptr ? "" : local_name(operation),
                     .id = id,
                     .result = &given.result,
                     .body = body.get(),
                     .text = local_name(given.body.get())});
    const unique_node message = reply_message(id, std::move(given.body));
    send(message.get());
}

reply agent::answer(const xmlNode* operation, const std::string& id) {
    if (id.empty())
        return rpc_error("rpc", "missing-attribute", "There is no message-id.");
    if (operation == nullptr)
        return rpc_error("rpc", "missing-element", "There is no operation.");
    return run(operation);
}

reply agent::run(const xmlNode* operation) {
    const std::string name = local_name(operation);
    if (name == "get-capability")
        return capability_data();
    if (name == "create-subscription") {
        subscribed_ = true;
        return {new_element("ok")};
    }
    if (name != "create-session")
        return rpc_error("protocol", "operation-not-supported",
                         "pelmsim does not serve <" + name + ">.");
    if (child_text(operation, "username").empty())
        return rpc_error("application", "missing-element", "There is no username.");
    user_ = child_text(operation, "username");
    parent_pid_ = child_text(operation, "agent-ppid");
    session_ = owner_.next_session();
    return {new_element("ok")};
}

} // namespace pelmsim

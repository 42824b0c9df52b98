#include "daemon/agents.h"

#include "model/problem.h"
#include "model/xml.h"
#include "wire/listener.h"

#include <algorithm>
#include <cerrno>
#include <conf_agent.h>
#include <conf_plugin.h>
#include <cstring>
#include <ctime>

namespace pelmsim {
namespace {

constexpr const char* base_uri = "urn:ietf:params:xml:ns:netconf:base:1.0";
constexpr const char* notification_uri = "urn:ietf:params:xml:ns:netconf:notification:1.0";
constexpr const char* capabilities[] = {
    "urn:ietf:params:netconf:base:1.0",
    "urn:ietf:params:netconf:capability:notification:1.0",
};

unique_node new_root(const char* name, const char* uri) {
    unique_node root = new_element(name);
    xmlSetNs(root.get(), xmlNewNs(root.get(), BAD_CAST uri, nullptr));
    return root;
}

// An element without a namespace of its own is written, and so read, as being in the reply's.
unique_node rpc_error(const char* type, const char* tag, const std::string& message) {
    unique_node error = new_element("rpc-error");
    add_element(error.get(), "error-type", type);
    add_element(error.get(), "error-tag", tag);
    add_element(error.get(), "error-severity", "error");
    add_element(error.get(), "error-message", message);
    return error;
}

unique_node capability_data() {
    unique_node data = new_element("data");
    xmlNode* const list = add_element(data.get(), "capabilities");
    for (const char* uri : capabilities)
        add_element(list, "capability", uri);
    return data;
}

std::string attribute(const xmlNode* element, const char* name) {
    const xmlAttr* const found = xmlHasProp(const_cast<xmlNode*>(element), BAD_CAST name);
    return found == nullptr || found->children == nullptr
               ? ""
               : reinterpret_cast<const char*>(found->children->content);
}

std::string utc_now() {
    const std::time_t now = std::time(nullptr);
    tm parts{};
    gmtime_r(&now, &parts);
    char text[32];
    (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

} // namespace

peer agent::who() const { return {role::agent, user, pid(), session != 0 || subscribed}; }

void agent::on_arrival() { all_.heard_from(pid()); }

void agent::on_closed() { all_.gone(*this); }

void agent::on_frame(unique_node body) {
    if (local_name(body.get()) != "rpc")
        return complain({cause::no_request, 0, local_name(body.get())});
    const auto operations = child_elements(body.get());
    const unique_node reply = answer(body.get());
    const std::string answered = local_name(reply->children);
    const outcome result = answered == "rpc-error"
                               ? outcome::error(-1, child_text(reply->children, "error-message"))
                               : outcome{};
    events().report({.kind = event_kind::request,
                     .who = who(),
                     .way = direction::from_peer,
                     .method = operations.empty() ? "" : local_name(operations.front()),
                     .id = attribute(body.get(), "message-id"),
                     .result = &result,
                     .body = body.get(),
                     .text = answered});
    send(reply.get());
}

unique_node agent::answer(const xmlNode* rpc) {
    unique_node reply = new_root("rpc-reply", base_uri);
    const auto operations = child_elements(rpc);
    if (const std::string id = attribute(rpc, "message-id"); id.empty()) {
        attach(reply.get(), rpc_error("rpc", "missing-attribute", "There is no message-id."));
    } else {
        xmlNewProp(reply.get(), BAD_CAST "message-id", BAD_CAST id.c_str());
        attach(reply.get(), operations.empty()
                                ? rpc_error("rpc", "missing-element", "There is no operation.")
                                : run(operations.front()));
    }
    return reply;
}

unique_node agent::run(const xmlNode* operation) {
    const std::string name = local_name(operation);
    if (name == "get-capability")
        return capability_data();
    if (name == "create-subscription") {
        subscribed = true;
        return new_element("ok");
    }
    if (name != "create-session")
        return rpc_error("protocol", "operation-not-supported",
                         "pelmsim does not serve <" + name + ">.");
    if (child_text(operation, "username").empty())
        return rpc_error("application", "missing-element", "There is no username.");
    user = child_text(operation, "username");
    parent_pid = child_text(operation, "agent-ppid");
    session = all_.next_session();
    return new_element("ok");
}

void agent_table::open() {
    socket_ = conf_agent_service_enable();
    if (socket_ < 0)
        throw problem(std::string("cannot open ") + g_conf_agent_socket + ": " +
                      std::strerror(errno));
    accept_all(loop_, events_, socket_, [this](unique_fd socket) { welcome(std::move(socket)); });
}

void agent_table::close() {
    if (socket_ < 0)
        return;
    loop_.forget(socket_);
    conf_agent_service_disable(std::exchange(socket_, -1));
    for (const auto& each : agents_)
        events_.report({.kind = event_kind::closed, .who = each->who(), .why = cause::by_daemon});
    agents_.clear();
}

void agent_table::welcome(unique_fd socket) {
    const auto made = std::make_shared<agent>(loop_, events_, std::move(socket), *this);
    made->start();
    agents_.push_back(made);
    events_.report({.kind = event_kind::connected, .who = made->who()});
}

void agent_table::gone(const agent& which) {
    std::erase_if(agents_, [&](const auto& each) { return each.get() == &which; });
}

std::size_t agent_table::notify(const xmlNode* data) {
    const unique_node message = new_root("notification", notification_uri);
    add_element(message.get(), "eventTime", utc_now());
    attach(message.get(), unique_node(xmlCopyNode(const_cast<xmlNode*>(data), 1)));
    std::size_t count = 0;
    const auto everybody = agents_; // one that reads nothing may be hung up on, and leave
    for (const auto& each : everybody) {
        if (!each->subscribed)
            continue;
        each->send(message.get());
        count += each->is_open() ? 1 : 0;
    }
    return count;
}

} // namespace pelmsim

// An agent's connection, the daemon's socket for agents, and an agent's requests.
#include "conf_agent.h"

#include "conf_misc.h"
#include "conf_plugin.h"
#include "conf_plugin/message.h"
#include "frame.h"
#include "support/handle.h"
#include "support/report.h"
#include "support/socket.h"
#include "support/xml.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace conf;

namespace {

constexpr int backlog = 8;
constexpr char base_uri[] = "urn:ietf:params:xml:ns:netconf:base:1.0";
constexpr char private_uri[] = "com:vantrel:netconf:private:zerin:device:pelmd";
constexpr char notification_uri[] = "urn:ietf:params:xml:ns:netconf:notification:1.0";

void give_to_sudo(const char* path) noexcept {
    const group* sudo = getgrnam("sudo");
    if (sudo != nullptr &&
        chown(unix_address(path).sun_path, static_cast<uid_t>(-1), sudo->gr_gid) < 0)
        syslog_warning("[WARN] Fail to change group into sudo for agent sock path\n");
}

failure child_failure(const char* name) noexcept {
    return syslog_failure("[ERROR] Create child node <%s> failed.\n", name);
}

// Out of memory, libxml2 may hand out namespaces and attributes without their texts.
xmlNs* declare_namespace(xmlNode* rpc, const char* uri, const char* prefix) noexcept {
    xmlNs* ns = xmlNewNs(rpc, BAD_CAST uri, BAD_CAST prefix);
    return ns != nullptr && ns->href != nullptr ? ns : nullptr;
}

bool add_message_id(xmlNode* rpc, const char* id) noexcept {
    xmlAttr* attribute = xmlNewProp(rpc, BAD_CAST "message-id", BAD_CAST id);
    return attribute != nullptr && attribute->name != nullptr &&
           conf_get_node_content(reinterpret_cast<xmlNode*>(attribute)) != nullptr;
}

// What all requests begin with.
xmlNode* start_rpc(const char* message_id) noexcept {
    secret_node rpc{new_element("rpc")};
    if (!rpc)
        return syslog_failure("[ERROR] Create root node <rpc> failed.\n");
    xmlNs* base = declare_namespace(rpc.get(), base_uri, nullptr);
    if (base == nullptr)
        return syslog_failure("[ERROR] Create namespace <%s> failed.\n", base_uri);
    xmlSetNs(rpc.get(), base);
    if (!add_message_id(rpc.get(), message_id))
        return syslog_failure("[ERROR] Create attribution <message-id> failed.\n");
    return rpc.release();
}

xmlNode* conf_agent_build_rpc(const char* oper_name, int msg_seq) noexcept {
    char digits[64];
    secret_node rpc{start_rpc(conf_itoa(msg_seq, digits, sizeof digits))};
    if (!rpc)
        return nullptr;
    xmlNs* own = declare_namespace(rpc.get(), private_uri, "pelmd");
    if (own == nullptr)
        return syslog_failure("[ERROR] Create namepsace <%s> failed.\n", private_uri);
    if (add_empty(rpc.get(), oper_name, own) == nullptr)
        return child_failure(oper_name);
    return rpc.release();
}

int conf_agent_dump_xml(conf_buffer_t** buffer, xmlNode* node, int seq) noexcept {
    if (buffer == nullptr)
        return -1;
    switch (append_frame(buffer, node, static_cast<u16_t>(seq))) {
    case frame_fault::none:
        return 0;
    case frame_fault::no_xml_buffer:
        return syslog_failure("[ERROR] Create xml buffer failed.\n");
    case frame_fault::no_header:
        return syslog_failure("[ERROR] Append message header to buffer failed.\n");
    case frame_fault::no_body:
        return syslog_failure("[ERROR] Append message body to outbound buffer failed.\n");
    case frame_fault::not_dumped:
        break;
    }
    return -1;
}

// Appends a whole request.
int put_rpc(conf_buffer_t** buffer, xmlNode* rpc, const char* name, int seq) noexcept {
    if (conf_agent_dump_xml(buffer, rpc, seq) < 0)
        return syslog_failure("[ERROR] Dump xml to message for <%s> failed.\n", name);
    return 0;
}

} // namespace

int conf_agent_init(void) {
    (void)conf_load_config(nullptr); // without a usable profile the built-in path is right
    unique_fd sock{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!sock)
        return syslog_failure("[ERROR] Create socket failed(%m).\n");
    if (!connect_path(sock.get(), g_conf_agent_socket))
        return syslog_failure("[ERROR] Connect to agent sock addr failed(%m).\n");
    syslog_debug("[DEBUG] Agent connect to agent sock addr success.\n");
    return sock.release();
}

void conf_agent_exit(int sock) {
    if (sock >= 0)
        (void)close(sock);
    syslog_debug("[DEBUG] Agent disconnect to server.\n");
}

int conf_agent_service_enable(void) {
    unique_fd sock{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!sock)
        return syslog_failure("[ERROR] Create agent socket failed(%m).\n");
    if (!bind_path(sock.get(), g_conf_agent_socket))
        return syslog_failure("[ERROR] Bind agent socket failed(%m).\n");
    give_to_sudo(g_conf_agent_socket);
    if (listen(sock.get(), backlog) < 0)
        return syslog_failure("[ERROR] Listen agent socket failed(%m).\n");
    if (conf_non_block_fd(sock.get()) < 0)
        return syslog_failure("[ERROR] Set agent service socket to nonblock failed.\n");
    return sock.release();
}

void conf_agent_service_disable(int sock) {
    if (sock >= 0)
        (void)close(sock);
    remove_path(g_conf_agent_socket);
}

int conf_agent_build_session(conf_buffer_t** buffer, int msg_seq) {
    const secret_node rpc{conf_agent_build_rpc("create-session", msg_seq)};
    if (!rpc)
        return syslog_failure("[ERROR] Create root node <rpc> failed.\n");
    errno = 0; // stays so when the user is just unknown
    const passwd* user = getpwuid(getuid());
    if (user == nullptr)
        return syslog_failure("[ERROR] Get login user information failed(%m).\n");
    xmlNode* session = rpc.get()->children;
    if (add_text(session, "username", user->pw_name) == nullptr)
        return child_failure("username");
    if (add_number(session, "agent-ppid", getppid()) == nullptr)
        return child_failure("agent-ppid");
    return put_rpc(buffer, rpc.get(), "create-session", msg_seq);
}

int conf_agent_build_notify_rpc(conf_buffer_t** buffer, int seq) {
    const secret_node rpc{start_rpc("subscribeNotification_1")};
    if (!rpc)
        return -1;
    xmlNs* notification = declare_namespace(rpc.get(), notification_uri, "ntf");
    if (notification == nullptr)
        return syslog_failure("[ERROR] [RE]Create namepsace <%s> failed.\n", notification_uri);
    if (add_empty(rpc.get(), "create-subscription", notification) == nullptr)
        return syslog_failure("[ERROR] Create child node failed.\n");
    return put_rpc(buffer, rpc.get(), "create-subscription", seq);
}

int conf_agent_build_capability(conf_buffer_t** buffer, int msg_seq) {
    const secret_node rpc{conf_agent_build_rpc("get-capability", msg_seq)};
    if (!rpc)
        return syslog_failure("[ERROR] Create root node <rpc> failed.\n");
    return put_rpc(buffer, rpc.get(), "get-capability", msg_seq);
}

// Notifications: one datagram each, without a frame, from a socket of its own.
#include "conf_api.h"
#include "conf_plugin.h"
#include "conf_plugin/log.h"
#include "support/handle.h"
#include "support/socket.h"
#include "support/xml.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

using namespace conf;

namespace {

int open_socket() noexcept { return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

// To be called while errno is still that of the send; neither logging nor closing changes it.
int judge(const char* name, ssize_t sent, std::size_t length) noexcept {
    if (sent == static_cast<ssize_t>(length))
        return 0;
    return plugin_failure("Send notification %s failed failed(%m).", name);
}

// Sends text with its zero byte; note logs what the system made of it.
template <class Note>
int send_text(const char* name, const char* text, int flags, Note note) noexcept {
    if (name == nullptr || text == nullptr)
        return plugin_failure("Error input parameter(list=%p, node=%p).",
                              static_cast<const void*>(name), static_cast<const void*>(text));
    unique_fd sock{open_socket()};
    if (!sock)
        return plugin_failure("Create notifier socket failed(%m).");
    const std::size_t length = strlen(text) + 1;
    const ssize_t sent = send_to_path(sock.get(), g_conf_notifier_socket, text, length, flags);
    note(static_cast<int>(sent));
    sock.reset();
    return judge(name, sent, length);
}

} // namespace

int econf_notify(const char* name, xmlNode* data) {
    if (name == nullptr || data == nullptr)
        return plugin_failure("Error input parameter(name=%p, node=%p).",
                              static_cast<const void*>(name), static_cast<void*>(data));
    const unique_xml_buffer text{xmlBufferCreate()};
    if (!text)
        return plugin_failure("Create xml buffer for cache rpc failed.");
    if (dump_node(text.get(), data) < 0)
        return plugin_failure("Dump data node failed.");
    const xmlChar* content = xmlBufferContent(text.get());
    if (content == nullptr)
        return plugin_failure("get content from xmlbuf fail.");
    const unique_fd sock{open_socket()};
    if (!sock)
        return plugin_failure("Create notification socket failed(%m).");
    const auto length = static_cast<std::size_t>(xmlBufferLength(text.get()));
    const ssize_t sent = send_to_path(sock.get(), g_conf_notifier_socket, content, length, 0);
    return judge(name, sent, length);
}

int conf_notify(char* name, char* data) {
    return send_text(name, data, 0, [](int sent) {
        _conf_write_log(DBG_INFO, "Sent notification to pelmd, length is %d", sent);
    });
}

int conf_notify_nonblock(char* name, char* data) {
    return send_text(name, data, MSG_DONTWAIT, [](int sent) {
        _conf_write_log(DBG_INFO, "Sent notification to pelmd with non block mode, length is %d",
                        sent);
    });
}

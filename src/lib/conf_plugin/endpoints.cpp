#include "conf_misc.h"
#include "conf_plugin.h"
#include "conf_plugin/log.h"
#include "support/handle.h"
#include "support/socket.h"

#include <sys/socket.h>
#include <unistd.h>

using namespace conf;

namespace {

constexpr int backlog = 8;
constexpr int notifier_receive_bytes = 5120;

void close_endpoint(int sock, const char* path) noexcept {
    if (sock >= 0)
        (void)close(sock);
    remove_path(path);
}

} // namespace

int conf_plugin_service_enable(void) {
    unique_fd sock{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!sock)
        return plugin_failure("Create conf-plugin socket failed(%m).");
    if (!bind_path(sock.get(), g_conf_plugin_socket))
        return plugin_failure("Bind conf-plugin socket failed(%m).");
    if (listen(sock.get(), backlog) < 0)
        return plugin_failure("Listen conf-plugin socket failed(%m).");
    if (conf_non_block_fd(sock.get()) < 0)
        return plugin_failure("Set plugin service socket to nonblock failed.");
    return sock.release();
}

void conf_plugin_service_disable(int sock) { close_endpoint(sock, g_conf_plugin_socket); }

int conf_plugin_notifier_enable(void) {
    unique_fd sock{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    if (!sock)
        return plugin_failure("Create notifier socket failed(%m).");
    if (!bind_path(sock.get(), g_conf_notifier_socket))
        return plugin_failure("Bind notifier socket failed(%m).");
    const int bytes = notifier_receive_bytes;
    if (setsockopt(sock.get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes) < 0)
        return plugin_failure("Set socket receive buffer option failed(%m).");
    if (conf_non_block_fd(sock.get()) < 0)
        return plugin_failure("Set notifier socket to nonblock failed.");
    return sock.release();
}

void conf_plugin_notifier_disable(int sock) { close_endpoint(sock, g_conf_notifier_socket); }

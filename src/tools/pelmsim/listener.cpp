#include "listener.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace pelmsim {

void accept_all(event_loop& loop, int socket, std::function<void(unique_fd)> welcome) {
    loop.watch(socket, POLLIN, [socket, welcome = std::move(welcome)](short) {
        unique_fd accepted(accept4(socket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (accepted)
            welcome(std::move(accepted));
    });
}

pid_t listening_process(const char* path) {
    const unique_fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return 0;
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(probe.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
        return 0;
    return peer.pid;
}

} // namespace pelmsim

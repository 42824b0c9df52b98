#include "wire/listener.h"

#include "wire/socket_channel.h"
#include "wire/unix_address.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/socket.h>

namespace pelmsim {

namespace {

constexpr milliseconds until_next_try{200};
constexpr int most_at_once = 64; // so that others are served while they come

class listener {
public:
    listener(event_loop& loop, event_journal& events, int socket,
             std::function<void(unique_fd)> welcome)
        : loop_(loop), events_(events), socket_(socket), welcome_(std::move(welcome)) {}

    // Once all that are there are taken, it is known that nobody waits any more.
    void on_ready() {
        for (int i = 0; i < most_at_once; ++i) {
            unique_fd accepted{accept4(socket_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)};
            if (!accepted)
                return has_failed();
            welcome(std::move(accepted));
        }
    }

private:
    void has_failed() {
        if (errno == EAGAIN)
            said_ = false;
        else if (errno != EINTR && errno != ECONNABORTED)
            rest(std::strerror(errno));
    }

    void welcome(unique_fd accepted) {
        try {
            welcome_(std::move(accepted));
        } catch (const std::exception& why) {
            events_.report({.kind = event_kind::refused, .text = why.what()});
        }
    }

    // The connection that could not be taken would wake the loop up again and again.
    void rest(const char* why) {
        loop_.change(socket_, 0);
        next_try_ = loop_.after(until_next_try, [this] { loop_.change(socket_, POLLIN); });
        if (!std::exchange(said_, true))
            events_.report({.kind = event_kind::waiting, .text = why});
    }

    event_loop& loop_;
    event_journal& events_;
    int socket_;
    std::function<void(unique_fd)> welcome_;
    bool said_ = false;
    timer next_try_;
};

} // namespace

void accept_all(event_loop& loop, event_journal& events, int socket,
                std::function<void(std::unique_ptr<channel>)> welcome) {
    accept_sockets(loop, events, socket, [&loop, welcome = std::move(welcome)](unique_fd accepted) {
        welcome(std::make_unique<socket_channel>(loop, std::move(accepted)));
    });
}

void accept_sockets(event_loop& loop, event_journal& events, int socket,
                    std::function<void(unique_fd)> welcome) {
    const auto all = std::make_shared<listener>(loop, events, socket, std::move(welcome));
    loop.watch(socket, POLLIN, [all](short) { all->on_ready(); });
}

pid_t listening_process(const char* path) {
    const unique_fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = unix_address(path);
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return errno == EAGAIN ? -1 : 0;
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(probe.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
        return 0;
    return peer.pid;
}

} // namespace pelmsim

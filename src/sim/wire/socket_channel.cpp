#include "wire/socket_channel.h"

#include "model/problem.h"

#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace pelmsim {
namespace {

constexpr short arrivals = POLLIN | POLLRDHUP;

bool may_be_tried_again(int error) { return error == EAGAIN || error == EINTR; }

} // namespace

peer_process socket_channel::other_end() const {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
        return {};
    return {peer.pid, peer.uid};
}

void socket_channel::start(std::function<void()> ready) {
    ready_ = std::move(ready);
    listen(true);
}

// A peer that has hung up is told of as long as the socket is watched at all.
void socket_channel::listen(bool wanted) {
    if (!wanted)
        return loop_.forget(socket_.get());
    loop_.watch(socket_.get(), events(), [this, ready = ready_](short events) {
        if ((events & POLLOUT) != 0)
            wait_for_room(false);
        ready();
    });
}

std::optional<std::size_t> socket_channel::read(std::span<char> room) {
    const ssize_t count = ::read(socket_.get(), room.data(), room.size());
    if (count > 0)
        return static_cast<std::size_t>(count);
    if (count < 0 && may_be_tried_again(errno))
        return 0;
    return std::nullopt;
}

std::optional<std::size_t> socket_channel::write(std::string_view bytes) {
    const ssize_t count = send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count >= 0)
        return static_cast<std::size_t>(count);
    if (errno == EPIPE || errno == ECONNRESET)
        return std::nullopt;
    if (!may_be_tried_again(errno))
        throw problem(std::strerror(errno));
    wait_for_room(true);
    return 0;
}

bool socket_channel::is_read() const {
    int unread = 0;
    return ioctl(socket_.get(), SIOCOUTQ, &unread) != 0 || unread == 0;
}

void socket_channel::wait_for_room(bool wait) {
    if (std::exchange(waits_for_room_, wait) != wait)
        loop_.change(socket_.get(), events());
}

short socket_channel::events() const {
    return static_cast<short>(arrivals | (waits_for_room_ ? POLLOUT : 0));
}

} // namespace pelmsim

#include "tap/relay.h"

#include <cerrno>
#include <sys/socket.h>

namespace pelmsim {
namespace {

constexpr int most_rounds = 4; // at once, of a side that may never stop

} // namespace

relay::relay(event_loop& loop, unique_fd peer, unique_fd daemon, relay_owner& owner)
    : loop_(loop),
      peer_{.socket = std::move(peer)},
      daemon_{.socket = std::move(daemon)},
      owner_(owner) {}

relay::~relay() {
    loop_.forget(peer_.socket.get());
    loop_.forget(daemon_.socket.get());
}

void relay::start() {
    for (side* each : {&peer_, &daemon_}) {
        each->watched = POLLIN;
        loop_.watch(each->socket.get(), POLLIN,
                    [this, each](short events) { on_ready_guarded(*each, events); });
    }
}

// What goes wrong with one, if only memory, ends that one alone.
void relay::on_ready_guarded(side& at, short events) {
    try {
        on_ready(at, events);
    } catch (const std::exception&) {
        owner_.ended(false);
    }
}

void relay::on_ready(side& at, short events) {
    side& other = &at == &peer_ ? daemon_ : peer_;
    if ((events & POLLHUP) != 0 && !at.is_gone) {
        at.is_gone = true;
        loop_.forget(at.socket.get()); // it would be told of again and again
        go_deaf(at, other);
    }
    carry(peer_, daemon_, direction::from_peer);
    carry(daemon_, peer_, direction::to_peer);
    if (is_done(peer_, daemon_) && is_done(daemon_, peer_))
        return owner_.ended(first_to_end_ == &daemon_);
    wait_for(peer_, daemon_);
    wait_for(daemon_, peer_);
}

// What a side has left that is gone is not more than a socket holds, and nothing tells of it.
void relay::carry(side& from, side& to, direction way) {
    for (int i = 0; i < most_rounds || from.is_gone; ++i) {
        if (!write_out(to, from) || is_done(from, to))
            break;
        char bytes[most_held];
        const ssize_t count = read(from.socket.get(), bytes, sizeof bytes);
        if (count < 0 && (errno == EAGAIN || errno == EINTR))
            break;
        if (count <= 0) {
            from.has_ended = true;
            (void)shutdown(to.socket.get(), SHUT_WR);
            break;
        }
        to.unsent.assign(bytes, static_cast<std::size_t>(count));
        owner_.passed(way, to.unsent);
    }
    if (first_to_end_ == nullptr && (from.has_ended || from.is_gone))
        first_to_end_ = &from;
}

// False while there is no room for all of it.
bool relay::write_out(side& to, side& from) {
    while (to.written < to.unsent.size()) {
        const ssize_t count = send(to.socket.get(), to.unsent.data() + to.written,
                                   to.unsent.size() - to.written, MSG_NOSIGNAL);
        if (count >= 0)
            to.written += static_cast<std::size_t>(count);
        else if (errno == EAGAIN)
            return false;
        else if (errno != EINTR)
            go_deaf(to, from);
    }
    std::string().swap(to.unsent);
    to.written = 0;
    return true;
}

// Who writes to it is to see that as if there were no relay.
void relay::go_deaf(side& to, side& from) {
    to.is_deaf = true;
    std::string().swap(to.unsent);
    to.written = 0;
    (void)shutdown(from.socket.get(), SHUT_RD);
}

void relay::wait_for(side& at, const side& other) {
    if (at.is_gone)
        return;
    const bool reads = !is_done(at, other) && other.unsent.empty();
    const auto wanted =
        static_cast<short>((reads ? POLLIN : 0) | (at.unsent.empty() ? 0 : POLLOUT));
    if (std::exchange(at.watched, wanted) != wanted)
        loop_.change(at.socket.get(), wanted);
}

} // namespace pelmsim

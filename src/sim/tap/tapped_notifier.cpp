#include "tap/tapped_notifier.h"

#include "wire/unix_address.h"

#include <cerrno>
#include <cstring>
#include <limits>
#include <sys/socket.h>

namespace pelmsim {
namespace {

// What its sender had room for is to find room here, too.
void take_the_longest(int socket) {
    const int room = std::numeric_limits<int>::max();
    if (setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) != 0)
        (void)setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
}

} // namespace

tapped_notifier::tapped_notifier(event_loop& loop, passage_queue& told, std::string place,
                                 on_nobody nobody)
    : loop_(loop),
      told_(told),
      place_(std::move(place)),
      nobody_(std::move(nobody)),
      arriving_(loop, *this) {}

void tapped_notifier::start(int socket) {
    socket_ = socket;
    arriving_.start(socket);
}

bool tapped_notifier::is_idle() const {
    pollfd arriving{.fd = socket_, .events = POLLIN, .revents = 0};
    return !waiting_ && poll(&arriving, 1, 0) == 0;
}

void tapped_notifier::take(std::string datagram) {
    const bool is_taken = told_.offer(
        {.what = passing::datagram, .bytes = datagram, .lost = lost_, .at = loop_.now()});
    lost_ = is_taken ? 0 : lost_ + 1;
    waiting_ = std::move(datagram);
    pass_on();
}

void tapped_notifier::failed(const char* why) {
    (void)told_.offer({.what = passing::told,
                       .said = {.kind = event_kind::unreadable,
                                .who = {.is = role::notifier},
                                .way = direction::from_peer,
                                .why = cause::failure,
                                .text = why}});
}

void tapped_notifier::pass_on() {
    if (!send_to_daemon()) {
        arriving_.hold(true);
        return loop_.change(daemon_.get(), POLLOUT);
    }
    waiting_.reset();
    disconnect(); // the next one may find another daemon there
    arriving_.hold(false);
}

// False when there is no room yet. A daemon that has restarted meanwhile is connected to anew.
bool tapped_notifier::send_to_daemon() {
    for (int i = 0; i < 2; ++i) {
        if (!daemon_ && !connect_to_daemon())
            break;
        if (send(daemon_.get(), waiting_->data(), waiting_->size(), MSG_NOSIGNAL) >= 0)
            return true;
        if (errno == EAGAIN)
            return false;
        const int error = errno;
        disconnect();
        errno = error;
    }
    const int error = errno;
    failed(
        ("a notification does not reach the daemon: " + std::string(std::strerror(error))).c_str());
    if (error == ECONNREFUSED || error == ENOENT)
        nobody_();
    return true;
}

bool tapped_notifier::connect_to_daemon() {
    daemon_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = unix_address(place_);
    if (!daemon_ ||
        connect(daemon_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        daemon_.reset();
        errno = error;
        return false;
    }
    take_the_longest(daemon_.get());
    loop_.watch(daemon_.get(), 0, [this](short events) {
        if ((events & (POLLERR | POLLHUP)) != 0)
            disconnect();
        pass_on();
    });
    return true;
}

void tapped_notifier::disconnect() {
    loop_.forget(daemon_.get());
    daemon_.reset();
}

} // namespace pelmsim

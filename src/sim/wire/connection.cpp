#include "wire/connection.h"

#include "model/problem.h"
#include "model/xml.h"

#include <cerrno>
#include <conf_plugin.h>
#include <cstring>
#include <sys/socket.h>

namespace pelmsim {

connection::connection(event_loop& loop, event_journal& events, unique_fd socket)
    : loop_(loop), events_(events), socket_(std::move(socket)) {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0) {
        pid_ = peer.pid;
        uid_ = peer.uid;
    }
}

connection::~connection() { close(); }

void connection::start() {
    loop_.watch(socket_.get(), POLLIN | POLLRDHUP, [weak = weak_from_this()](short events) {
        if (const auto self = weak.lock())
            self->guarded([&] { self->on_ready(events); });
    });
}

void connection::close() {
    if (socket_)
        loop_.forget(socket_.get());
    socket_.reset();
    unsent_.clear();
}

// A peer that has gone is noticed by reading, which comes first for what it said before. One that
// only reads no more may stay.
void connection::on_write_error(int error) {
    if (error == EPIPE || error == ECONNRESET)
        unsent_.clear();
    else if (error != EAGAIN && error != EINTR)
        throw problem(std::strerror(error));
}

// What goes wrong with one connection, if only memory, ends that one alone.
void connection::guarded(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& why) {
        end({cause::failure, 0, why.what()});
    }
}

// The one way that a connection ends but by its owner.
void connection::end(const defect& why) {
    if (!is_open())
        return;
    close(); // first of all, for it gives memory back
    events_.report({.kind = event_kind::closed,
                    .who = who(),
                    .why = why.why,
                    .count = why.count,
                    .text = why.text});
    on_closed();
}

void connection::on_ready(short events) {
    if ((events & POLLOUT) != 0)
        write_queue();
    on_arrival();
    const bool goes_on = receive();
    take_frames(); // also those that came just before the hang-up
    if (!goes_on)
        end({cause::by_peer});
}

// False once the peer has hung up.
bool connection::receive() {
    char bytes[65536];
    const ssize_t count = read(socket_.get(), bytes, sizeof bytes);
    if (count > 0)
        received_.add({bytes, static_cast<std::size_t>(count)});
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

void connection::take_frames() {
    while (is_open()) {
        auto next = received_.next();
        if (!next)
            return;
        if (next->garbage > 0)
            complain({cause::garbage, next->garbage});
        else
            deliver(std::move(*next));
    }
}

void connection::complain(const defect& what) {
    events_.report({.kind = event_kind::unreadable,
                    .who = who(),
                    .way = direction::from_peer,
                    .why = what.why,
                    .count = what.count,
                    .text = what.text});
}

void connection::deliver(arrival frame) {
    const msg_head_t header = frame.header;
    unique_node body = std::move(frame.body);
    if (body == nullptr)
        return on_unreadable({cause::no_xml, header.length});
    events_.report({.kind = event_kind::frame,
                    .who = who(),
                    .way = direction::from_peer,
                    .id = std::to_string(header.seq),
                    .body = body.get(),
                    .count = header.length});
    on_frame(std::move(body));
}

void connection::send(const xmlNode* body) {
    guarded([&] {
        if (queue_frame(body))
            write_queue();
    });
}

// False when the peer has left too much unread, and is hung up on.
bool connection::queue_frame(const xmlNode* body) {
    if (body == nullptr) // it could not be built
        throw std::bad_alloc();
    const std::string text = compact_node(body);
    if (text.size() > CONF_MSG_MAX_LENGTH)
        throw problem("a body of " + std::to_string(text.size()) + " bytes fits into no frame");
    if (!unsent_.has_room_for(text.size())) {
        end({cause::unread, unsent_.bytes() + sizeof(msg_head_t) + text.size()});
        return false;
    }
    const u16_t sequence = unsent_.add(text);
    events_.report({.kind = event_kind::frame,
                    .who = who(),
                    .way = direction::to_peer,
                    .id = std::to_string(sequence),
                    .body = body,
                    .count = text.size()});
    return true;
}

void connection::write_queue() {
    while (!unsent_.empty()) {
        const std::string_view bytes = unsent_.front();
        const ssize_t count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0) {
            on_write_error(errno);
            break;
        }
        unsent_.written(static_cast<std::size_t>(count));
    }
    const int writable = unsent_.empty() ? 0 : POLLOUT;
    loop_.change(socket_.get(), static_cast<short>(POLLIN | POLLRDHUP | writable));
}

} // namespace pelmsim

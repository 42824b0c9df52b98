#include "wire/connection.h"

#include "model/problem.h"
#include "model/xml.h"

#include <cerrno>
#include <conf_plugin.h>
#include <cstring>
#include <new>
#include <string_view>
#include <sys/socket.h>

namespace pelmsim {
namespace {

constexpr int header_bytes = sizeof(msg_head_t);
constexpr int initial_bytes = 4096;

// One frame of any legal length may wait, and beside it what comes in passing.
constexpr std::size_t mebibyte = std::size_t{1024} * 1024;
constexpr u32_t longest_body = CONF_MSG_MAX_LENGTH;
constexpr std::size_t most_unsent = 16 * mebibyte + longest_body + header_bytes;

msg_head_t header_of(conf_buffer_t* buffer) {
    msg_head_t header;
    std::memcpy(&header, conf_buffer_data(buffer), sizeof header);
    return header;
}

bool begins_a_frame(conf_buffer_t* buffer) {
    const msg_head_t header = header_of(buffer);
    return header.magic == CONF_MSG_MAGIC && header.length <= CONF_MSG_MAX_LENGTH;
}

} // namespace

connection::connection(event_loop& loop, event_journal& events, unique_fd socket)
    : loop_(loop),
      events_(events),
      socket_(std::move(socket)),
      received_(conf_buffer_create(initial_bytes)) {
    if (received_ == nullptr)
        throw std::bad_alloc();
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0) {
        pid_ = peer.pid;
        uid_ = peer.uid;
    }
}

connection::~connection() {
    close();
    conf_buffer_destroy(received_);
}

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
    drop_queue();
}

// A peer that has gone is noticed by reading, which comes first for what it said before. One that
// only reads no more may stay.
void connection::on_write_error(int error) {
    if (error == EPIPE || error == ECONNRESET)
        drop_queue();
    else if (error != EAGAIN && error != EINTR)
        throw problem(std::strerror(error));
}

void connection::drop_queue() {
    unsent_ = {};
    unsent_bytes_ = 0;
    written_ = 0;
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
    if (count > 0 && conf_buffer_append(&received_, bytes, static_cast<int>(count)) < 0)
        throw std::bad_alloc();
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

void connection::take_frames() {
    while (is_open() && conf_buffer_length(received_) >= header_bytes)
        if (!begins_a_frame(received_))
            skip_garbage();
        else if (frame_is_whole())
            deliver_frame();
        else
            return;
}

bool connection::frame_is_whole() {
    return header_of(received_).length <=
           static_cast<u32_t>(conf_buffer_length(received_) - header_bytes);
}

// The peer's answer may still follow. What may be the beginning of a mark is kept.
void connection::skip_garbage() {
    const u32_t magic = CONF_MSG_MAGIC;
    const char* const mark = reinterpret_cast<const char*>(&magic);
    const std::string_view bytes(static_cast<const char*>(conf_buffer_data(received_)),
                                 static_cast<std::size_t>(conf_buffer_length(received_)));
    std::size_t count = bytes.find(std::string_view(mark, sizeof magic), 1);
    if (count == std::string_view::npos) {
        std::size_t kept = sizeof magic - 1;
        while (!bytes.ends_with(std::string_view(mark, kept)))
            --kept;
        count = bytes.size() - kept;
    }
    conf_buffer_remove(received_, 0, static_cast<int>(count));
    complain({cause::garbage, count});
}

void connection::complain(const defect& what) {
    events_.report({.kind = event_kind::unreadable,
                    .who = who(),
                    .way = direction::from_peer,
                    .why = what.why,
                    .count = what.count,
                    .text = what.text});
}

void connection::deliver_frame() {
    const msg_head_t header = header_of(received_);
    unique_node body(plugin_parse_message(&received_));
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
    if (text.size() > longest_body)
        throw problem("a body of " + std::to_string(text.size()) + " bytes fits into no frame");
    const msg_head_t header{CONF_MSG_MAGIC, static_cast<u32_t>(text.size()), seq_++, 0};
    const std::size_t bytes = sizeof header + text.size();
    if (unsent_bytes_ + bytes > most_unsent)
        return end({cause::unread, unsent_bytes_ + bytes}), false;
    std::string& frame =
        unsent_.emplace_back(reinterpret_cast<const char*>(&header), sizeof header);
    frame += text;
    unsent_bytes_ += bytes;
    events_.report({.kind = event_kind::frame,
                    .who = who(),
                    .way = direction::to_peer,
                    .id = std::to_string(header.seq),
                    .body = body,
                    .count = text.size()});
    return true;
}

void connection::write_queue() {
    while (!unsent_.empty()) {
        const std::string& frame = unsent_.front();
        const ssize_t count =
            ::send(socket_.get(), frame.data() + written_, frame.size() - written_, MSG_NOSIGNAL);
        if (count < 0) {
            on_write_error(errno);
            break;
        }
        written_ += static_cast<std::size_t>(count);
        unsent_bytes_ -= static_cast<std::size_t>(count);
        if (written_ == frame.size()) {
            unsent_.pop_front();
            written_ = 0;
        }
    }
    const int writable = unsent_.empty() ? 0 : POLLOUT;
    loop_.change(socket_.get(), static_cast<short>(POLLIN | POLLRDHUP | writable));
}

} // namespace pelmsim

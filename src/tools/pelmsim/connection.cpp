#include "connection.h"

#include "xml.h"

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

msg_head_t header_of(conf_buffer_t* buffer) {
    msg_head_t header;
    std::memcpy(&header, conf_buffer_data(buffer), sizeof header);
    return header;
}

bool begins_a_frame(conf_buffer_t* buffer) {
    const msg_head_t header = header_of(buffer);
    return header.magic == CONF_MSG_MAGIC && header.length <= CONF_MSG_MAX_LENGTH;
}

void append(conf_buffer_t*& buffer, const void* bytes, std::size_t count) {
    if (conf_buffer_append(&buffer, const_cast<void*>(bytes), static_cast<int>(count)) < 0)
        throw std::bad_alloc();
}

} // namespace

connection::connection(event_loop& loop, console& out, unique_fd socket)
    : loop_(loop),
      out_(out),
      socket_(std::move(socket)),
      received_(conf_buffer_create(initial_bytes)),
      queued_(conf_buffer_create(initial_bytes)) {
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
    conf_buffer_destroy(queued_);
}

void connection::start() {
    loop_.watch(socket_.get(), POLLIN | POLLRDHUP, [weak = weak_from_this()](short events) {
        if (const auto self = weak.lock())
            self->on_ready(events);
    });
}

void connection::close() {
    if (socket_)
        loop_.forget(socket_.get());
    socket_.reset();
}

void connection::on_ready(short events) {
    if ((events & POLLOUT) != 0)
        write_queue();
    const bool goes_on = receive();
    take_frames(); // also those that came just before the hang-up
    if (!goes_on && is_open()) {
        close();
        on_closed();
    }
}

// False once the peer has hung up.
bool connection::receive() {
    char bytes[65536];
    const ssize_t count = read(socket_.get(), bytes, sizeof bytes);
    if (count > 0)
        append(received_, bytes, static_cast<std::size_t>(count));
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
    complain(std::to_string(count) + " bytes that begin no frame");
}

void connection::complain(const std::string& why) {
    out_.report({label(), '<', "unreadable", why, false});
}

void connection::deliver_frame() {
    const msg_head_t header = header_of(received_);
    unique_node body(plugin_parse_message(&received_));
    if (body == nullptr)
        return on_unreadable("a frame of " + std::to_string(header.length) +
                             " bytes that is no well-formed XML");
    out_.frame(label(), '<', header.seq, header.length, body.get());
    on_frame(std::move(body));
}

void connection::send(const xmlNode* body) {
    const std::string text = compact_node(body);
    const msg_head_t header{CONF_MSG_MAGIC, static_cast<u32_t>(text.size()), seq_++, 0};
    append(queued_, &header, sizeof header);
    append(queued_, text.data(), text.size());
    out_.frame(label(), '>', header.seq, text.size(), body);
    write_queue();
}

void connection::write_queue() {
    const int length = conf_buffer_length(queued_);
    if (!is_open() || length == 0)
        return;
    const ssize_t count = ::send(socket_.get(), conf_buffer_data(queued_),
                                 static_cast<std::size_t>(length), MSG_NOSIGNAL);
    if (count > 0)
        conf_buffer_remove(queued_, 0, static_cast<int>(count));
    // A peer that has gone is noticed by reading.
    const bool waits = conf_buffer_length(queued_) > 0;
    loop_.change(socket_.get(), static_cast<short>(POLLIN | POLLRDHUP | (waits ? POLLOUT : 0)));
}

} // namespace pelmsim

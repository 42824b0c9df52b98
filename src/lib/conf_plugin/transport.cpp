#include "conf_plugin/transport.h"

#include "buffer_parts.h"
#include "conf_plugin/context.h"
#include "conf_plugin/log.h"
#include "frame.h"
#include "support/handle.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/epoll.h>
#include <unistd.h>

namespace conf {
namespace {

constexpr int piece_bytes = 1024;
static_assert(connection_lost == (EPOLLERR | EPOLLHUP | EPOLLRDHUP));

// Forgets and wipes what a buffer holds.
void discard(conf_buffer_t* buf) noexcept { buffer_consume(buf, buf->used); }

// Each frame steps the id once: when it is out, or earlier when it was answered or given up by then. Its
// seq, one less than the id that was in force, tells whether that is still to be done.
void step_id(conf_plugin_context_t* ctxt) noexcept {
    if (front_seq(ctxt->send_buf) + 1 == ctxt->rpc_id)
        advance_id(ctxt);
}

// Removes everything in front of the next frame mark; without one, all but the bytes in which a
// header may have begun. At least one byte goes.
void skip_to_mark(conf_buffer_t* buf) noexcept {
    constexpr u32_t mark = CONF_MSG_MAGIC;
    const int last_start = buf->used - header_bytes - 1;
    int garbage = std::max(buf->used - header_bytes, 1);
    if (last_start >= 1) {
        const auto room = static_cast<std::size_t>(last_start - 1) + sizeof mark;
        if (const void* found = memmem(buf->buf + 1, room, &mark, sizeof mark))
            garbage = static_cast<int>(static_cast<const char*>(found) - buf->buf);
    }
    buffer_consume(buf, garbage);
}

// Skips what cannot be a frame. Twelve bytes without the mark are never a header, whatever their
// length field says: they are kept, since the mark may begin in them.
bool frame_is_ready(conf_buffer_t* buf) noexcept {
    while (buf->used >= header_bytes) {
        const bool marked = front_magic(buf) == CONF_MSG_MAGIC;
        const u32_t length = front_length(buf);
        if (marked && length <= CONF_MSG_MAX_LENGTH)
            return static_cast<std::uint64_t>(buf->used) >= frame_bytes(length);
        if (!marked && buf->used == header_bytes)
            return false;
        if (marked)
            plugin_failure("Message from pelmd is too long(%u bytes).", length);
        skip_to_mark(buf);
    }
    return false;
}

// Milliseconds since some point in time. It wraps, so only differences count.
u32_t now_ms() noexcept {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<u32_t>(now.tv_sec) * 1000 + static_cast<u32_t>(now.tv_nsec) / 1000000;
}

} // namespace

void advance_id(conf_plugin_context_t* ctxt) noexcept {
    ctxt->rpc_id = ctxt->rpc_id == UINT16_MAX ? u16_t{1} : static_cast<u16_t>(ctxt->rpc_id + 1);
}

int watch_socket(int sock, std::uint32_t events) noexcept {
    unique_fd epoll{epoll_create1(EPOLL_CLOEXEC)};
    if (!epoll)
        return plugin_failure("Create epoll fd failed(%m).");
    epoll_event interest{};
    interest.events = events;
    interest.data.fd = sock;
    if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, sock, &interest) < 0)
        return plugin_failure("Add socket to epoll fd failed(%m).");
    return epoll.release();
}

std::uint32_t next_events(int epoll, int timeout_ms) noexcept {
    const u32_t start = now_ms();
    int left = timeout_ms;
    for (;;) {
        epoll_event event;
        const int count = epoll_wait(epoll, &event, 1, left);
        if (count < 0 && errno == EINTR) { // which puts off no end
            left = std::max(timeout_ms - static_cast<int>(now_ms() - start), 0);
            continue;
        }
        if (count < 0)
            plugin_failure("Epoll wait failed(%m).");
        else if (count == 0)
            plugin_failure("Epoll wait failed(timeout).");
        else if ((event.events & connection_lost) != 0)
            plugin_failure("An error epoll event occur(0x%x).", event.events);
        else
            return event.events;
        return 0;
    }
}

int _cache_message(conf_plugin_data* plugin, xmlNode* root) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    switch (append_frame(&ctxt->send_buf, root, static_cast<u16_t>(ctxt->rpc_id - 1))) {
    case frame_fault::none:
        return 0;
    case frame_fault::no_xml_buffer:
        return plugin_failure("Create xml buffer for cache rpc failed.");
    case frame_fault::not_dumped:
        return plugin_failure("Dump rpc node failed.");
    case frame_fault::no_header:
        return plugin_failure("Append rpc message header to buffer failed.");
    case frame_fault::no_body:
        break;
    }
    return plugin_failure("Append rpc message body to buffer failed.");
}

int _send_message(conf_plugin_data* plugin) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    if (ctxt->send_buf->used == 0)
        return 0;
    const auto frame = static_cast<std::size_t>(frame_bytes(front_length(ctxt->send_buf)));
    const std::size_t rest = frame - ctxt->send_pos;
    const ssize_t written = write(ctxt->sock, ctxt->send_buf->buf + ctxt->send_pos, rest);
    if (written < 0 && errno == EAGAIN)
        return 0;
    if (written < 0)
        return plugin_failure("Send message to pelmd failed(%m).");
    _conf_write_log(DBG_INFO, "Send message to pelmd.");
    if (static_cast<std::size_t>(written) < rest) {
        ctxt->send_pos += static_cast<u32_t>(written);
        return 0;
    }
    step_id(ctxt);
    buffer_consume(ctxt->send_buf, static_cast<int>(frame));
    ctxt->send_pos = 0;
    return 0;
}

// A frame may stand behind the rest of an earlier one: with edge-triggered events no other event would
// come for it.
int send_queue(conf_plugin_data* plugin) noexcept {
    const conf_buffer_t* queue = plugin->plugin_ctxt->send_buf;
    for (;;) {
        const int before = queue->used;
        if (_send_message(plugin) < 0)
            return -1;
        if (queue->used == before || queue->used == 0) // the frame is not out, or was the last
            return 0;
    }
}

int _recv_message(conf_plugin_data* plugin, bool_t* ready) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    *ready = 0;
    while (!frame_is_ready(ctxt->recv_buf)) {
        // Straight into the buffer; by way of another area where the buffer may have to grow.
        char piece[piece_bytes];
        char* room = buffer_room(ctxt->recv_buf, piece_bytes);
        const ssize_t count = read(ctxt->sock, room != nullptr ? room : piece, piece_bytes);
        if (count == 0 || (count < 0 && errno == EAGAIN))
            return 0;
        if (count < 0) {
            plugin_failure("Read message from pelmd failed(%m).");
            drop_input(ctxt);
            return -1;
        }
        const int bytes = static_cast<int>(count);
        _conf_write_log(DBG_INFO, "Read message from pelmd(%d bytes).", bytes);
        if (room != nullptr) {
            buffer_added(ctxt->recv_buf, bytes);
        } else if (conf_buffer_append(&ctxt->recv_buf, piece, bytes) < 0) {
            plugin_failure("Cache receive message failed.");
            drop_input(ctxt);
            return -1;
        }
    }
    *ready = 1;
    return 0;
}

// What is on the wire in part has used its id: an answer to it may still come.
void drop_queue(conf_plugin_context_t* ctxt) noexcept {
    if (ctxt->send_pos > 0)
        step_id(ctxt);
    discard(ctxt->send_buf);
    ctxt->send_pos = 0;
}

void drop_input(conf_plugin_context_t* ctxt) noexcept { discard(ctxt->recv_buf); }

} // namespace conf

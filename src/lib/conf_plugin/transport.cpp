#include "conf_plugin/transport.h"

#include "buffer_parts.h"
#include "conf_plugin/log.h"
#include "conf_plugin/message.h"
#include "conf_plugin/registry.h"
#include "frame.h"
#include "support/xml.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/epoll.h>
#include <unistd.h>

namespace conf {
namespace {

constexpr int piece_bytes = 1024;
constexpr int answer_timeout_ms = 30000;
constexpr int write_timeout_ms = 15000;
static_assert(connection_lost == (EPOLLERR | EPOLLHUP | EPOLLRDHUP));

// Forgets and wipes what a buffer holds.
void discard(conf_buffer_t* buf) noexcept { _buffer_consume(buf, buf->used); }

void advance_id(conf_plugin_context_t* ctxt) noexcept {
    ctxt->rpc_id = ctxt->rpc_id == UINT16_MAX ? u16_t{1} : static_cast<u16_t>(ctxt->rpc_id + 1);
}

// Each frame steps the id once: when it is out, or earlier when it was answered or given up by then. Its
// seq, one less than the id that was in force, tells whether that is still to be done.
void step_id(conf_plugin_context_t* ctxt) noexcept {
    if (front_seq(ctxt->send_buf) + 1 == ctxt->rpc_id)
        advance_id(ctxt);
}

// What is on the wire in part has used its id: an answer to it may still come.
void discard_queue(conf_plugin_context_t* ctxt) noexcept {
    if (ctxt->send_pos > 0)
        step_id(ctxt);
    discard(ctxt->send_buf);
    ctxt->send_pos = 0;
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
    _buffer_consume(buf, garbage);
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
            (void)plugin_failure("Message from pelmd is too long(%u bytes).", length);
        skip_to_mark(buf);
    }
    return false;
}

int receive_failure(conf_plugin_context_t* ctxt) noexcept {
    discard(ctxt->recv_buf);
    return -1;
}

long long now_ms() noexcept {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Waits for events of a connection. @return them, or 0 (reported) when none came in time, or when they
// say that the connection is lost
std::uint32_t next_events(int epoll, int timeout_ms) noexcept {
    const long long end = now_ms() + timeout_ms; // which no signal puts off
    int left = timeout_ms;
    for (;;) {
        epoll_event event;
        const int count = epoll_wait(epoll, &event, 1, left);
        if (count < 0 && errno == EINTR) {
            left = static_cast<int>(std::max(end - now_ms(), 0LL));
            continue;
        }
        if (count < 0)
            (void)plugin_failure("Epoll wait failed(%m).");
        else if (count == 0)
            (void)plugin_failure("Epoll wait failed(%s).", "timeout");
        else if ((event.events & connection_lost) != 0)
            (void)plugin_failure("An error epoll event occur(0x%x).", event.events);
        else
            return event.events;
        return 0;
    }
}

// Writes what the socket takes of the queue, which may begin with the rest of an earlier request: with
// edge-triggered events no other event would come for what is behind it.
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

// Nothing is awaited before the socket can be written for the first time.
int _syn_send_rpc_on_send_evt(conf_plugin_data* plugin, std::uint32_t events, u32_t id,
                              u32_t* awaited) noexcept {
    int ret = 0;
    if ((events & EPOLLOUT) != 0) {
        *awaited = id;
        ret = send_queue(plugin);
    }
    _conf_write_log(DBG_INFO, "Syn send rpc on send evt msg_id:%u, ret:%u", *awaited,
                    static_cast<u32_t>(ret));
    return ret;
}

// Takes frames until the awaited one is found: with edge-triggered events no other event would come
// for a frame that is left behind.
int take_answer(conf_plugin_data* plugin, u32_t awaited, xmlNode** reply) noexcept {
    for (;;) {
        bool_t ready = 0;
        if (_recv_message(plugin, &ready) < 0)
            return -1;
        _conf_write_log(DBG_INFO, "Syn send rpc on recv evt, ready is %u",
                        static_cast<u32_t>(ready));
        if (!ready)
            return 0;
        secret_node message{_take_message(plugin->plugin_ctxt->recv_buf)};
        if (message && awaited != 0 && plugin_get_msgid(message.get()) == awaited) {
            *reply = message.release();
            return 0;
        }
    }
}

int _syn_send_rpc_on_recv_evt(conf_plugin_data* plugin, std::uint32_t events, u32_t awaited,
                              xmlNode** reply) noexcept {
    int ret = 0;
    *reply = nullptr;
    if ((events & (EPOLLIN | EPOLLPRI)) != 0)
        ret = take_answer(plugin, awaited, reply);
    _conf_write_log(DBG_INFO, "Syn send rpc on recv evt msg_id:%u. ret:%u", awaited,
                    static_cast<u32_t>(ret));
    return ret;
}

failure node_failure(const char* name) noexcept {
    return plugin_failure("Create <%s> node failed.", name);
}

xmlNode* new_error(int code, const char* text) noexcept {
    unique_node error{new_element("error")};
    if (!error)
        return node_failure("error");
    if (add_number(error.get(), "code", code) == nullptr)
        return node_failure("code");
    if (add_text(error.get(), "message", text) == nullptr)
        return node_failure("message");
    return error.release();
}

xmlNode* new_result() noexcept {
    xmlNode* result = new_element("result");
    return result != nullptr ? result : node_failure("result");
}

} // namespace

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
    _buffer_consume(ctxt->send_buf, static_cast<int>(frame));
    ctxt->send_pos = 0;
    return 0;
}

int _recv_message(conf_plugin_data* plugin, bool_t* ready) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    *ready = 0;
    while (!frame_is_ready(ctxt->recv_buf)) {
        // Straight into the buffer; by way of another area where the buffer may have to grow.
        char piece[piece_bytes];
        char* room = _buffer_room(ctxt->recv_buf, piece_bytes);
        const ssize_t count = read(ctxt->sock, room != nullptr ? room : piece, piece_bytes);
        if (count == 0 || (count < 0 && errno == EAGAIN))
            return 0;
        if (count < 0) {
            (void)plugin_failure("Read message from pelmd failed(%m).");
            return receive_failure(ctxt);
        }
        const int bytes = static_cast<int>(count);
        _conf_write_log(DBG_INFO, "Read message from pelmd(%d bytes).", bytes);
        if (room != nullptr) {
            _buffer_added(ctxt->recv_buf, bytes);
        } else if (conf_buffer_append(&ctxt->recv_buf, piece, bytes) < 0) {
            (void)plugin_failure("Cache receive message failed.");
            return receive_failure(ctxt);
        }
    }
    *ready = 1;
    return 0;
}

int _syn_send_rpc(conf_plugin_data* plugin, xmlNode* rpc, xmlNode** reply) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    const u32_t id = ctxt->rpc_id; // the request's, whatever goes out ahead of it
    if (_cache_message(plugin, rpc) < 0)
        return -1;
    const unique_fd epoll{watch_socket(ctxt->sock, EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET)};
    u32_t awaited = 0; // not known yet
    while (epoll) {
        const std::uint32_t events = next_events(epoll.get(), answer_timeout_ms);
        if (events == 0 || _syn_send_rpc_on_send_evt(plugin, events, id, &awaited) < 0 ||
            _syn_send_rpc_on_recv_evt(plugin, events, awaited, reply) < 0)
            break;
        if (*reply == nullptr)
            continue;
        if (ctxt->send_buf->used > 0) // answered before it was out
            advance_id(ctxt);
        return 0;
    }
    discard_queue(ctxt);
    discard(ctxt->recv_buf);
    return -1;
}

int _syn_send_reply(conf_plugin_data* plugin, xmlNode* reply) noexcept {
    if (_cache_message(plugin, reply) < 0)
        return -1;
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    const unique_fd epoll{watch_socket(ctxt->sock, EPOLLOUT | EPOLLRDHUP | EPOLLET)};
    while (epoll) {
        const std::uint32_t events = next_events(epoll.get(), write_timeout_ms);
        if (events == 0 || ((events & EPOLLOUT) != 0 && send_queue(plugin) < 0))
            break;
        if (ctxt->send_buf->used == 0)
            return 0;
    }
    discard_queue(ctxt);
    return -1;
}

int _plugin_single_rpc_send(conf_plugin_data* plugin, xmlNode* rpc) noexcept {
    const char* name = plugin->plugin_ctxt->name;
    xmlNode* answer = nullptr;
    if (_syn_send_rpc(plugin, rpc, &answer) < 0)
        return plugin_failure("Plugin %s send rpc to pelmd failed.", name);
    const secret_node reply{answer};
    xmlNode* result;
    xmlNode* error;
    if (plugin_parse_reply(reply.get(), &result, &error) < 0)
        return plugin_failure("Parse reply for plugin %s rpc failed.", name);
    if (error != nullptr)
        return plugin_failure("Pelmd reply error(%s) for plugin %s rpc.",
                              shown(plugin_get_reply_errmsg(error)), name);
    return 0;
}

int _plugin_single_reply_send(conf_plugin_data* plugin, u32_t msgid) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    const int code = std::exchange(ctxt->err_code, 0);
    const error_text text{std::exchange(ctxt->err_msg, nullptr)};
    if (msgid == 0)
        return -1;
    xmlNode* outcome = code != 0 ? new_error(code, text.get()) : new_result();
    if (outcome == nullptr)
        return -1;
    const unique_node reply{plugin_build_reply_message(outcome, msgid)};
    if (!reply)
        return plugin_failure("Build reply message failed.");
    if (_syn_send_reply(plugin, reply.get()) < 0)
        return plugin_failure("Send reply message to pelmd failed.");
    return 0;
}

} // namespace conf

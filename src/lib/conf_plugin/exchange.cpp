#include "conf_plugin/exchange.h"

#include "conf_plugin/context.h"
#include "conf_plugin/log.h"
#include "conf_plugin/message.h"
#include "conf_plugin/transport.h"
#include "support/xml.h"

#include <sys/epoll.h>

namespace conf {
namespace {

constexpr int answer_timeout_ms = 30000;
constexpr int write_timeout_ms = 15000;

enum class progress { goes_on, is_done, has_failed };

// Lets step see each event of the connection until it is done. @return whether it got there: after a
// failure, its own or of the wait, nothing is queued any more
template <class Step>
bool wait_until(conf_plugin_context_t* ctxt, std::uint32_t interest, int timeout_ms,
                Step step) noexcept {
    const unique_fd epoll{watch_socket(ctxt->sock, interest | EPOLLRDHUP | EPOLLET)};
    progress state = epoll ? progress::goes_on : progress::has_failed;
    while (state == progress::goes_on) {
        const std::uint32_t events = next_events(epoll.get(), timeout_ms);
        state = events != 0 ? step(events) : progress::has_failed;
    }
    if (state == progress::has_failed)
        drop_queue(ctxt);
    return state == progress::is_done;
}

// A request under way. Nothing is awaited before the socket can be written for the first time.
struct request {
    u32_t id;
    u32_t awaited;
};

int _syn_send_rpc_on_send_evt(conf_plugin_data* plugin, std::uint32_t events,
                              request* rpc) noexcept {
    int ret = 0;
    if ((events & EPOLLOUT) != 0) {
        rpc->awaited = rpc->id;
        ret = send_queue(plugin);
    }
    _conf_write_log(DBG_INFO, "Syn send rpc on send evt msg_id:%u, ret:%u", rpc->awaited,
                    static_cast<u32_t>(ret));
    return ret;
}

// Takes frames until the awaited one is found: with edge-triggered events no other event would come
// for a frame that is left behind.
int find_reply(conf_plugin_data* plugin, u32_t awaited, xmlNode** reply) noexcept {
    for (;;) {
        bool_t ready = 0;
        if (_recv_message(plugin, &ready) < 0)
            return -1;
        _conf_write_log(DBG_INFO, "Syn send rpc on recv evt, ready is %u",
                        static_cast<u32_t>(ready));
        if (!ready)
            return 0;
        secret_node message{take_message(plugin->plugin_ctxt->recv_buf, message_parser())};
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
        ret = find_reply(plugin, awaited, reply);
    _conf_write_log(DBG_INFO, "Syn send rpc on recv evt msg_id:%u. ret:%u", awaited,
                    static_cast<u32_t>(ret));
    return ret;
}

} // namespace

int _syn_send_rpc(conf_plugin_data* plugin, xmlNode* rpc, xmlNode** reply) noexcept {
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    request sent{ctxt->rpc_id, 0}; // whatever goes out ahead of it
    if (_cache_message(plugin, rpc) < 0)
        return -1;
    const auto step = [&](std::uint32_t events) noexcept {
        if (_syn_send_rpc_on_send_evt(plugin, events, &sent) < 0 ||
            _syn_send_rpc_on_recv_evt(plugin, events, sent.awaited, reply) < 0)
            return progress::has_failed;
        return *reply != nullptr ? progress::is_done : progress::goes_on;
    };
    if (!wait_until(ctxt, EPOLLIN | EPOLLOUT, answer_timeout_ms, step)) {
        drop_input(ctxt);
        return -1;
    }
    // One that was answered before it is out has used its id all the same: the next must not go out under
    // it, and take what is still to come for this one.
    if (ctxt->send_buf->used > 0)
        advance_id(ctxt);
    return 0;
}

int _syn_send_reply(conf_plugin_data* plugin, xmlNode* reply) noexcept {
    if (_cache_message(plugin, reply) < 0)
        return -1;
    conf_plugin_context_t* ctxt = plugin->plugin_ctxt;
    const auto step = [plugin, ctxt](std::uint32_t events) noexcept {
        if ((events & EPOLLOUT) != 0 && send_queue(plugin) < 0)
            return progress::has_failed;
        return ctxt->send_buf->used == 0 ? progress::is_done : progress::goes_on;
    };
    return wait_until(ctxt, EPOLLOUT, write_timeout_ms, step) ? 0 : -1;
}

xmlNode* ask_pelmd(conf_plugin_data* plugin, xmlNode* rpc) noexcept {
    xmlNode* reply = nullptr;
    if (_syn_send_rpc(plugin, rpc, &reply) < 0)
        return plugin_failure("Plugin %s send rpc to pelmd failed.", plugin->plugin_ctxt->name);
    return reply;
}

int split_reply(conf_plugin_data* plugin, xmlNode* reply, xmlNode** result,
                xmlNode** error) noexcept {
    if (plugin_parse_reply(reply, result, error) < 0)
        return plugin_failure("Parse reply for plugin %s rpc failed.", plugin->plugin_ctxt->name);
    return 0;
}

int _plugin_single_rpc_send(conf_plugin_data* plugin, xmlNode* rpc) noexcept {
    const secret_node reply{ask_pelmd(plugin, rpc)};
    xmlNode* result;
    xmlNode* error;
    if (!reply || split_reply(plugin, reply.get(), &result, &error) < 0)
        return -1;
    if (error != nullptr)
        return plugin_failure("Pelmd reply error(%s) for plugin %s rpc.",
                              shown(plugin_get_reply_errmsg(error)), plugin->plugin_ctxt->name);
    return 0;
}

int _plugin_single_reply_send(conf_plugin_data* plugin, u32_t msgid) noexcept {
    error_text text;
    const int code = take_error(plugin->plugin_ctxt, &text);
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

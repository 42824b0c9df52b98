// All that a daemon may send, in whatever pieces, to a plugin whose callbacks ask it in between.
#include "conf_api.h"
#include "conf_misc.h"
#include "conf_plugin.h"
#include "input.h"
#include "support/handle.h"
#include "support/peer.h"

#include <csignal>
#include <cstring>
#include <deque>
#include <libxml/parser.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
int __real_epoll_wait(int epoll, epoll_event* events, int most, int timeout_ms);
int __wrap_epoll_wait(int epoll, epoll_event* events, int most, int timeout_ms);
}

namespace {

using unique_document = conf::unique_handle<conf::freed_by<xmlDoc, xmlFreeDoc>>;

// The daemon's end of the line, and what it is still to send, piece by piece.
struct daemon_end {
    conf::unique_fd listener, sock;
    std::deque<std::string> pieces;
    std::string received;

    void read() {
        char bytes[4096];
        ssize_t count = 0;
        while ((count = recv(sock.get(), bytes, sizeof bytes, MSG_DONTWAIT)) > 0)
            received.append(bytes, static_cast<std::size_t>(count));
    }
    // @return whether there was anything left to send
    bool take_turn() {
        if (!sock)
            sock.reset(accept(listener.get(), nullptr, nullptr));
        read();
        if (pieces.empty())
            return false;
        const std::string& next = pieces.front();
        (void)send(sock.get(), next.data(), next.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        pieces.pop_front();
        return true;
    }
};
daemon_end far;
int questions_left; // that callbacks may ask

void ask() {
    if (--questions_left < 0)
        return;
    xmlNode* found = nullptr;
    require(econf_plugin_pull(0, "/c", &found) == 0 || found == nullptr);
    xmlFreeNodeList(found);
}

int change(int, int oper, int, int, const char* path) {
    ask();
    if ((oper & CONFIG_OP_RM) != 0)
        econf_plugin_error(oper, path);
    return oper & CONFIG_OP_RM;
}

int tell(int session, const char* path, const char*, xmlNode** status) {
    *status = session == 2 ? nullptr : xmlNewNode(nullptr, BAD_CAST "s");
    return path != nullptr ? 0 : 3;
}

int operate(int, xmlNode* input, xmlNode** output) {
    ask();
    *output = xmlCopyNodeList(input);
    return 0;
}

char operation[] = "/o";
econf_config_cb_info_t changes[] = {{"/c", 1, change}, {"/d", 1, nullptr}, {}};
econf_status_cb_info_t states[] = {{"/s", tell}, {}};
econf_operate_cb_info_t operations[] = {{operation, operate}, {}};
econf_plugin_subpub_info_t tables{changes, states, operations, ask};

std::string answer(const std::string& id, const std::string& what) {
    return frame_of("<reply>" + what + "<id>" + id + "</id></reply>");
}

void keep_quiet(void*, const char*, ...) {}

// Once for all inputs.
conf_plugin_context_t* register_plugin() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    xmlSetGenericErrorFunc(nullptr, keep_quiet);
    far.listener.reset(conf_plugin_service_enable());
    far.pieces = {answer("1", "<result/>")};
    require(econf_plugin_init("fuzz", &tables) >= 0);
    far.listener.reset();
    return get_plugin_context();
}

// A line that nothing has gone over, under the number of the one before.
void renew(conf_plugin_context_t* context) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0);
    require(dup2(ends[0], context->sock) == context->sock);
    (void)close(ends[0]);
    far.sock.reset(ends[1]);
    far.pieces.clear();
    far.received.clear();
    conf_buffer_flush(context->recv_buf);
    conf_buffer_flush(context->send_buf);
    context->send_pos = 0;
    context->rpc_id = 1;
    context->bit_activate = 1;
    questions_left = 4;
}

std::string elements(input& in) {
    static constexpr const char* pieces[] = {"<type>config</type>",
                                             "<type>operate</type>",
                                             "<callback>1</callback>",
                                             "<callback>2</callback>",
                                             "<callback>3</callback>",
                                             "<callback>4</callback>",
                                             "<session-id>2</session-id>",
                                             "<info>",
                                             "</info>",
                                             "<path>/c[k=\"x\"]</path>",
                                             "<oper-type>2</oper-type>",
                                             "<oper-type>1</oper-type>",
                                             "<priority>-1</priority>",
                                             "<filter/>",
                                             "<v>&#65;</v>"};
    return in.text(pieces);
}

// A request, an answer, or what is nearly one; as often as not, one that comes to something.
std::string message(input& in) {
    static constexpr const char* methods[] = {"publish", "subscribe", "kickoff", "", "x"};
    static constexpr const char* ids[] = {"1", "2", "3", "4", "0", "65535", "x", ""};
    const std::string id = in.pick(ids);
    switch (in.below(6)) {
    case 0:
        return answer(id, "<result>" + elements(in) + "</result>");
    case 1:
        return answer(id, "<error><code>5</code></error>");
    case 2:
        return answer(id, "<result><data>" + elements(in) + "</data></result>");
    case 3:
        return header_of(in.below(40)) + elements(in);
    default:
        return frame_of(std::string("<rpc><method>") + in.pick(methods) + "</method><params>" +
                        elements(in) + "</params><id>" + id + "</id></rpc>");
    }
}

void cut(input& in, std::string stream) {
    while (!stream.empty()) {
        const std::size_t length = in.flag() ? stream.size() : in.below(stream.size()) + 1;
        far.pieces.push_back(stream.substr(0, length));
        stream.erase(0, length);
    }
}

// What the plugin has sent is frames, one behind the other, each well-formed.
void look_at_what_came(bool has_begun_another) {
    far.read();
    std::string& bytes = far.received;
    while (bytes.size() >= sizeof(msg_head_t)) {
        msg_head_t header;
        std::memcpy(&header, bytes.data(), sizeof header);
        require(header.magic == CONF_MSG_MAGIC && header.length > 0);
        if (bytes.size() - sizeof header < header.length)
            break;
        const unique_document body{xmlReadMemory(
            bytes.data() + sizeof header, static_cast<int>(header.length), nullptr, nullptr, 0)};
        require(bool(body));
        bytes.erase(0, sizeof header + header.length);
    }
    require(bytes.empty() || has_begun_another);
}

} // namespace

// Whenever the plugin would wait, more comes; when nothing more will, its time is up.
int __wrap_epoll_wait(int epoll, epoll_event* events, int most, int) {
    for (;;) {
        const int count = __real_epoll_wait(epoll, events, most, 0);
        if (count != 0 || !far.take_turn())
            return count;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static conf_plugin_context_t* const context = register_plugin();
    renew(context);
    input in(bytes, size);
    const int hangs_up = static_cast<int>(in.below(4)); // 0: behind all that was sent
    std::string stream;
    for (auto left = in.below(8); left > 0; --left)
        stream += message(in);
    stream += in.flag() ? in.rest() : "";
    cut(in, stream);
    while (far.take_turn())
        econf_plugin_run();
    if (hangs_up == 0)
        far.sock.reset();
    econf_plugin_run();
    look_at_what_came(context->send_pos > 0);
    (void)reports();
    return 0;
}

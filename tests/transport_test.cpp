// Frames over a plugin's connection, and the two waits that the rest is built on.
#include "support/plugin.h"

#include "conf_plugin/registry.h"
#include "conf_plugin/transport.h"

#include <sys/socket.h>

using namespace conf;

namespace {

class Transport : public PluginTest {
protected:
    Transport() { start({}, false); }

    // The body at the front of the receive buffer after a read, if there is a whole one.
    std::string take() {
        bool_t ready = 7;
        EXPECT_EQ(_recv_message(plugin(), &ready), 0);
        if (!ready)
            return "";
        const unique_node root{plugin_parse_message(&context()->recv_buf)};
        return root ? text_of(root.get()) : "no XML";
    }
    template <class Operation> int with(const std::string& text, Operation operation) {
        const unique_node node{nodes_of(text)};
        return operation(plugin(), node.get());
    }
    int queue(const std::string& text) { return with(text, _cache_message); }
    std::string respond(const std::string& text) {
        return with(text, _syn_send_reply) == 0 ? "sent" : "";
    }
    std::string request(const std::string& text) {
        unique_node reply;
        (void)with(text,
                   [&](auto* entry, auto* rpc) { return _syn_send_rpc(entry, rpc, reply.out()); });
        return text_of(reply.get());
    }
    void receive(std::string bytes) {
        (void)conf_buffer_append(&context()->recv_buf, bytes.data(),
                                 static_cast<int>(bytes.size()));
    }
    // What is left in both buffers.
    static std::string left() {
        EXPECT_EQ(context()->send_pos, 0u);
        return conf_string(context()->recv_buf) + conf_string(context()->send_buf);
    }
    static std::string conf_string(const conf_buffer_t* buf) {
        return {buf->buf, buf->buf + buf->used};
    }
    // The same behind the result of an operation, and what was logged.
    static std::string after(const std::string& result) { return result + left() + log(true); }
    static conf_plugin_data* plugin() { return get_plugin_from_hash(); }

    // Too large for one write, one read and one page.
    const std::string large_ = "<rpc>" + std::string(300000, 'x') + "</rpc>";
};

} // namespace

TEST_F(Transport, FindsFramesHoweverTheyArrive) {
    const std::string a = frame_of("<a/>"), b = frame_of("<b/>"), mark = a.substr(0, 4);
    const std::string zeros(12, '\0'), longest = header_of(CONF_MSG_MAX_LENGTH);
    const std::string longer = header_of(CONF_MSG_MAX_LENGTH + 1), endless = header_of(UINT32_MAX);
    const std::array<std::string, 4> cases[] = {
        {a + b + header_of(0) + a, "<a/><b/>no XML<a/>", "",
         "Translate rpc message to xml dom tree failed."},
        {"abc" + a + "d" + b, "<a/><b/>", "", ""},
        {std::string(2000, 'x') + mark.substr(0, 3) + a, "<a/>", "", ""},
        {"abcdefghijklmnopqrstuvwxyz", "", "opqrstuvwxyz", ""},
        {"abcdefghijkl" + mark, "", "efghijkl" + mark, ""},
        {"a" + longest + "a", "", longest + "a", ""},
        {zeros + zeros, "", zeros, ""}, // no header, though its length would be 0
        {zeros + a, "<a/>", "", ""},
        {"ab" + longer + a, "<a/>", "", "Message from pelmd is too long(134217729 bytes)."},
        {endless, "", endless.substr(1), "Message from pelmd is too long(4294967295 bytes)."},
    };
    for (const auto& [bytes, bodies, rest, errors] : cases)
        for (const std::size_t piece : {bytes.size(), std::size_t{1}}) {
            std::string found;
            for (std::size_t at = 0; at < bytes.size(); at += piece) {
                daemon_.send(bytes.substr(at, piece));
                for (std::string body; !(body = take()).empty();)
                    found += body;
            }
            EXPECT_EQ(found, bodies) << bytes;
            EXPECT_EQ(left() + log(), rest + errors) << bytes;
            conf_buffer_flush(context()->recv_buf);
        }
}

TEST_F(Transport, AFailureToReceiveEmptiesTheBufferAndTheEndDoesNot) {
    const std::string frame = frame_of("<a/>");
    daemon_.send(frame + std::string(2000, 'x'));
    for (const auto& [which, report] :
         {std::pair{call::read, "Read message from pelmd failed(Cannot allocate memory)."},
          {call::mremap,
           "INFO - Read message from pelmd(1024 bytes).; Cache receive message failed."}}) {
        receive(header_of(5000) + std::string(4000, 'x')); // nearly fills the page
        const fault one(which, ENOMEM);
        bool_t ready = 1;
        EXPECT_EQ(_recv_message(plugin(), &ready), -1);
        EXPECT_EQ(after(std::to_string(ready)), std::string("0") + report);
    }
    EXPECT_EQ(after(take()), "xxxxxxxxxxxxINFO - Read message from pelmd(992 bytes).");
    daemon_.hang_up();
    EXPECT_EQ(after(take()), "xxxxxxxxxxxx");
}

TEST_F(Transport, WritesOneFrameAtATimeAndAsFarAsTheSocketTakesIt) {
    context()->rpc_id = UINT16_MAX;
    EXPECT_EQ(queue(large_) + queue("<b/>"), 0);
    EXPECT_EQ(_send_message(plugin()) + _send_message(plugin()), 0); // and now it is full
    const u32_t sent = context()->send_pos;
    {
        const fault broken(call::write, EIO);
        EXPECT_EQ(_send_message(plugin()), -1);
    }
    EXPECT_EQ(log(true),
              "INFO - Send message to pelmd.; Send message to pelmd failed(Input/output error).");
    EXPECT_EQ(context()->send_pos, sent);
    std::string arrived = read_exactly(daemon_.fd(), sent);
    for (u32_t done = sent; done != 0; done = context()->send_pos) {
        EXPECT_EQ(context()->rpc_id, UINT16_MAX);
        EXPECT_EQ(_send_message(plugin()), 0);
        const std::size_t end = context()->send_pos != 0 ? context()->send_pos : large_.size() + 12;
        arrived += read_exactly(daemon_.fd(), end - done);
    }
    EXPECT_EQ(arrived, frame_of(large_, UINT16_MAX - 1));
    EXPECT_EQ(left(), frame_of("<b/>", UINT16_MAX - 1));
    EXPECT_EQ(context()->rpc_id, 1);
}

TEST_F(Transport, AFrameThatCannotBeQueuedLeavesTheQueueAsItWas) {
    for (const auto& [room, part] : {std::pair{20u, "body"}, {10u, "header"}}) { // in a page
        EXPECT_EQ(queue("<a>" + std::string(4087 - 12 - 7 - room, 'x') + "</a>"), 0);
        const std::string before = left();
        const fault no_memory(call::mremap, ENOMEM);
        EXPECT_EQ(queue("<longer-than-it/>"), -1);
        EXPECT_EQ(left() + log(), before + "Append rpc message " + part + " to buffer failed.");
        conf_buffer_flush(context()->send_buf);
    }
}

TEST_F(Transport, ARequestTakesItsAnswerAndLeavesWhatIsBehind) {
    const std::string behind = frame_of("<rpc/>") + "abc";
    daemon_.will_answer(frame_of("<rpc><id>3</id></rpc>") + frame_of("no XML") +
                        frame_of("<reply/>") + answer("<result/>", 2) + behind);
    const fault interrupted(call::epoll_wait, EINTR);
    EXPECT_EQ(request("<rpc/>"), reply("<result/>", 2));
    EXPECT_EQ(left() + text("%d %d", context()->rpc_id, last_wait_ms()), behind + "3 30000");
    EXPECT_EQ(rows(";" + log(true), ';'), rows(R"(
        INFO - Send message to pelmd.
        INFO - Syn send rpc on send evt msg_id:2, ret:0
        INFO - Syn send rpc on recv evt msg_id:2. ret:0
        INFO - Syn send rpc on send evt msg_id:2, ret:0
        INFO - Read message from pelmd(138 bytes).
        INFO - Syn send rpc on recv evt, ready is 1
        INFO - Syn send rpc on recv evt, ready is 1
        Translate rpc message to xml dom tree failed.
        INFO - Syn send rpc on recv evt, ready is 1
        INFO - Syn send rpc on recv evt, ready is 1
        INFO - Syn send rpc on recv evt msg_id:2. ret:0)"));
}

TEST_F(Transport, KnowsNoIdBeforeTheSocketCanBeWritten) {
    while (send(context()->sock, large_.data(), 1000, 0) > 0) {
    }
    daemon_.fall_asleep();
    daemon_.send(frame_of("<reply/>") + answer("<result/>", 2));
    EXPECT_TRUE(after(request("<rpc/>"))
                    .ends_with("ready is 0; INFO - Syn send rpc on recv evt msg_id:0. ret:0; Epoll "
                               "wait failed(timeout)."));
}

TEST_F(Transport, MovesLargeFramesBothWays) {
    daemon_.will_answer(answer(large_, 2));
    EXPECT_EQ(request(large_), reply(large_, 2));
    EXPECT_EQ(respond(large_), "sent");
    EXPECT_EQ(daemon_.received(), large_ + large_);
    EXPECT_EQ(text("%d %d", context()->rpc_id, last_wait_ms()), "4 15000");
    daemon_.fall_asleep(); // so that both are given up when partly written
    receive("abc");
    EXPECT_TRUE(after(respond(large_)).starts_with("abcINFO - Send message to pelmd.; "));
    EXPECT_EQ(after(request(large_)), "Epoll wait failed(timeout).");
    EXPECT_EQ(context()->rpc_id, 4);
}

TEST_F(Transport, AFailedWaitDropsTheQueueAndForARequestWhatWasReceivedToo) {
    const call calls[] = {call::epoll_create1, call::epoll_ctl, call::epoll_wait, call::write};
    const call* which = calls;
    for (const auto& [report, more_of_request] : table<2>(R"(
        Create epoll fd failed(Cannot allocate memory).        |
        Add socket to epoll fd failed(Cannot allocate memory). |
        Epoll wait failed(Cannot allocate memory).             |
        Send message to pelmd failed(Cannot allocate memory).  |; INFO - Syn send rpc on send evt msg_id:2, ret:4294967295)")) {
        receive("abc");
        for (const bool is_request : {false, true}) {
            const fault one(*which, ENOMEM);
            EXPECT_EQ(after(is_request ? request("<rpc/>") : respond("<reply/>")),
                      (is_request ? "" : "abc") + report + (is_request ? more_of_request : ""));
        }
        ++which;
    }
    daemon_.send("abc");
    const fault broken(call::read, EIO);
    EXPECT_TRUE(after(request("<rpc/>"))
                    .ends_with("; Read message from pelmd failed(Input/output error).; INFO - Syn "
                               "send rpc on recv evt msg_id:2. ret:4294967295"));
}

TEST_F(Transport, AHangUpBeatsTheAnswerThatComesWithIt) {
    daemon_.send(answer("<result/>", 2));
    ASSERT_EQ(shutdown(daemon_.fd(), SHUT_WR), 0);
    EXPECT_EQ(after(request("<rpc/>")), "An error epoll event occur(0x2005).");
    receive("abc");
    EXPECT_EQ(after(respond("<reply/>")), "abcAn error epoll event occur(0x2004).");
    daemon_.hang_up();
    EXPECT_EQ(after(request("<rpc/>")), "An error epoll event occur(0x2015).");
}

TEST_F(Transport, APlainRequestTellsWhatTheDaemonThoughtOfIt) {
    for (const auto& [outcome, report] : table<2>(R"(
        <result><x/></result>                    |
        <error><message>%n&lt;</message></error> | Pelmd reply error(%n<) for plugin ntp rpc.
        <error/>                                 | Pelmd reply error((null)) for plugin ntp rpc.
        <x/>                                     | Invalid reply message(without <error> and <result>).; Parse reply for plugin ntp rpc failed.)")) {
        daemon_.will_answer(answer(outcome, context()->rpc_id));
        EXPECT_EQ(with("<rpc/>", _plugin_single_rpc_send), report.empty() ? 0 : -1);
        EXPECT_EQ(log(), report);
    }
}

TEST_F(Transport, AnAnswerTakesTheErrorAlongInEveryCase) {
    for (const auto& [code, message, id, body] : table<4>(R"(
        5  | a<        | 65535 | <reply><error><code>5</code><message>a&lt;</message></error><id>65535</id></reply>
        -1 | default   | 1     | <reply><error><code>-1</code><message>Service process failed.</message></error><id>1</id></reply>
        -3 |           | 2     | <reply><error><code>-3</code><message/></error><id>2</id></reply>
        0  | forgotten | 3     | <reply><result/><id>3</id></reply>
        5  | forgotten | 0     |)")) {
        context()->err_code = std::stoi(code);
        context()->err_msg = message == "default" ? default_error()
                             : message.empty()    ? nullptr
                                                  : strdup(message.c_str());
        EXPECT_EQ(_plugin_single_reply_send(plugin(), static_cast<u32_t>(std::stoi(id))),
                  body.empty() ? -1 : 0);
        EXPECT_EQ(daemon_.received(), body);
        EXPECT_TRUE(context()->err_code == 0 && context()->err_msg == nullptr);
    }
    const auto respond = [] { (void)_plugin_single_reply_send(plugin(), 1); };
    EXPECT_EQ(logs_without_memory([&] { context()->err_code = 5, respond(); }), rows(R"(
        Create <error> node failed.
        Create <code> node failed.
        Create <message> node failed.
        Build reply message failed.; Build reply message failed.
        Dump rpc node failed.; Send reply message to pelmd failed.)"));
    EXPECT_EQ(logs_without_memory(respond)[0], "Create <result> node failed.");
}

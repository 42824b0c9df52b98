// Frames over a plugin's connection, and the two waits that the rest is built on.
#include "support/plugin.h"

#include "conf_plugin/context.h"
#include "conf_plugin/exchange.h"
#include "conf_plugin/registry.h"
#include "conf_plugin/transport.h"

#include <chrono>

using namespace conf;

namespace {

class Transport : public PluginTest {
protected:
    Transport() { start(false); }

    // The body at the front of the receive buffer after a read, if there is a whole one.
    std::string take() {
        bool_t ready = 7;
        EXPECT_EQ(_recv_message(plugin(), &ready), 0);
        if (!ready)
            return "";
        const unique_node root{plugin_parse_message(&context()->recv_buf)};
        return root ? text_of(root.get()) : "no XML";
    }
    std::string respond(const std::string& text) {
        const unique_node reply{nodes_of(text)};
        return _syn_send_reply(plugin(), reply.get()) == 0 ? "sent" : "";
    }
    std::string request(const std::string& text) {
        const unique_node rpc{nodes_of(text)};
        xmlNode* answered = rpc.get(); // which does not count
        const unique_node reply{_syn_send_rpc(plugin(), rpc.get(), &answered) == 0 ? answered
                                                                                   : nullptr};
        return text_of(reply.get());
    }
    void receive(std::string bytes) {
        conf_buffer_append(&context()->recv_buf, bytes.data(), static_cast<int>(bytes.size()));
    }
    // The result of an operation, what it left in both buffers, and what was logged.
    static std::string after(const std::string& result) {
        EXPECT_EQ(context()->send_pos, 0u);
        std::string bytes;
        for (const conf_buffer_t* buf : {context()->recv_buf, context()->send_buf}) {
            bytes.append(buf->buf, buf->buf + buf->used);
            EXPECT_EQ(std::count(buf->buf + buf->used, buf->buf + buf->total, '\0'),
                      buf->total - buf->used); // what was there is wiped
        }
        return result + bytes + log();
    }
    static conf_plugin_data* plugin() { return get_plugin_from_hash(); }

    // Too large for two writes, one read and one page.
    const std::string large_ = "<rpc>" + std::string(700000, 'x') + "</rpc>";
};

} // namespace

TEST_F(Transport, FindsFramesHoweverTheyArrive) {
    const std::string a = frame_of("<a/>"), b = frame_of("<b/>"), mark = a.substr(0, 4);
    const std::string zeros(12, '\0'), longest = header_of(CONF_MSG_MAX_LENGTH);
    const std::string longer = header_of(CONF_MSG_MAX_LENGTH + 1), endless = header_of(UINT32_MAX);
    const std::pair<std::string, std::string> cases[] = {
        {a + b + header_of(0) + a,
         "<a/><b/>no XML<a/>Translate rpc message to xml dom tree failed."},
        {"abc" + a + "d" + b, "<a/><b/>"},
        {std::string(2000, 'x') + mark.substr(0, 3) + a, "<a/>"},
        {"abcdefghijkl" + mark, "efghijkl" + mark},
        {"a" + longest + "a", longest + "a"},
        {zeros + zeros, zeros}, // no header, though its length would be 0
        {zeros + a, "<a/>"},
        {"ab" + longer + a, "<a/>Message from pelmd is too long(134217729 bytes)."},
        {endless, endless.substr(1) + "Message from pelmd is too long(4294967295 bytes)."},
    };
    for (const auto& [bytes, expected] : traced(cases))
        for (const std::size_t piece : {bytes.size(), std::size_t{1}}) {
            std::string found;
            for (std::size_t at = 0; at < bytes.size(); at += piece) {
                daemon_.send(bytes.substr(at, piece));
                for (std::string body; !(body = take()).empty();)
                    found += body;
            }
            EXPECT_EQ(after(found), expected) << bytes;
            conf_buffer_flush(context()->recv_buf);
        }
}

TEST_F(Transport, AFailureToReceiveEmptiesTheBufferAndTheEndDoesNot) {
    daemon_.send(frame_of("<a/>") + std::string(2000, 'x'));
    for (const auto& [failing, report] : traced(std::vector{
             std::pair{call::read, "0Read message from pelmd failed(Cannot allocate memory)."},
             {call::mremap, "0Cache receive message failed."}})) {
        receive(header_of(5000) + std::string(4000, 'x')); // nearly fills the page
        const fault one(failing, ENOMEM);
        bool_t ready = 1;
        EXPECT_EQ(_recv_message(plugin(), &ready), -1);
        EXPECT_EQ(after(std::to_string(ready)), report);
    }
    daemon_.hang_up();
    EXPECT_EQ(after(take()), "xxxxxxxxxxxx");
}

TEST_F(Transport, WritesOneFrameAtATimeAndAsFarAsTheSocketTakesIt) {
    for (const std::string& frame : {large_, "<b/>"s})
        EXPECT_EQ(_cache_message(plugin(), unique_node{nodes_of(frame)}.get()), 0);
    EXPECT_EQ(_send_message(plugin()), 0);
    EXPECT_EQ(_send_message(plugin()), 0); // and now it is full
    while (context()->send_pos != 0) {
        EXPECT_EQ(next_id(), 2);
        EXPECT_EQ(daemon_.received(), ""); // of a frame that is not whole
        EXPECT_EQ(_send_message(plugin()), 0);
    }
    EXPECT_EQ(daemon_.received(), large_);
    EXPECT_EQ(after(text("%d", next_id())), "3" + frame_of("<b/>", 1));
}

TEST_F(Transport, KnowsNoIdBeforeTheSocketCanBeWritten) {
    while (send(context()->sock, large_.data(), 1000, 0) > 0) {
    }
    daemon_.fall_asleep();
    daemon_.send(frame_of("<reply/>") + answer("<result/>", 2));
    EXPECT_EQ(after(request("<rpc/>")), "Epoll wait failed(timeout).");
}

TEST_F(Transport, MovesLargeFramesBothWays) {
    daemon_.will_answer(answer(large_, 2));
    EXPECT_EQ(request(large_), reply(large_, 2));
    EXPECT_EQ(respond(large_), "sent");
    EXPECT_EQ(daemon_.received(), large_ + large_);
    EXPECT_EQ(text("%d %d", context()->rpc_id, last_wait_ms()), "4 15000");
    EXPECT_EQ(context()->recv_buf->total, 4088); // their pages went back
    EXPECT_EQ(context()->send_buf->total, 4088);
    daemon_.fall_asleep(); // so that both are given up when partly written
    receive("abc");
    EXPECT_EQ(after(respond(large_)), "abcEpoll wait failed(timeout).");
    EXPECT_EQ(after(request(large_)), "Epoll wait failed(timeout).");
}

TEST_F(Transport, AHangUpBeatsTheAnswerThatComesWithIt) {
    daemon_.send(answer("<result/>", 2));
    daemon_.finish();
    EXPECT_EQ(after(request("<rpc/>")), "An error epoll event occur(0x2005).");
    receive("abc");
    EXPECT_EQ(after(respond("<reply/>")), "abcAn error epoll event occur(0x2004).");
}

TEST_F(Transport, AWaitEndsWhenItsTimeIsOverWhateverSignalsCome) {
    std::vector<int> limits;
    observe([&limits](call which) {
        if (which != call::epoll_wait)
            return;
        limits.push_back(last_wait_ms());
        const auto start = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(20)) {
        }
    });
    const fault interrupted(call::epoll_wait, EINTR);
    EXPECT_EQ(after(request("<rpc/>")), "Epoll wait failed(timeout).");
    ASSERT_EQ(limits.size(), 3u); // interrupted, ready to be written, out of time
    EXPECT_LE(limits[2], 30000 - 20);
    EXPECT_GT(limits[2], 0);
    EXPECT_EQ(last_wait_ms(), 30000); // anew, since an event came
}

TEST_F(Transport, ARequestAnsweredBeforeItIsOutHasUsedItsId) {
    daemon_.fall_asleep();
    daemon_.send(answer("<error/>", 2));
    EXPECT_EQ(request(large_), reply("<error/>", 2));
    EXPECT_EQ(next_id(), 3);
    EXPECT_GT(context()->send_pos, 0u);
    EXPECT_EQ(daemon_.received(), ""); // no whole frame yet, but the socket has room again
    daemon_.send(answer("<error/>", 3));
    EXPECT_EQ(request(large_), reply("<error/>", 3)); // behind the rest of the first
    EXPECT_EQ(next_id(), 4);
    daemon_.wake_up();
    EXPECT_EQ(respond("<reply/>"), "sent");
    EXPECT_EQ(daemon_.received(), large_ + large_ + "<reply/>");
    daemon_.will_answer(answer("<error/>", 2) + answer("<error/>", 3) + answer("<result/>", 5));
    EXPECT_EQ(request("<rpc/>"), reply("<result/>", 5));
    EXPECT_EQ(after(text("%d", next_id())), "6");
}

TEST_F(Transport, ARequestGivenUpWhenPartlyWrittenHasUsedItsId) {
    daemon_.fall_asleep();
    EXPECT_EQ(after(request(large_)), "Epoll wait failed(timeout).");
    EXPECT_EQ(next_id(), 3);
    (void)daemon_.received(); // the beginning of a frame, behind which no other can be told
    context()->rpc_id = UINT16_MAX;
    EXPECT_EQ(after(request(large_)), "Epoll wait failed(timeout).");
    EXPECT_EQ(next_id(), 1);
}

TEST_F(Transport, SaysWhyAFrameCannotBeQueued) {
    const std::pair<u32_t, std::string> cases[] = {
        {4080, "Append rpc message header to buffer failed."},
        {4070, "Append rpc message body to buffer failed."}};
    for (const auto& [used, report] : traced(cases)) {
        std::string filling(used, 'x');
        conf_buffer_append(&context()->send_buf, filling.data(), static_cast<int>(used));
        const fault no_memory(call::mremap, ENOMEM);
        EXPECT_EQ(respond("<reply>no room</reply>"), "");
        const fault nor_for_a_request(call::mremap, ENOMEM);
        EXPECT_EQ(request("<rpc>no room</rpc>"), "");
        EXPECT_STREQ(context()->send_buf->buf, filling.c_str());
        EXPECT_EQ(log(), report + "; " + report);
        conf_buffer_remove(context()->send_buf, 0, static_cast<int>(used));
    }
}

TEST_F(Transport, AnAnswerCarriesTheErrorRecordedOnce) {
    const std::string result = reply("<result/>", 9);
    _plugin_set_error(plugin(), -5, "no");
    EXPECT_EQ(_plugin_single_reply_send(plugin(), 9), 0);
    EXPECT_EQ(_plugin_single_reply_send(plugin(), 9), 0);
    EXPECT_EQ(daemon_.received(),
              reply("<error><code>-5</code><message>no</message></error>", 9) + result);
    _plugin_set_error(plugin(), 5, "lost");
    EXPECT_EQ(_plugin_single_reply_send(plugin(), 0), -1);
    EXPECT_EQ(_plugin_single_reply_send(plugin(), 9), 0);
    EXPECT_EQ(daemon_.received(), result);
}

TEST_F(Transport, TellsTheStepsOfARequest) {
    daemon_.will_answer(answer("<result/>", 2));
    EXPECT_EQ(request("<rpc/>"), reply("<result/>", 2));
    EXPECT_THAT(plugin_log(), ElementsAre("INFO - Send message to pelmd.",
                                          "INFO - Syn send rpc on send evt msg_id:2, ret:0",
                                          "INFO - Syn send rpc on recv evt msg_id:2. ret:0",
                                          "INFO - Syn send rpc on send evt msg_id:2, ret:0",
                                          "INFO - Read message from pelmd(46 bytes).",
                                          "INFO - Syn send rpc on recv evt, ready is 1",
                                          "INFO - Syn send rpc on recv evt msg_id:2. ret:0"));
}

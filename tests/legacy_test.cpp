// Plugins of the older API: callbacks without a session, answers in their own shapes, a loop that
// waits.
#include "support/plugin.h"

using namespace conf;

namespace {

char name[] = "ntp";
char path[] = "/a";
const std::string kick_off = frame_of(rpc("kickoff", "", 9));

const std::string failed =
    "<error><code>4</code><message>Service process failed.</message></error>";

// A request, the nodes that its callback hands back, the callback's arguments, and the answer.
const std::array<std::string, 5> calls[] = {
    {"publish", R"(<type>config</type><callback>1</callback>
        <info><oper-type>16385</oper-type><more-flag>1</more-flag>
        <priority>2</priority><path>/a[b="c"]</path></info>)",
     "", "call 16385 1 2 /a[b=c];", "<result/>"},
    {"subscribe", R"(<callback>2</callback><path>/a[b="c"]</path><filter>f</filter>)", "<s/>",
     R"(call /a[b="c"] f out;)", "<result><data><s/></data></result>"},
    {"publish", "<type>operate</type><callback>3</callback><info><i/></info>", "<data><a/>t</data>",
     "call <i/> out;", "<result><a/>t</result>"},
    {"publish", "<type>operate</type><callback>3</callback><info><i/></info>", "<data/>",
     "call <i/> out;", R"(<error><code>-1</code>
        <message>Copy &lt;data&gt; xml node failed.</message></error>)"},
};

class Legacy : public PluginTest {
protected:
    Legacy() {
        config_callback_t configs[] = {{path, 1, callback}, {}};
        status_callback_t statuses[] = {{path, callback}, {}};
        rpc_callback_t rpcs[] = {{path, callback}, {}};
        conf_plugin_info_t info{configs, statuses, rpcs, callback, nullptr};
        daemon_.will_answer(answer("<result/>", 1));
        handle_ = conf_plugin_init(name, &info);
        daemon_.will_answer(answer("<result/>", 2));
        EXPECT_EQ(conf_start_session(handle_, ACTIVATE_WITH_CFGR), 0);
        (void)plugin_log();
    }

    conf_context_t* handle_;
};

} // namespace

TEST_F(Legacy, RegistersItsTablesAsTheyStand) {
    EXPECT_EQ(static_cast<void*>(handle_), context());
    EXPECT_EQ(handle_->stub, 1);
    EXPECT_EQ(conf_plg_get_hconf(nullptr), context()->sock);
    EXPECT_TRUE(daemon_.received().ends_with(joined(R"(
        <config-subscribe>
        <subscriber><path>/a</path><priority>1</priority><callback>1</callback></subscriber>
        </config-subscribe>
        <status-publish>
        <publisher><path>/a</path><callback>2</callback></publisher>
        </status-publish>
        <operate-subscribe>
        <subscriber><path>/a</path><callback>3</callback></subscriber>
        </operate-subscribe></params><id>1</id></rpc>)") +
                                             rpc("activate", "<with-cfgr/>", 2)));
}

TEST_F(Legacy, CallsAndAnswersInItsOwnShapes) {
    const int recoveries = conf_recovery_status();
    for (const auto& [method, params, nodes, called, outcome] : traced(calls)) {
        callbacks.nodes = nodes;
        for (const int result : {0, 4}) {
            callbacks.act = [result] { return result; };
            (void)daemon_.received();
            daemon_.send(frame_of(rpc(method, joined(params), 9)));
            EXPECT_EQ(conf_run(nullptr, 0), 0);
            EXPECT_EQ(std::exchange(callbacks.calls, ""), called);
            EXPECT_EQ(daemon_.received(), reply(result == 0 ? joined(outcome) : failed, 9));
        }
    }
    EXPECT_EQ(conf_recovery_status(), recoveries);
    EXPECT_EQ(log(), "");
}

TEST_F(Legacy, AsksForEitherConfigurationAndChangesIt) {
    const conf::unique_node data{nodes_of("<v/>")};
    (void)daemon_.received();
    daemon_.will_answer(answer("<result><data><now/></data></result>"));
    EXPECT_EQ(text_of(unique_node{conf_get_config(path)}.get()), "<now/>");
    daemon_.will_answer(answer("<result><data><then/></data></result>"));
    EXPECT_EQ(text_of(unique_node{conf_get_old_config(path)}.get()), "<then/>");
    daemon_.will_answer(answer("<result/>"));
    EXPECT_EQ(conf_set_config(path, data.get()), 0);
    EXPECT_EQ(daemon_.received(), rpc("pull", "<path>/a</path>", 3) +
                                      rpc("pull", "<old/><path>/a</path>", 4) +
                                      rpc("push", "<path>/a</path><data><v/></data>", 5));
}

TEST_F(Legacy, TheLoopBeginsWithWhatIsLeftAndServesUntilTheConnectionEnds) {
    daemon_.will_answer(answer("<result/>") + kick_off);
    EXPECT_EQ(conf_get_config(path), nullptr);
    callbacks.act = [this] { // after the frame that it does not see yet
        if (callbacks.calls == "call;")
            daemon_.will_answer(kick_off);
        return 0;
    };
    const fault interrupted(call::epoll_wait, EINTR, 1); // behind the wait for the first answer
    EXPECT_EQ(conf_run(handle_, 1), 0);
    EXPECT_EQ(callbacks.calls, "call;call;");
    EXPECT_EQ(last_wait_ms(), -1);
    EXPECT_TRUE(log().starts_with("Epoll wait failed("));
    daemon_.send(kick_off);
    daemon_.finish();
    EXPECT_EQ(conf_run(handle_, 1), 0);
    EXPECT_EQ(callbacks.calls, "call;call;");
    EXPECT_EQ(log(), "An error epoll event occur(0x2001).");
    context()->bit_activate = 0; // so what is left stays without a word
    conf_buffer_append(&context()->recv_buf, name, 1);
    EXPECT_EQ(conf_run(handle_, 1), 0);
    EXPECT_EQ(log(), "An error epoll event occur(0x2001).");
}

TEST_F(Legacy, ReadsAndWritesValues) {
    const unique_node node{nodes_of("<x/>")};
    conf_val_t val{node.get()};
    for (const auto& [old, outcome, data] : traced(table<3>(R"(
               | <result><data><a/>t<b/></data></result> | <data><a/>t<b/></data>
               | <x/>                                    |
        <old/> | <result><data><a/></data></result>      | <data><a/></data>)"))) {
        (void)daemon_.received();
        const std::string request = rpc("pull", old + "<path>/a</path>");
        const auto get = old.empty() ? conf_plg_get_value : conf_plg_get_old_value;
        daemon_.will_answer(answer(outcome));
        EXPECT_EQ(get(handle_, path, &val), 0);
        EXPECT_EQ(daemon_.received(), request);
        EXPECT_EQ(text_of(val.data), data);
        xmlFreeNode(std::exchange(val.data, node.get()));
    }
    std::string requests = rpc("pull", "<old/><path>/a</path>");
    daemon_.will_answer(answer("<result/>"));
    EXPECT_EQ(conf_get_old_config(path), nullptr);
    requests += rpc("push", "<path>/a</path><data><x/></data>");
    daemon_.will_answer(answer("<result/>"));
    EXPECT_EQ(conf_plg_set_value(handle_, 7, path, &val), 0);
    EXPECT_EQ(daemon_.received(), requests);
}

TEST_F(Legacy, RepliesThroughAHookAlone) {
    pelmd_plugin_callback_t hooks{};
    EXPECT_EQ(conf_plugin_init_api(&hooks), 0);
    EXPECT_EQ(conf_send_reply(6, nullptr, nullptr), -1);
    get_plugin_hooks()->conf_plugin_reply = callback;
    callbacks.act = [] { return 3; };
    EXPECT_EQ(conf_send_reply(6, nullptr, nullptr), 3);
    EXPECT_EQ(callbacks.calls, "call 6  ;");
    EXPECT_EQ(log(), "WARN: conf_send_reply is obsolete.; WARN: conf_send_reply is obsolete.");
}

// The daemon's requests: which callback each reaches, with what, and what it is answered with.
#include "support/plugin.h"

#include <optional>
#include <sys/wait.h>

using namespace conf;

namespace {

const char* shown(const char* text) { return text != nullptr ? text : "-"; }

int on_config(int sid, int oper, int more, int priority, const char* path) {
    return callbacks.run(text("config %d %d %d %d %s", sid, oper, more, priority, shown(path)));
}
int on_status(int sid, const char* path, const char* filter, xmlNode** out) {
    return callbacks.run(text("status %d %s %s", sid, shown(path), shown(filter)), out);
}
int on_operate(int sid, xmlNode* input, xmlNode** out) {
    return callbacks.run(text("operate %d ", sid) + text_of(input), out);
}
void on_kick_off() { (void)callbacks.run("kick-off"); }

char operation[] = "/o";

class Dispatch : public PluginTest {
protected:
    Dispatch() { serve(); }

    // Slots: 0 kick-off, 1 configuration, 2 empty, 3 status, 4 operation.
    void serve() {
        econf_config_cb_info_t configs[] = {{"/c", 1, on_config}, {"/d", 1, nullptr}, {}};
        econf_status_cb_info_t statuses[] = {{"/s", on_status}, {}};
        econf_operate_cb_info_t operations[] = {{operation, on_operate}, {}};
        start({configs, statuses, operations, on_kick_off});
    }
    std::string run(const std::string& bytes) {
        callbacks.calls.clear();
        daemon_.send(bytes);
        econf_plugin_run();
        return daemon_.received();
    }
    // The answer to a request, without its envelope.
    std::string outcome(const std::string& method, const std::string& params) {
        return std::regex_replace(run(frame_of(rpc(method, params, 9))), envelope_, "$1");
    }

    const std::regex envelope_{"<reply>(.*)<id>9</id></reply>"};
    // A request to each kind of callback.
    const std::vector<std::array<std::string, 2>> requests_ = table<2>(R"(
        publish   | <type>config</type><callback>1</callback><info><path>/a</path></info>
        publish   | <type>operate</type><callback>4</callback><info/>
        subscribe | <callback>3</callback><path>/a</path>
        kickoff   |)");
};

std::string error(int code, const std::string& message) {
    return text("<error><code>%d</code><message>%s</message></error>", code, message.c_str());
}

} // namespace

TEST_F(Dispatch, CallsWhatARequestNames) {
    callbacks.nodes = "<o/>t";
    for (const auto& [method, params, calls, expected] : table<4>(R"(
        publish   | <path/><callback>1</callback><info><priority>-5</priority><x>7</x><path>/a[b="c"]</path><more-flag>1</more-flag><oper-type>16385x</oper-type></info><type>config</type><session-id>7</session-id> | config 7 16385 1 -5 /a[b=c]; | <result/>
        publish   | <type>config</type><callback>1</callback><info/> | config -1 0 0 0 -; | <result/>
        publish   | <type>config</type><callback>1</callback><info><path>/a</path><oper-type>1</oper-type><oper-type/><path>/b</path></info> | config -1 1 0 0 /b; | <result/>
        publish   | <session-id>x</session-id><type>config</type><type>operate</type><session-id/><callback>9</callback><info><a/></info><callback>4</callback><callback/><info><i/>t</info> | operate 0 <i/>t; | <result><o/>t</result>
        subscribe | <filter>f</filter><path>/a[b="&amp;"]</path><session-id>3</session-id><callback>3</callback> | status 3 /a[b="&"] f; | <result><path>/a[b="&amp;"]</path><data><o/>t</data></result>
        subscribe | <callback>3</callback> | status -1 - -; | <result><path/><data><o/>t</data></result>
        kickoff   | | kick-off; | <result/>)")) {
        EXPECT_EQ(outcome(method, params), expected);
        EXPECT_EQ(callbacks.calls, calls);
    }
    callbacks.nodes.clear();
    EXPECT_EQ(outcome("publish", requests_[1][1]), "<result><ok/></result>");
    EXPECT_EQ(outcome("subscribe", requests_[2][1]), "<result><path>/a</path><data/></result>");
}

TEST_F(Dispatch, RefusesWhatItCannotServe) {
    for (const auto& [method, params, message] : table<3>(R"(
        publish   |                                                            | Error publish rpc message.
        publish   | <type>config</type>                                        | Error publish rpc message.
        publish   | <type/><info/>                                             | Error publish rpc message.
        publish   | <type>Config</type><info/>                                 | Unknown publish type.
        publish   | <type>config</type><info/>                                 | Cann't find the callback function.
        publish   | <type>config</type><info/><callback>-1</callback>          | Cann't find the callback function.
        publish   | <type>config</type><info/><callback>0</callback>           | Cann't find the callback function.
        publish   | <type>config</type><info/><callback>2</callback>           | Cann't find the callback function.
        publish   | <type>config</type><info/><callback>3</callback>           | Cann't find the callback function.
        publish   | <type>config</type><info/><callback>4294967297</callback>  | Cann't find the callback function.
        publish   | <type>operate</type><info/><callback>1</callback>          | Cann't find the callback function.
        publish   | <type>operate</type><info/><callback>4294967300</callback> | Callback index is invalid.
        publish   | <type>operate</type><info/><callback>5</callback>          | Callback index is invalid.
        subscribe |                                                            | Callback index is invalid.
        subscribe | <callback>5</callback>                                     | Callback index is invalid.
        subscribe | <callback>4294967299</callback>                            | Callback index is invalid.
        subscribe | <callback>4</callback>                                     | Cann't find the callback function.
        %n&lt;    |                                                            | Method &lt;%n&lt;&gt; doesn't be supported)")) {
        EXPECT_EQ(outcome(method, params), error(-1, message)) << params;
        EXPECT_EQ(callbacks.calls, "") << params;
    }
    EXPECT_TRUE(log().ends_with("; WARN - Receive an unknown rpc method %n<."));
}

TEST_F(Dispatch, AnswersAFailureWithWhatTheCallbackRecordedOrElseItsResult) {
    callbacks.nodes = "<o/>"; // which are freed
    for (std::size_t i = 0; i < 3; ++i) {
        const auto outcome_of = [&](const std::function<int()>& act) {
            callbacks.act = act;
            return outcome(requests_[i][0], requests_[i][1]);
        };
        EXPECT_EQ(outcome_of([] { return -7; }), error(-7, "Service process failed."));
        EXPECT_EQ(
            outcome_of([] { return econf_plugin_error(4, "a"), econf_plugin_error(5, "%n<"), 1; }),
            error(5, "%n&lt;"));
        EXPECT_EQ(outcome_of([] { return econf_plugin_error(5, nullptr), 1; }),
                  error(5, "Service process failed."));
        EXPECT_EQ(outcome_of([] { return econf_plugin_error(0, "no error"), 1; }), "<result/>");
        EXPECT_TRUE(
            outcome_of([] { return econf_plugin_error(6, "left"), 0; }).starts_with("<result"));
        // A success leaves what was recorded, but that of a change.
        EXPECT_EQ(outcome_of([] { return 1; }),
                  i == 0 ? error(1, "Service process failed.") : error(6, "left"));
    }
    (void)log();
    callbacks.act = [] { return econf_plugin_error(6, "left"), 0; };
    EXPECT_EQ(outcome("kickoff", ""), "<result/>");
    EXPECT_EQ(log(), "INFO - Plugin ntp kickoff now.; WARN - Plugin kickoff have error left now.");
    EXPECT_EQ(context()->err_msg, nullptr);
}

TEST_F(Dispatch, LogsEachChangeAndCountsFailedRecoveries) {
    const int before = g_rdb_recovery_status;
    callbacks.act = [] { return 2; };
    for (const auto& [change, report] : table<2>(R"(
        <callback>1</callback><info><oper-type>1</oper-type></info>     | DEBUG - Service publish result: 2 for path:(null) oper:1 priority:0 time consumed:T seconds
        <callback>1</callback><info><oper-type>16385</oper-type></info> | DEBUG - Service publish result: 2 for path:(null) oper:16385 priority:0 time consumed:T seconds
        <callback>2</callback><info><path>/a</path></info>              | DEBUG - Cann't find the callback for path:/a oper:0 priority:0)")) {
        (void)outcome("publish", "<type>config</type>" + change);
        EXPECT_EQ(std::regex_replace(log(), std::regex("0\\.0\\d\\d"), "T"), report);
    }
    EXPECT_EQ(g_rdb_recovery_status, before + 1);
    const fault no_memory(call::strdup, ENOMEM);
    EXPECT_EQ(outcome("publish", requests_[0][1]), error(-1, "Service process failed."));
    EXPECT_EQ(log(), "Duplicated path /a failed.");
}

TEST_F(Dispatch, ServesWhateverHasArrivedInOrder) {
    const std::string first = frame_of(rpc("kickoff", "", 1));
    const std::string second = frame_of(rpc("subscribe", requests_[2][1], 2));
    EXPECT_EQ(run(first.substr(0, 20)), "");
    EXPECT_EQ(run(first.substr(20) + frame_of("no XML") +
                  frame_of("<rpc><method>kickoff</method></rpc>") + second + "abc"),
              reply("<result/>", 1) + reply("<result><path>/a</path><data/></result>", 2));
    EXPECT_EQ(callbacks.calls, "kick-off;status -1 /a -;");
    EXPECT_EQ(rows(";" + log(), ';'), rows(R"(
        INFO - Plugin ntp kickoff now.
        Translate rpc message to xml dom tree failed.
        DEBUG - Plugin ntp parse message failed.
        Invalid rpc message(without <method> or <params>).
        DEBUG - Plugin ntp parse rpc failed.)"));
    // Without an id only those are answered whose success carries something.
    std::string without_id = frame_of("<rpc><params/><method>x</method></rpc>");
    for (const auto& [method, params] : requests_)
        without_id +=
            frame_of(std::regex_replace(rpc(method, params, 9), std::regex("<id>9</id>"), ""));
    EXPECT_EQ(run(without_id), reply("<result><ok/></result>", 0) +
                                   reply("<result><path>/a</path><data/></result>", 0));
    EXPECT_TRUE(log().ends_with(
        "; INFO - Plugin ntp kickoff now.; Plugin ntp send reply for publish rpc failed."));
    context()->bit_activate = 0;
    EXPECT_EQ(run(first), "");
    EXPECT_EQ(log(), "Plugin context is not ready or not be activated.");
}

TEST_F(Dispatch, SaysWhichAnswerCouldNotBeSent) {
    for (const auto& [method, params, report] : table<3>(R"(
        publish   | <type>operate</type><callback>4</callback><info/> | Send reply message to pelmd failed.
        subscribe | <callback>3</callback>                            | Send reply message to pelmd failed.
        publish   | <type>operate</type><info/>                       | Plugin ntp send error-reply failed.
        x         |                                                   | Plugin ntp send reply for x rpc failed.)")) {
        const fault broken(call::write, EPIPE);
        EXPECT_EQ(outcome(method, params), "");
        EXPECT_TRUE(log().ends_with("; " + report));
    }
}

TEST_F(Dispatch, ACallbackMayAskTheDaemon) {
    daemon_.will_answer(answer("<result><data><x/></data></result>", 3));
    callbacks.act = [] {
        xmlNode* out = nullptr;
        EXPECT_EQ(econf_plugin_pull(0, "/a", &out), 0);
        EXPECT_EQ(text_of(out), "<x/>");
        xmlFreeNodeList(out);
        return 1;
    };
    // What waits already is dropped while the answer is waited for.
    EXPECT_EQ(run(frame_of(rpc("publish", requests_[0][1], 9)) + frame_of(rpc("kickoff", "", 10))),
              rpc("pull", "<path>/a</path>", 3) + reply(error(1, "Service process failed."), 9));
}

TEST_F(Dispatch, ACallbackMayEndThePluginAndBeginAnother) {
    callbacks.nodes = "<o/>";
    for (const bool is_again : {false, true})
        for (const auto& [method, params] : requests_) {
            callbacks.act = [&] {
                econf_plugin_error(5, "freed");
                econf_plugin_close();
                if (is_again)
                    serve();
                return 1;
            };
            const std::string request = frame_of(rpc(method, params, 9));
            EXPECT_EQ(run(request + request), "");
            EXPECT_EQ(context() != nullptr, is_again);
            if (!is_again)
                serve();
            callbacks.act = [] { return 0; };
            EXPECT_EQ(outcome("kickoff", ""), "<result/>");
        }
}

TEST_F(Dispatch, AChildThatReturnsFromACallbackAnswersNothing) {
    const conf_plugin_context_t* before = context();
    pid_t child = -1;
    callbacks.act = [&child] { return child = fork(), 0; };
    daemon_.send(frame_of(rpc("kickoff", "", 9)));
    econf_plugin_run();
    if (child == 0)
        _exit(0);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(daemon_.received(), reply("<result/>", 9));
    EXPECT_EQ(context(), before);
}

TEST_F(Dispatch, AnswersWithTheStepThatFailed) {
    std::optional<fault> no_memory;
    lines found;
    for (const auto& [method, params] : {requests_[1], requests_[2]})
        for (int skip = 0, is_hit = 1; is_hit != 0; ++skip) {
            callbacks.act = [&no_memory, skip] {
                return no_memory.emplace(call::xml, ENOMEM, skip), 0;
            };
            found.push_back(outcome(method, params));
            is_hit = no_memory->hit() ? 1 : 0;
            no_memory.reset();
        }
    found.erase(std::unique(found.begin(), found.end()), found.end());
    EXPECT_EQ(found, rows(R"(
        <error><code>-1</code><message>New &lt;result&gt; xml node failed.</message></error>
        <error><code>-1</code><message>New &lt;ok&gt; xml node failed.</message></error>
        <error><code>-1</code><message>Build reply message failed.</message></error>

        <result><ok/></result>
        <error><code>-1</code><message>New &lt;result&gt; xml node failed.</message></error>
        <error><code>-1</code><message>New &lt;path&gt; xml node failed.</message></error>
        <error><code>-1</code><message>New &lt;data&gt; xml node failed.</message></error>
        <error><code>-1</code><message>Build reply message failed.</message></error>

        <result><path>/a</path><data/></result>)"));
}

// The daemon's requests: which callback each reaches, with what, and what it is answered with.
#include "support/plugin.h"

#include "conf_plugin/context.h"

#include <sys/time.h>

namespace {

long long clock_us = 0;      // what the clock shows
long long clock_step_us = 0; // and how far it goes with each look at it

class Dispatch : public PluginTest {
protected:
    Dispatch() { start(); }

    std::string run(const std::string& bytes) {
        callbacks.calls.clear();
        daemon_.send(bytes);
        econf_plugin_run();
        return daemon_.received();
    }
    // The answer to a request: what it holds beside the id, or the code and the message of an error.
    std::string outcome(const std::string& method, const std::string& params) {
        static const std::regex reply("<reply>(.*)<id>9</id></reply>");
        static const std::regex error("<error><code>(.*)</code><message>(.*)</message></error>");
        const std::string answered = run(frame_of(rpc(method, params, 9)));
        return std::regex_replace(std::regex_replace(answered, reply, "$1"), error, "$1 $2");
    }

    // A request to each kind of callback.
    const std::vector<std::array<std::string, 2>> requests_ = table<2>(R"(
        publish   | <type>config</type><callback>1</callback><info><path>/a</path></info>
        publish   | <type>operate</type><callback>4</callback><info/>
        subscribe | <callback>3</callback><path>/a</path>
        kickoff   |)");
};

} // namespace

extern "C" int gettimeofday(timeval* now, void*) noexcept {
    clock_us += clock_step_us;
    *now = {.tv_sec = static_cast<time_t>(clock_us / 1000000),
            .tv_usec = static_cast<suseconds_t>(clock_us % 1000000)};
    return 0;
}

TEST_F(Dispatch, CallsWhatARequestNamesAndRefusesWhatItCannotServe) {
    callbacks.nodes = "<o/>t";
    for (const auto& [method, params, calls, expected] : traced(table<4>(R"(
        publish   | <path/><callback>1</callback><info><path>/x</path><priority>-5</priority><x>7</x><path>/a[b="c"]</path><more-flag>1</more-flag><oper-type>16385x</oper-type><oper-type/></info><type>config</type><session-id>7</session-id> | call 7 16385 1 -5 /a[b=c]; | <result/>
        publish   | <session-id/><type>config</type><callback>1</callback><info/> | call -1 0 0 0 (null); | <result/>
        publish   | <session-id>010</session-id><type>config</type><callback>01</callback><info><oper-type>0x10</oper-type></info> | call 10 0 0 0 (null); | <result/>
        publish   | <session-id>x</session-id><type>config</type><type>operate</type><session-id/><callback>9</callback><info><a/></info><callback>4</callback><callback/><info><i/>t</info> | call 0 <i/>t out; | <result><o/>t</result>
        subscribe | <filter>f</filter><path>/a[b="&amp;"]</path><session-id>3</session-id><callback>3</callback> | call 3 /a[b="&"] f out; | <result><path>/a[b="&amp;"]</path><data><o/>t</data></result>
        subscribe | <session-id/><callback>3</callback> | call -1 (null) (null) out; | <result><path/><data><o/>t</data></result>
        kickoff   | | call; | <result/>
        publish   | <type>config</type>                                       || -1 Error publish rpc message.
        publish   | <info/>                                                   || -1 Error publish rpc message.
        publish   | <type>Config</type><info/>                                || -1 Unknown publish type.
        publish   | <type>configs</type><info/>                               || -1 Unknown publish type.
        publish   | <type>config</type><info/>                                || -1 Cann't find the callback function.
        publish   | <type>config</type><info/><callback>0</callback>          || -1 Cann't find the callback function.
        publish   | <type>config</type><info/><callback>4294967297</callback> || -1 Cann't find the callback function.
        publish   | <type>operate</type><info/><callback>5</callback>         || -1 Callback index is invalid.
        publish   | <type>operate</type><info/><callback>1</callback>         || -1 Cann't find the callback function.
        publish   | <type>operate</type><info/><callback>0x4</callback>       || -1 Cann't find the callback function.
        publish   | <type>operate</type><info/><callback>-1</callback>          || -1 Callback index is invalid.
        publish   | <type>operate</type><info/><callback>-4294967292</callback> || -1 Callback index is invalid.
        subscribe | <callback>4</callback>                                    || -1 Cann't find the callback function.
        kicked    |                                                           || -1 Method &lt;kicked&gt; doesn't be supported
        %n&lt;    |                                                           || -1 Method &lt;%n&lt;&gt; doesn't be supported)"))) {
        EXPECT_EQ(outcome(method, params), expected);
        EXPECT_EQ(callbacks.calls, calls);
    }
    EXPECT_TRUE(log().ends_with("; WARN - Receive an unknown rpc method %n<."));
}

TEST_F(Dispatch, FindsCallbacksOfAForeignContextByTheirIndexAlone) {
    conf_plugin_context_t* const own = context();
    const std::size_t bytes = offsetof(conf_plugin_context_t, cbs) + 5 * sizeof own->cbs[0];
    void* const foreign = std::memcpy(std::malloc(bytes), own, bytes);
    get_plugin_from_hash()->plugin_ctxt = static_cast<conf_plugin_context_t*>(foreign);
    std::free(own);
    std::swap(context()->cbs[1], context()->cbs[4]);
    EXPECT_EQ(outcome("publish", "<type>config</type><callback>4</callback><info/>"), "<result/>");
    EXPECT_EQ(callbacks.calls, "call -1 0 0 0 (null);");
    EXPECT_EQ(outcome("publish", "<type>config</type><callback>0</callback><info/>"),
              "-1 Cann't find the callback function.");
}

TEST_F(Dispatch, AnswersAFailureWithWhatTheCallbackRecordedOrElseItsResult) {
    callbacks.nodes = "<o/>"; // which are freed
    for (std::size_t i = 0; i < 3; ++i) {
        const auto outcome_of = [&](int result, int code = -1, const char* message = nullptr) {
            callbacks.act = [=] {
                if (code != -1)
                    econf_plugin_error(code, message);
                return result;
            };
            return outcome(requests_[i][0], requests_[i][1]);
        };
        EXPECT_EQ(outcome_of(-7), "-7 Service process failed.");
        EXPECT_EQ(outcome_of(1, 5), "5 Service process failed.");
        EXPECT_EQ(outcome_of(1, 5, "%n<"), "5 %n&lt;");
        EXPECT_EQ(outcome_of(1, 0, "no error"), "<result/>");
        EXPECT_TRUE(outcome_of(0, 6, "left").starts_with("<result"));
        // A success leaves what was recorded, but that of a change.
        EXPECT_EQ(outcome_of(1), i == 0 ? "1 Service process failed." : "6 left");
    }
    callbacks.act = [] { return econf_plugin_error(6, "left"), 0; };
    EXPECT_EQ(outcome("kickoff", ""), "<result/>");
    EXPECT_TRUE(log().ends_with("; WARN - Plugin kickoff have error left now."));
    callbacks.act = [] { return econf_plugin_error(6, nullptr), 0; };
    EXPECT_EQ(outcome("kickoff", ""), "<result/>");
    EXPECT_EQ(log(), "");
}

TEST_F(Dispatch, LogsEachChangeAndCountsFailedRecoveries) {
    const int before = g_rdb_recovery_status;
    clock_step_us = 5000123456; // beyond what 32 bits hold; a float tells half milliseconds apart
    for (const auto& [result, oper, path] : traced(table<3>(R"(
        2 | 1     | (null)
        0 | 16385 | /a
        2 | 16385 | /a)"))) {
        callbacks.act = [number = std::stoi(result)] { return number; };
        const std::string info = "<oper-type>" + oper + "</oper-type><priority>3</priority>" +
                                 (path == "/a" ? "<path>/a</path>" : "");
        (void)outcome("publish", requests_[0][1] + "<info>" + info + "</info>");
        EXPECT_EQ(log(), text("DEBUG - Service publish result: %s for path:%s oper:%s priority:3 "
                              "time consumed:5000.124 seconds",
                              result.c_str(), path.c_str(), oper.c_str()));
    }
    EXPECT_EQ(g_rdb_recovery_status, before + 1);
    const std::string nowhere = "<type>config</type><info><path>/b</path></info>";
    (void)outcome("publish", nowhere);
    EXPECT_EQ(log(), "DEBUG - Cann't find the callback for path:/b oper:0 priority:0");
}

TEST_F(Dispatch, ServesWhateverHasArrivedInOrder) {
    const std::string kick_off = frame_of(rpc("kickoff", "", 1));
    std::string frames = frame_of("no XML") + frame_of("<rpc/>");
    for (const auto& [method, params] : requests_)
        frames += frame_of(rpc(method, params, 0));
    EXPECT_EQ(run(kick_off.substr(0, 20)), "");
    // Without an id only a success is answered that carries something.
    EXPECT_EQ(run(kick_off.substr(20) + frames + frame_of(rpc("x", "", 0))),
              reply("<result/>", 1) + reply("<result><ok/></result>", 0) +
                  reply("<result><path>/a</path><data/></result>", 0));
    EXPECT_EQ(context()->err_msg, nullptr);
    const std::string report = log();
    EXPECT_TRUE(report.starts_with("Translate rpc message to xml dom tree failed.; "
                                   "DEBUG - Plugin ntp parse message failed.; "
                                   "Invalid rpc message(without <method> or <params>).; "
                                   "DEBUG - Plugin ntp parse rpc failed.; DEBUG - Service"));
    EXPECT_TRUE(report.ends_with("; WARN - Receive an unknown rpc method x."));
    context()->bit_activate = 0;
    EXPECT_EQ(run(kick_off), "");
    EXPECT_EQ(log(), "Plugin context is not ready or not be activated.");
}

TEST_F(Dispatch, SaysWhatKeptItFromAnAnswer) {
    for (const auto& [method, params, report] : traced(table<3>(R"(
        publish   | <type>config</type>         | Send reply message to pelmd failed.; Plugin ntp send reply for publish rpc failed.
        publish   | <type>operate</type><info/> | Send reply message to pelmd failed.; Plugin ntp send error-reply failed.
        subscribe | <callback>3</callback>      | Send reply message to pelmd failed.
        subscribe | <callback>9</callback>      | Send reply message to pelmd failed.; Plugin ntp send reply for publish rpc failed.
        x         |                             | Send reply message to pelmd failed.; Plugin ntp send reply for x rpc failed.)"))) {
        const fault broken(call::write, EPIPE);
        EXPECT_EQ(outcome(method, params), "");
        EXPECT_TRUE(log().ends_with("(Broken pipe).; " + report));
    }
    const fault no_memory(call::strdup, ENOMEM);
    EXPECT_EQ(outcome("publish", requests_[0][1]), "-1 Service process failed.");
    EXPECT_EQ(log(), "Duplicated path /a failed.");
}

TEST_F(Dispatch, NeverSendsHalfAnAnswer) {
    std::set<std::string> instead; // of an answer
    for (const auto& [method, params] : traced(std::vector{requests_[1], requests_[2]}))
        for (const bool has_nodes : {false, true}) {
            callbacks.is_document = has_nodes; // so that they have to be copied
            callbacks.nodes = has_nodes ? "<o>t</o>" : "";
            callbacks.act = [] { return 0; };
            const std::string whole = outcome(method, params);
            std::optional<fault> no_memory;
            for (int skip = 0; skip == 0 || no_memory->hit(); ++skip) {
                callbacks.act = [&] { return no_memory.emplace(call::xml, ENOMEM, skip), 0; };
                const std::string answered = outcome(method, params);
                EXPECT_EQ(answered == whole, !no_memory->hit());
                instead.insert(answered == whole ? "" : answered);
            }
        }
    EXPECT_THAT(instead, ElementsAre("", "-1 Add status as a child failed.",
                                     "-1 Build reply message failed.",
                                     "-1 New &lt;data&gt; xml node failed.",
                                     "-1 New &lt;ok&gt; xml node failed.",
                                     "-1 New &lt;path&gt; xml node failed.",
                                     "-1 New &lt;result&gt; xml node failed.",
                                     "-1 add &lt;output&gt; xml node failed."));
}

TEST_F(Dispatch, ACallbackMayEndThePluginAndBeginAnother) {
    callbacks.nodes = "<o/>";
    for (const bool is_again : {false, true})
        for (const auto& [method, params] : traced(requests_)) {
            callbacks.act = [this, is_again] {
                econf_plugin_error(5, "freed");
                econf_plugin_close();
                if (is_again)
                    start();
                return 1;
            };
            const std::string request = frame_of(rpc(method, params, 9));
            EXPECT_EQ(run(request + request), "");
            EXPECT_EQ(context() != nullptr, is_again);
            if (!is_again)
                start();
        }
}

TEST_F(Dispatch, ACallbackMayInjectHooksAndEndThePlugin) {
    pelmd_plugin_callback_t hooks{};
    callbacks.act = [&hooks] {
        EXPECT_EQ(conf_plugin_init_api(&hooks), 0);
        econf_plugin_close();
        return 1;
    };
    const std::string request = frame_of(rpc("kickoff", "", 9));
    EXPECT_EQ(run(request + request), "");
    EXPECT_EQ(context(), nullptr);
    EXPECT_NE(get_plugin_hooks(), nullptr);
}

TEST_F(Dispatch, ACallbackMayRemoveTheEntryAlone) {
    conf_plugin_context_t* const left = context();
    callbacks.act = [] { return del_plugin_from_hash(), 1; };
    const std::string request = frame_of(rpc("kickoff", "", 9));
    EXPECT_EQ(run(request + request), "");
    get_plugin_from_hash()->plugin_ctxt = left; // which the fixture closes
}

TEST_F(Dispatch, AChildThatReturnsFromACallbackAnswersNothing) {
    const conf_plugin_context_t* parents = context(); // held, so not lost in the child
    pid_t child = -1;
    callbacks.act = [&] {
        child = fork();
        if (child == 0)
            daemon_.fall_asleep(); // it would read the parent's answer away
        return 0;
    };
    daemon_.send(frame_of(rpc("kickoff", "", 9)));
    econf_plugin_run();
    if (child == 0)
        _exit(parents != nullptr && context() == nullptr ? 0 : 1); // it has an entry of its own
    int status = -1;
    EXPECT_TRUE(waitpid(child, &status, 0) == child && status == 0);
    EXPECT_EQ(daemon_.received(), reply("<result/>", 9));
}

TEST_F(Dispatch, WhatComesBehindTheAnswerToDeactivateWaitsForAnActivePlugin) {
    const std::string kick_off = frame_of(rpc("kickoff", "", 8));
    callbacks.act = [&] {
        daemon_.will_answer(kick_off + answer("<result/>") + kick_off);
        econf_plugin_deactivate();
        (void)plugin_log();
        return 0;
    };
    const std::string asked = rpc("deactivate", "");
    EXPECT_EQ(run(frame_of(rpc("publish", requests_[0][1], 9))), asked + reply("<result/>", 9));
    EXPECT_TRUE(std::regex_match(log(), std::regex("DEBUG - Service publish result: 0 [^;]*")));
    callbacks.act = [] { return 0; };
    econf_plugin_run();
    EXPECT_EQ(log(), "Plugin context is not ready or not be activated.");
    context()->bit_activate = 1; // the wait for an answer would drop what is there
    EXPECT_EQ(run(""), reply("<result/>", 8));
}

TEST_F(Dispatch, AnExceptionOfACallbackEndsTheProcess) {
    callbacks.act = []() -> int { throw 1; };
    for (const auto& [method, params] : requests_) {
        const pid_t child = fork();
        if (child == 0) {
            (void)close(STDERR_FILENO); // where the C++ run time tells of its end
            start();                    // a child begins without a plugin
            (void)run(frame_of(rpc(method, params, 9)));
            _exit(0);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(WTERMSIG(status), SIGABRT) << method;
    }
}

TEST_F(Dispatch, AKickOffNeedsNoFunction) {
    context()->cbs[0] = nullptr;
    (void)plugin_log();
    EXPECT_EQ(outcome("kickoff", ""), "<result/>");
    EXPECT_THAT(plugin_log(), testing::Contains("INFO - Plugin ntp kickoff now."));
}

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
    // A request of the daemon's; of the kinds of a publish each has a name of its own.
    static std::string asked(const std::string& kind, const std::string& params, int id = 9) {
        const bool is_publish = kind == "config" || kind == "operate";
        const std::string type = is_publish ? "<type>" + kind + "</type>" : "";
        return frame_of(rpc(is_publish ? "publish" : kind, type + params, id));
    }
    // The answer to a request: what it holds beside the id, or an error's code and message.
    std::string outcome(const std::string& kind, const std::string& params) {
        static const std::regex reply("<reply>(.*)<id>9</id></reply>");
        static const std::regex error("<error><code>(.*)</code><message>(.*)</message></error>");
        const std::string answered = run(asked(kind, params));
        return std::regex_replace(std::regex_replace(answered, reply, "$1"), error, "$1 $2");
    }

    // A request to each kind of callback.
    const std::vector<std::array<std::string, 2>> requests_ = table<2>(R"(
        config    | <callback>1</callback><info><path>/a</path></info>
        operate   | <callback>4</callback><info/>
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

TEST_F(Dispatch, CallsAConfigurationCallbackWithWhatTheInfoHolds) {
    for (const auto& [info, call] : traced(table<2>(R"(
        <path>/x</path><path>/a[b="c"]</path><path/>            | call 7 0 0 0 /a[b=c];
        <priority>-5</priority><x>7</x><more-flag>1</more-flag> | call 7 0 1 -5 (null);
        <oper-type>16385x</oper-type><oper-type/>               | call 7 16385 0 0 (null);
        <oper-type>0x10</oper-type>                             | call 7 0 0 0 (null);)"))) {
        const std::string to = "<path>/y</path><callback>1</callback><session-id>7</session-id>";
        EXPECT_EQ(outcome("config", to + "<info>" + info + "</info>"), "<result/>");
        EXPECT_EQ(callbacks.calls, call);
    }
}

TEST_F(Dispatch, ReadsTheLastOfEachArgument) {
    for (const auto& [kind, params, call] : traced(table<3>(R"(
        config  | <session-id/><callback>01</callback><info/>               | call -1 0 0 0 (null);
        config  | <session-id>010</session-id><callback>1</callback><info/> | call 10 0 0 0 (null);
        config  | <type>operate</type><callback>4</callback><info>t</info>  | call -1 t out;
        operate | <session-id>x</session-id><callback>4</callback><info/>   | call 0  out;
        operate | <info>t</info><callback>4</callback><callback/><info/>    | call -1  out;
        kickoff |                                                           | call;)"))) {
        EXPECT_TRUE(outcome(kind, params).starts_with("<result"));
        EXPECT_EQ(callbacks.calls, call);
    }
}

TEST_F(Dispatch, AnswersWithWhatTheCallbackHandsBack) {
    callbacks.nodes = "<o/>t";
    EXPECT_EQ(outcome("operate", "<callback>4</callback><info/>"), "<result><o/>t</result>");
    const std::string path = R"(<path>/a["&amp;"]</path>)";
    EXPECT_EQ(outcome("subscribe", "<filter>f</filter><callback>3</callback>" + path),
              "<result>" + path + "<data><o/>t</data></result>");
    EXPECT_EQ(callbacks.calls, R"(call -1 /a["&"] f out;)");
    EXPECT_EQ(outcome("subscribe", "<session-id>3</session-id><callback>3</callback>"),
              "<result><path/><data><o/>t</data></result>");
    EXPECT_EQ(callbacks.calls, "call 3 (null) (null) out;");
}

TEST_F(Dispatch, RefusesWhatItCannotServe) {
    for (const auto& [kind, params, words] : traced(table<3>(R"(
        config    |                                         | Error publish rpc message.
        publish   | <info/>                                 | Error publish rpc message.
        publish   | <type>configs</type><info/>             | Unknown publish type.
        config    | <info/>                                 | Cann't find the callback function.
        config    | <info/><callback>0</callback>           | Cann't find the callback function.
        config    | <info/><callback>4294967297</callback>  | Cann't find the callback function.
        operate   | <info/><callback>1</callback>           | Cann't find the callback function.
        operate   | <info/><callback>0x4</callback>         | Cann't find the callback function.
        subscribe | <callback>4</callback>                  | Cann't find the callback function.
        operate   | <info/><callback>5</callback>           | Callback index is invalid.
        operate   | <info/><callback>-1</callback>          | Callback index is invalid.
        operate   | <info/><callback>-4294967292</callback> | Callback index is invalid.)"))) {
        EXPECT_EQ(outcome(kind, params), "-1 " + words);
        EXPECT_EQ(callbacks.calls, "");
    }
    EXPECT_EQ(outcome("kick%n&lt;", ""), "-1 Method &lt;kick%n&lt;&gt; doesn't be supported");
    EXPECT_TRUE(log().ends_with("; WARN - Receive an unknown rpc method kick%n<."));
}

TEST_F(Dispatch, FindsCallbacksOfAForeignContextByTheirIndexAlone) {
    conf_plugin_context_t* const own = context();
    const std::size_t bytes = offsetof(conf_plugin_context_t, cbs) + 5 * sizeof own->cbs[0];
    void* const foreign = std::memcpy(std::malloc(bytes), own, bytes);
    get_plugin_from_hash()->plugin_ctxt = static_cast<conf_plugin_context_t*>(foreign);
    std::free(own);
    std::swap(context()->cbs[1], context()->cbs[4]);
    EXPECT_EQ(outcome("config", "<callback>4</callback><info/>"), "<result/>");
    EXPECT_EQ(callbacks.calls, "call -1 0 0 0 (null);");
    EXPECT_EQ(outcome("config", "<callback>0</callback><info/>"),
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
        (void)outcome("config", "<callback>1</callback><info>" + info + "</info>");
        EXPECT_EQ(log(), text("DEBUG - Service publish result: %s for path:%s oper:%s priority:3 "
                              "time consumed:5000.124 seconds",
                              result.c_str(), path.c_str(), oper.c_str()));
    }
    EXPECT_EQ(g_rdb_recovery_status, before + 1);
    (void)outcome("config", "<info><path>/b</path></info>");
    EXPECT_EQ(log(), "DEBUG - Cann't find the callback for path:/b oper:0 priority:0");
}

TEST_F(Dispatch, ServesWhateverHasArrivedInOrder) {
    const std::string kick_off = frame_of(rpc("kickoff", "", 1));
    std::string frames = frame_of("no XML") + frame_of("<rpc/>");
    for (const auto& [method, params] : requests_)
        frames += asked(method, params, 0);
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
            const std::string request = asked(method, params);
            EXPECT_EQ(run(request + request), "");
            EXPECT_EQ(context() != nullptr, is_again);
            if (!is_again)
                start();
        }
}

TEST_F(Dispatch, ACallbackMayRemoveTheEntryAlone) {
    conf_plugin_context_t* const left = context();
    callbacks.act = [] { return del_plugin_from_hash(), 1; };
    const std::string request = asked("kickoff", "");
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
    daemon_.send(asked("kickoff", ""));
    econf_plugin_run();
    if (child == 0)
        _exit(parents != nullptr && context() == nullptr ? 0 : 1); // it has an entry of its own
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(daemon_.received(), reply("<result/>", 9));
}

TEST_F(Dispatch, WhatComesBehindTheAnswerToDeactivateWaitsForAnActivePlugin) {
    const std::string kick_off = asked("kickoff", "", 8);
    callbacks.act = [&] {
        daemon_.will_answer(kick_off + answer("<result/>") + kick_off);
        econf_plugin_deactivate();
        (void)plugin_log();
        return 0;
    };
    const std::string sent = rpc("deactivate", "");
    EXPECT_EQ(run(asked("config", requests_[0][1])), sent + reply("<result/>", 9));
    EXPECT_TRUE(std::regex_match(log(), std::regex("DEBUG - Service publish result: 0 [^;]*")));
    callbacks.act = [] { return 0; };
    econf_plugin_run();
    EXPECT_EQ(log(), "Plugin context is not ready or not be activated.");
    context()->bit_activate = 1; // the wait for an answer would drop what is there
    EXPECT_EQ(run(""), reply("<result/>", 8));
}

TEST_F(Dispatch, AnExceptionOfACallbackEndsTheProcess) {
    callbacks.act = []() -> int { throw 1; };
    const pid_t child = fork();
    if (child == 0) {
        (void)close(STDERR_FILENO); // where the C++ run time tells of its end
        start();                    // a child begins without a plugin
        (void)run(asked("kickoff", ""));
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
}

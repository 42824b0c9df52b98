// What a plugin asks of the daemon: over its connection, or through the hooks of a daemon that it
// runs inside.
#include "support/plugin.h"

using namespace conf;

namespace {

xmlNode failed_result; // not for the caller to see

class Requests : public PluginTest {
protected:
    // What was handed back, if anything.
    std::string taken() {
        std::string text = text_of(out_);
        xmlFreeNodeList(std::exchange(out_, nullptr));
        return text;
    }

    xmlNode* out_ = nullptr;
    const unique_node_list data_{nodes_of("<x/>t")};
    const std::function<int()> calls_[6] = {
        [this] { return econf_plugin_pull(0, "/a", &out_); },
        [this] { return econf_plugin_locate(-1, "/&", &out_); },
        [this] { return econf_plugin_push("/a", data_.get()); },
        [this] { return econf_plugin_config_deployment("/a", -1, data_.get()); },
        [] { return econf_plugin_save_deployment(); },
        [] { return econf_plugin_copy_running_to_deployment(-1); },
    };
    // Of each call: its hook, and what that is given.
    const std::vector<std::array<std::string, 2>> facts_ = table<2>(R"(
        pull                       | call 0 /a out;
        locate                     | call 1 /& out;
        push                       | call /a <x/>t;
        config_deployment          | call /a -1 <x/>t;
        save_deployment            | call;
        copy_running_to_deployment | call -1;)");
};

} // namespace

TEST_F(Requests, NeedAnActivePlugin) {
    start(false);
    for (const auto& ask : traced(calls_)) {
        out_ = &failed_result;
        EXPECT_EQ(ask(), -1);
        EXPECT_EQ(out_, &ask < calls_ + 2 ? nullptr : &failed_result);
        EXPECT_EQ(log(), "Plugin context is not ready or not be activated.");
    }
    econf_plugin_error(5, "");
    EXPECT_EQ(context()->err_code, 0);
    EXPECT_EQ(daemon_.received(), "");
}

TEST_F(Requests, NeedTheirHooksInADaemon) {
    pelmd_plugin_callback_t none{};
    EXPECT_EQ(conf_plugin_init_api(&none), 0);
    EXPECT_EQ(conf_plugin_init_api(&none), -1);
    EXPECT_EQ(log(), "Conf API had initialized.");
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(calls_[i](), -1);
        EXPECT_EQ(log(), "Pelmd doesn't inject conf_plugin_" + facts_[i][0] + " function.");
    }
    econf_plugin_error(5, "");
    EXPECT_EQ(log(), "Pelmd doesn't inject conf_plugin_error function.");
}

TEST_F(Requests, GoToTheHooksOfALocalPlugin) {
    pelmd_plugin_callback_t hooks = {callback, callback, callback, callback,
                                     callback, callback, callback, nullptr};
    EXPECT_EQ(conf_plugin_init_api(&hooks), 0);
    hooks = {}; // which were copied
    for (std::size_t i = 0; i < 6; ++i) {
        callbacks.nodes = i == 0 ? "<x/>" : "";
        callbacks.act = [i] { return i == 0 ? 0 : 7; };
        EXPECT_EQ(calls_[i](), callbacks.act());
        EXPECT_EQ(std::exchange(callbacks.calls, ""), facts_[i][1]);
        EXPECT_EQ(taken(), callbacks.nodes);
    }
    econf_plugin_error(-3, "no%n");
    EXPECT_EQ(std::exchange(callbacks.calls, ""), "call -3 no%n;");
    for (const int old : {INT_MIN, 256}) {
        EXPECT_EQ(econf_plugin_pull(old, "/a", &out_), 7);
        EXPECT_EQ(std::exchange(callbacks.calls, ""), "call 1 /a out;");
    }
}

TEST_F(Requests, HandBackWhatTheAnswerHolds) {
    start();
    for (const auto& [method, content, expected] : traced(table<3>(R"(
        pull   | <x/><data><a/>t</data><data><b/></data> | <a/>t
        pull   | <data/><data><b/></data>                |
        locate | <prev>/a[b="&amp;&lt;"]</prev><next/>   | <prev>/a[b=&amp;&lt;]</prev><next/>
        locate | <z><next>/a[b="c"]</next></z>           | <z><next>/a[b="c"]</next></z>
        locate | <z>/[b="c"]</z><next>/[b="c"]</next>    | <z>/[b="c"]</z><next>/[b=c]</next>)"))) {
        daemon_.will_answer(answer("<result>" + content + "</result>"));
        out_ = &failed_result;
        const auto call = method == "pull" ? econf_plugin_pull : econf_plugin_locate;
        EXPECT_EQ(call(0, "/a", &out_), 0);
        EXPECT_EQ(taken(), expected);
    }
    EXPECT_EQ(log(), "");
}

TEST_F(Requests, HandNothingBackWhenNothingWasFound) {
    start();
    for (const auto& [method, outcome, report] : traced(table<3>(R"(
        pull   | <error/>  |
        locate | <error/>  |
        locate | <result/> | Plugin ntp copy child list failed.)"))) {
        daemon_.will_answer(answer(outcome));
        out_ = &failed_result;
        const auto call = method == "pull" ? econf_plugin_pull : econf_plugin_locate;
        EXPECT_EQ(call(0, "/a", &out_), 0);
        EXPECT_EQ(out_, nullptr);
        EXPECT_EQ(log(), report);
    }
    daemon_.will_answer(answer("<x/>"));
    EXPECT_EQ(econf_plugin_pull(0, "/a", &out_), -1);
    EXPECT_EQ(log(), "Invalid reply message(without <error> and <result>).; "
                     "Parse reply for plugin ntp rpc failed.");
}

TEST_F(Requests, AreLoggedWhenTheyCarryData) {
    start();
    for (const std::size_t i : {2u, 3u}) {
        daemon_.will_answer(answer("<result/>"));
        EXPECT_EQ(calls_[i](), 0);
    }
    std::string steps;
    for (const std::string& line : plugin_log())
        if (line.find(" packet, ") != line.npos)
            steps += line + "; ";
    EXPECT_EQ(steps, "INFO - Build push packet, path:/a, name:ntp; "
                     "INFO - Begin to send push packet, name:ntp; "
                     "INFO - End to send push packet, name:ntp; "
                     "INFO - Build config deployment packet, path:/a, oper:4294967295, name:ntp; "
                     "INFO - Begin to send config deployment packet, name:ntp; "
                     "INFO - End to send config deployment packet, name:ntp; ");
}

TEST_F(Requests, DoNotBelieveAHookThatFailsNorTakeOneForAnother) {
    static xmlNode other;
    pelmd_plugin_callback_t hooks{};
    hooks.conf_plugin_pull = [](bool_t, const char*, xmlNode** out) { return *out = &other, -7; };
    EXPECT_EQ(conf_plugin_init_api(&hooks), 0);
    xmlNode* found = &other;
    EXPECT_EQ(econf_plugin_pull(0, "/a", &found), -7);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(econf_plugin_locate(0, "/a", &found), -1);
    std::free(get_plugin_hooks());
    del_plugin_from_hash();
}

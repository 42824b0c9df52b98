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
    const unique_node_list data_{nodes_of("<x>1</x>t&lt;")};
    // Each call; and what it gives its hook, its method, its parameters, and without memory its reports.
    const std::function<int()> calls_[6] = {
        [this] { return econf_plugin_pull(0, "/a", &out_); },
        [this] { return econf_plugin_locate(-1, "/&", &out_); },
        [this] { return econf_plugin_push("/a", data_.get()); },
        [this] { return econf_plugin_config_deployment("/a", -1, data_.get()); },
        [] { return econf_plugin_save_deployment(); },
        [] { return econf_plugin_copy_running_to_deployment(-1); },
    };
    const std::vector<std::array<std::string, 4>> facts_ = table<4>(R"(
        call 0 /a out;             | pull                      | <path>/a</path>                                                        | ; Build pull rpc for plugin ntp failed.; Plugin ntp send rpc to pelmd failed.
        call 1 /& out;             | locate                    | <old/><path>/&amp;</path>                                              | ; Build pull rpc for plugin ntp failed.; Plugin ntp send rpc to pelmd failed.
        call /a <x>1</x>t&lt;;     | push                      | <path>/a</path><data><x>1</x>t&lt;</data>                              | ; Build push rpc for plugin ntp failed.; Plugin ntp publish data failed.
        call /a -1 <x>1</x>t&lt;;  | config_deployment         | <path>/a</path><oper-type>update</oper-type><data><x>1</x>t&lt;</data> | ; Build config deployment rpc for plugin ntp failed.; Plugin ntp publish deployment data failed.
        call;                      | save_deployment           |                                                                        | ; Build save_deployment rpc for plugin ntp failed.; Plugin ntp save deployment data failed.
        call -1;                   | copy_deployment_to_memory | <override>0</override>                                                 | ; Build copy_deployment_to_memory rpc for plugin ntp failed.; Plugin ntp copy deployment to memory data failed.)");
};

} // namespace

TEST_F(Requests, NeedAnActivePluginOrTheirHooks) {
    start(false);
    pelmd_plugin_callback_t no_hooks{};
    for (const int initialised : {0, -1}) {
        for (const auto& ask : traced(calls_)) {
            out_ = &failed_result;
            EXPECT_EQ(ask(), -1);
            EXPECT_EQ(out_, &ask < calls_ + 2 ? nullptr : &failed_result);
        }
        econf_plugin_error(5, "");
        EXPECT_EQ(context()->err_code, 0);
        EXPECT_EQ(conf_plugin_init_api(&no_hooks), initialised);
    }
    EXPECT_TRUE(log().ends_with(
        R"(Plugin context is not ready or not be activated.; Pelmd doesn't inject conf_plugin_pull function.; Pelmd doesn't inject conf_plugin_locate function.; Pelmd doesn't inject conf_plugin_push function.; Pelmd doesn't inject conf_plugin_config_deployment function.; Pelmd doesn't inject conf_plugin_save_deployment function.; Pelmd doesn't inject conf_plugin_copy_running_to_deployment function.; Pelmd doesn't inject conf_plugin_error function.; Conf API had initialized.)"));
    EXPECT_EQ(daemon_.received(), "");
}

TEST_F(Requests, GoToTheHooksOfALocalPlugin) {
    pelmd_plugin_callback_t hooks = {callback, callback, callback, callback,
                                     callback, callback, callback, nullptr};
    EXPECT_EQ(conf_plugin_init_api(&hooks), 0);
    hooks = {}; // which were copied
    for (std::size_t i = 0; i < 6; ++i) {
        callbacks.nodes = i == 0 ? "<x/>" : "";
        callbacks.act = [i] { return i == 0 ? 0 : 7; };
        out_ = i == 1 ? &failed_result : nullptr;
        EXPECT_EQ(calls_[i](), callbacks.act());
        EXPECT_EQ(std::exchange(callbacks.calls, ""), facts_[i][0]);
        EXPECT_EQ(taken(), callbacks.nodes);
    }
    econf_plugin_error(-3, "no%n");
    EXPECT_EQ(std::exchange(callbacks.calls, ""), "call -3 no%n;");
    for (const int old : {INT_MIN, -1, 1, 2, 256}) {
        EXPECT_EQ(econf_plugin_pull(old, "/a", &out_), 7);
        EXPECT_EQ(econf_plugin_locate(old, "/b", &out_), 7);
        EXPECT_EQ(std::exchange(callbacks.calls, ""), "call 1 /a out;call 1 /b out;");
    }
}

TEST_F(Requests, RefuseBadArgumentsAndAProcessWithoutAnEntry) {
    start();
    EXPECT_EQ(econf_plugin_pull(0, "/a", nullptr) + econf_plugin_locate(0, nullptr, &out_), -2);
    EXPECT_EQ(econf_plugin_push("/a", nullptr), -1);
    EXPECT_EQ(econf_plugin_config_deployment(nullptr, 0, data_.get()), -1);
    EXPECT_EQ(log(), "Input parameters error(path=P, result=(nil)).; "
                     "Input parameters error(path=(nil), result=P).; "
                     "Input parameters error(path=P, result=(nil)).; "
                     "Input parameters error(path=(nil), result=P).");
    econf_plugin_close();
    for (const auto& ask : traced(calls_)) {
        const fault no_memory(call::malloc, ENOMEM);
        EXPECT_EQ(ask(), -1);
    }
    const fault no_memory(call::malloc, ENOMEM);
    econf_plugin_error(5, "");
    EXPECT_TRUE(log().ends_with("; Input parameters error, plugin is null."
                                "; Input parameters error, plugin is null."
                                "; Can not get plugin information on error set."));
}

TEST_F(Requests, SayWhatTheyAskAndTakeTheAnswer) {
    start();
    for (std::size_t i = 0; i < 6; ++i) {
        const std::string request = rpc(facts_[i][1], facts_[i][2]);
        daemon_.will_answer(answer("<result>t</result>"));
        EXPECT_EQ(calls_[i](), 0);
        EXPECT_EQ(daemon_.received(), request);
        EXPECT_EQ(taken(), i == 1 ? "t" : "");
    }
}

TEST_F(Requests, ReportWhatFailedWithoutMemory) {
    start();
    // Out of memory, libxml2 itself loses siblings that it has copied already.
    xmlFreeNodeList(std::exchange(data_.get()->next, nullptr));
    for (std::size_t i = 0; i < 6; ++i) {
        const std::string params = std::regex_replace(facts_[i][2], std::regex("t&lt;"), "");
        const auto ask = [&] {
            const std::string whole = rpc(facts_[i][1], params);
            EXPECT_EQ(calls_[i](), -1);
            const std::string sent = daemon_.received();
            EXPECT_TRUE(sent.empty() || sent == whole) << sent;
        };
        EXPECT_EQ(last_words_without_memory(ask), facts_[i][3]);
    }
    for (const std::size_t i : {0u, 3u}) { // which is reported on two floors
        const fault no_memory(call::xml, ENOMEM);
        EXPECT_EQ(calls_[i](), -1);
        EXPECT_EQ(log(), i == 0 ? "Build pull rpc for plugin ntp failed.; "
                                  "Build pull rpc for plugin ntp failed."
                                : "Build config_deployment rpc for plugin ntp failed.; "
                                  "Build config deployment rpc for plugin ntp failed.");
    }
}

TEST_F(Requests, HandBackWhatTheAnswerHolds) {
    start();
    for (const auto& [method, outcome, expected, report] : traced(table<4>(R"(
        pull   | <result><x/><data><a/>t</data><data><b/></data></result>               | <a/>t |
        pull   | <result><data/><data><b/></data></result>                              |       |
        pull   | <error/>                                                               |       |
        pull   | <x/>                                                                   |       | Invalid reply message(without <error> and <result>).; Parse reply for plugin ntp rpc failed.
        locate | <result/>                                                              |       | Plugin ntp copy child list failed.
        locate | <result><prev>/a[b="&amp;&lt;"]</prev><next/><z>/a[b="c"]</z></result> | <prev>/a[b=&amp;&lt;]</prev><next/><z>/a[b="c"]</z> |
        locate | <result><z><next>/a[b="c"]</next></z><next>/a[b="c"]</next></result>   | <z><next>/a[b="c"]</next></z><next>/a[b=c]</next> |)"))) {
        daemon_.will_answer(answer(outcome));
        out_ = &failed_result;
        const auto call = method == "pull" ? econf_plugin_pull : econf_plugin_locate;
        EXPECT_EQ(call(0, "/a", &out_), outcome == "<x/>" ? -1 : 0);
        EXPECT_EQ(taken(), expected);
        EXPECT_EQ(log(), report);
    }
}

TEST_F(Requests, KeepAPositionAsItIsWithoutMemory) {
    start();
    for (const call which : {call::strdup, call::xmlAddChild}) {
        const fault no_memory(which, ENOMEM, which == call::xmlAddChild); // behind the parameters'
        daemon_.will_answer(answer(R"(<result><prev>/a[b="c"]</prev></result>)"));
        EXPECT_EQ(econf_plugin_locate(0, "/a", &out_), 0);
        EXPECT_EQ(taken(), R"(<prev>/a[b="c"]</prev>)");
    }
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

// What a plugin asks of the daemon: over its connection, or through the hooks of a daemon that it
// runs inside.
#include "support/plugin.h"

using namespace conf;

namespace {

xmlNode failed_result; // not for the caller to see

std::string shown(long long number) { return std::to_string(number); }
std::string shown(const char* text) { return text; }
std::string shown(xmlNode* node) { return text_of(node); }
std::string shown(xmlNode** out) {
    *out = callbacks.nodes.empty() ? &failed_result : nodes_of(callbacks.nodes);
    return "";
}

// Any of the hooks: notes what it is given.
template <class Result, class... Arguments> Result hook(Arguments... arguments) {
    return static_cast<Result>(callbacks.run((std::string() + ... + shown(arguments))));
}

pelmd_plugin_callback_t all_hooks = {hook, hook, hook, hook, hook, hook, hook, nullptr};

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
    // Each call; and the name of its hook, that hook's arguments, its method and its parameters.
    const std::function<int()> calls_[6] = {
        [this] { return econf_plugin_locate(-1, "/&", &out_); },
        [this] { return econf_plugin_pull(0, "/a", &out_); },
        [this] { return econf_plugin_push("/a", data_.get()); },
        [this] { return econf_plugin_config_deployment("/a", -1, data_.get()); },
        [] { return econf_plugin_save_deployment(); },
        [] { return econf_plugin_copy_running_to_deployment(-1); },
    };
    const std::vector<std::array<std::string, 4>> facts_ = table<4>(R"(
        locate                     | 1/&;               | locate                    | <old/><path>/&amp;</path>
        pull                       | 0/a;               | pull                      | <path>/a</path>
        push                       | /a<x>1</x>t&lt;;   | push                      | <path>/a</path><data><x>1</x>t&lt;</data>
        config_deployment          | /a-1<x>1</x>t&lt;; | config_deployment         | <path>/a</path><oper-type>update</oper-type><data><x>1</x>t&lt;</data>
        save_deployment            | ;                  | save_deployment           |
        copy_running_to_deployment | -1;                | copy_deployment_to_memory | <override>0</override>)");
};

} // namespace

TEST_F(Requests, NeedAnActivePluginOrTheirHooks) {
    start(false);
    pelmd_plugin_callback_t no_hooks{};
    for (const bool is_local : {false, true}) {
        const auto report = [is_local](const std::string& hook) {
            return is_local ? "Pelmd doesn't inject conf_plugin_" + hook + " function."
                            : "Plugin context is not ready or not be activated.";
        };
        for (std::size_t i = 0; i < 6; ++i) {
            out_ = &failed_result;
            EXPECT_EQ(calls_[i](), -1);
            EXPECT_EQ(out_, i < 2 ? nullptr : &failed_result);
            EXPECT_EQ(log(), report(facts_[i][0]));
        }
        econf_plugin_error(5, "");
        EXPECT_EQ(log(), report("error"));
        EXPECT_EQ(conf_plugin_init_api(&no_hooks), is_local ? -1 : 0);
    }
    EXPECT_EQ(daemon_.received(), "");
}

TEST_F(Requests, GoToTheHooksOfALocalPlugin) {
    EXPECT_EQ(conf_plugin_init_api(&all_hooks), 0);
    for (std::size_t i = 0; i < 6; ++i) {
        callbacks.nodes = i == 1 ? "<x/>" : "";
        callbacks.act = [i] { return i == 1 ? 0 : 7; };
        EXPECT_EQ(calls_[i](), callbacks.act());
        EXPECT_EQ(std::exchange(callbacks.calls, ""), facts_[i][1]);
        EXPECT_EQ(taken(), callbacks.nodes);
    }
    econf_plugin_error(-3, "no%n");
    EXPECT_EQ(callbacks.calls, "-3no%n;");
}

TEST_F(Requests, RefuseBadArgumentsAndAProcessWithoutAnEntry) {
    const std::string no_path = "Input parameters error(path=(nil), result=P).";
    const std::string no_result = "Input parameters error(path=P, result=(nil)).";
    for (const auto call : {econf_plugin_pull, econf_plugin_locate}) {
        out_ = &failed_result;
        EXPECT_EQ(call(0, nullptr, &out_), -1);
        EXPECT_EQ(call(0, "/a", nullptr), -1);
        EXPECT_EQ(out_, nullptr);
        EXPECT_EQ(log(), no_path + "; " + no_result);
    }
    EXPECT_EQ(econf_plugin_push(nullptr, &failed_result), -1);
    EXPECT_EQ(econf_plugin_config_deployment("/a", 0, nullptr), -1);
    EXPECT_EQ(log(), no_path + "; " + no_result);
    del_plugin_from_hash();
    for (std::size_t i = 0; i < 6; ++i) {
        const fault no_memory(call::malloc, ENOMEM);
        EXPECT_EQ(calls_[i](), -1);
        EXPECT_EQ(log(), i < 4 ? "Input parameters error(path=P, result=P)."
                               : "Input parameters error, plugin is null.");
    }
    const fault no_memory(call::malloc, ENOMEM);
    econf_plugin_error(5, "");
    EXPECT_EQ(log(), "Can not get plugin information on error set.");
}

TEST_F(Requests, SayWhatTheyAskAndTakeTheAnswer) {
    start();
    for (std::size_t i = 0; i < 6; ++i) {
        const std::string request = rpc(facts_[i][2], facts_[i][3]);
        daemon_.will_answer(answer("<result>t</result>"));
        EXPECT_EQ(calls_[i](), 0);
        EXPECT_EQ(daemon_.received(), request);
        EXPECT_EQ(taken(), i == 0 ? "t" : "");
    }
    EXPECT_EQ(rows(";" + log(), ';'), rows(R"(
        INFO - Build push packet, path:/a, name:ntp
        INFO - Begin to send push packet, name:ntp
        INFO - End to send push packet, name:ntp
        INFO - Build config deployment packet, path:/a, oper:4294967295, name:ntp
        INFO - Begin to send config deployment packet, name:ntp
        INFO - End to send config deployment packet, name:ntp)"));
}

TEST_F(Requests, ReportWhichStepFailed) {
    start();
    (void)econf_plugin_config_debug(DBG_ERROR, 1);
    // Out of memory, libxml2 itself loses siblings that it has copied already.
    xmlFreeNodeList(std::exchange(data_.get()->next, nullptr));
    std::size_t i = 0;
    for (const auto& [built, wrapped, sent] : table<3>(R"(
        Build pull rpc for plugin ntp failed.; Build pull rpc for plugin ntp failed. | Build pull rpc for plugin ntp failed. |
        Build pull rpc for plugin ntp failed.; Build pull rpc for plugin ntp failed. | Build pull rpc for plugin ntp failed. |
        Build push rpc for plugin ntp failed.; Build push rpc for plugin ntp failed. | Build push rpc for plugin ntp failed. | ; Plugin ntp publish data failed.
        Build config_deployment rpc for plugin ntp failed.; Build config deployment rpc for plugin ntp failed. | Build config deployment rpc for plugin ntp failed. | ; Plugin ntp publish deployment data failed.
        Build save_deployment rpc for plugin ntp failed. | Plugin ntp save deployment data failed. | ; Plugin ntp save deployment data failed.
        Build copy_deployment_to_memory rpc for plugin ntp failed. | Plugin ntp copy deployment to memory data failed. | ; Plugin ntp copy deployment to memory data failed.)")) {
        const std::string rpc = "Build rpc <method = " + facts_[i][2] + "> message failed.; ";
        const std::string dump = "Dump rpc node failed.; Plugin ntp send rpc to pelmd failed.";
        EXPECT_EQ(logs_without_memory([this, i] { EXPECT_EQ(calls_[i](), -1); }),
                  (lines{built, rpc + wrapped, dump + sent}));
        ++i;
    }
}

TEST_F(Requests, HandBackWhatTheAnswerHolds) {
    start();
    for (const auto& [method, outcome, expected, report] : table<4>(R"(
        pull   | <result><x/><data><a/>t</data><data><b/></data></result>               | <a/>t |
        pull   | <result><data/><data><b/></data></result>                              |       |
        pull   | <error/>                                                               |       |
        pull   | <x/>                                                                   |       | Invalid reply message(without <error> and <result>).; Parse reply for plugin ntp rpc failed.
        locate | <x/>                                                                   |       | Invalid reply message(without <error> and <result>).; Parse reply for plugin ntp rpc failed.
        locate | <error/>                                                               |       |
        locate | <result/>                                                              |       | Plugin ntp copy child list failed.
        locate | <result><prev>/a[b="&amp;&lt;"]</prev><next/><z>/a[b="c"]</z></result> | <prev>/a[b=&amp;&lt;]</prev><next/><z>/a[b="c"]</z> |
        locate | <result><z><next>/a[b="c"]</next></z><next>/a[b="c"]</next></result>   | <z><next>/a[b="c"]</next></z><next>/a[b=c]</next> |)")) {
        daemon_.will_answer(answer(outcome));
        const auto call = method == "pull" ? econf_plugin_pull : econf_plugin_locate;
        EXPECT_EQ(call(0, "/a", &out_), outcome == "<x/>" ? -1 : 0);
        EXPECT_EQ(taken(), expected);
        EXPECT_EQ(log(), report);
    }
}

// A plugin's way from registration to its end.
#include "support/plugin.h"

#include "conf_plugin/context.h"
#include "conf_plugin/registry.h"
#include "support/profile.h"

using namespace conf;

using Session = PluginTest;

namespace {

// Newer versions of libxml2 write an empty text out.
std::string shortened(const std::string& body) {
    return std::regex_replace(body, std::regex("<path></path>"), "<path/>");
}

} // namespace

TEST_F(Session, RegistersEveryPathWithTheIndexOfItsSlot) {
    econf_config_cb_info_t escaped[] = {{"/&amp;", 0, nullptr}, {}};
    econf_status_cb_info_t none[] = {{}};
    char bare[] = "&"; // begins an entity reference, so the path is announced empty
    econf_operate_cb_info_t cut[] = {{bare, nullptr}, {}};
    const std::tuple<econf_plugin_subpub_info_t, std::string, std::string> cases[] = {
        {one_of_each, "5", R"(
            <config-subscribe>
            <subscriber><path>/c</path><priority>1</priority><callback>1</callback></subscriber>
            <subscriber><path>/d</path><priority>-5</priority><callback>2</callback></subscriber>
            </config-subscribe>
            <status-publish>
            <publisher><path>/s</path><callback>3</callback></publisher>
            </status-publish>
            <operate-subscribe>
            <subscriber><path>/o</path><callback>4</callback></subscriber>
            </operate-subscribe>)"},
        {{escaped, none, nullptr, one_of_each.kick_off}, "2", R"(
            <config-subscribe>
            <subscriber><path>/&amp;</path><priority>0</priority><callback>1</callback></subscriber>
            </config-subscribe>
            <status-publish/>)"},
        {{nullptr, nullptr, cut, {}}, "2", R"(
            <operate-subscribe>
            <subscriber><path/><callback>1</callback></subscriber>
            </operate-subscribe>)"}};
    for (auto [info, slots, sections] : traced(cases)) {
        daemon_.will_answer(answer("<result><ignored/></result>", 1));
        const int sock = econf_plugin_init("a&b", &info);
        EXPECT_EQ(shortened(daemon_.received()),
                  rpc("register", "<plugin-name>a&amp;b</plugin-name>" + joined(sections), 1));
        const conf_plugin_context_t* ctxt = context();
        EXPECT_EQ(text("%d %s %u %d %d", ctxt->version, ctxt->name, ctxt->cbs_nums,
                       ctxt->bit_activate, ctxt->rpc_id),
                  "2 a&b " + slots + " 0 2");
        EXPECT_EQ(ctxt->cbs[0], callback_cast<econf_subpub_cb_t>(info.kick_off));
        EXPECT_EQ(ctxt->sock, sock);
        EXPECT_TRUE(fcntl(sock, F_GETFL) & O_NONBLOCK);
        econf_plugin_close();
        EXPECT_EQ(log(), "DEBUG - Register plugin a&b success.; DEBUG - Close plugin a&b.");
    }
}

TEST_F(Session, RefusesWhatIsNotAFreshProcess) {
    start();
    EXPECT_EQ(econf_plugin_init(nullptr, &one_of_each) + econf_plugin_init("ntp", nullptr), -2);
    EXPECT_EQ(econf_plugin_init("other", &one_of_each), -1);
    econf_plugin_close();
    pelmd_plugin_callback_t hooks{};
    EXPECT_EQ(conf_plugin_init_api(&hooks), 0);
    EXPECT_EQ(econf_plugin_init("ntp", &one_of_each), -1);
    EXPECT_EQ(log(), "Input parameters error(name=(nil), reg_info=P).; "
                     "Input parameters error(name=P, reg_info=(nil)).; "
                     "Plugin remote context has been created.; DEBUG - Close plugin ntp.; "
                     "Plugin local context has been created.");
}

TEST_F(Session, AFailedInitialisationSaysWhyAndLeavesNothing) {
    const auto init = [] {
        EXPECT_EQ(econf_plugin_init("ntp", &one_of_each), -1);
        EXPECT_EQ(context(), nullptr);
    };
    const std::pair<std::string, std::string> refusals[] = {
        {"<error><message>%n&lt;</message></error>", "Pelmd reply error(%n<) for plugin ntp rpc."},
        {"<x/>", "Invalid reply message(without <error> and <result>).; "
                 "Parse reply for plugin ntp rpc failed."}};
    for (const auto& [outcome, report] : traced(refusals)) {
        daemon_.will_answer(answer(outcome));
        init();
        EXPECT_EQ(log(), report + "; Plugin ntp register to pelmd failed.");
    }
}

TEST_F(Session, GoesActiveAndInactiveInTurn) {
    start(false);
    for (const auto& [mode, params] :
         {std::pair{0, ""}, {1, "<with-cfgr/>"}, {2, "<with-smooth/>"}}) {
        const std::string asked = rpc("activate", params) + rpc("deactivate", "", next_id() + 1);
        econf_plugin_deactivate();
        daemon_.will_answer(answer("<result/>"));
        EXPECT_EQ(econf_plugin_activate(mode), 0);
        EXPECT_EQ(econf_plugin_activate(mode), -1);
        daemon_.will_answer(answer("<result/>"));
        econf_plugin_deactivate();
        EXPECT_EQ(daemon_.received(), asked);
        EXPECT_EQ(log(),
                  "DEBUG - Plugin ntp has been deactivated.; DEBUG - Activate plugin ntp success.; "
                  "Plugin ntp has been activated.; DEBUG - Dectivate plugin ntp success.");
    }
}

TEST_F(Session, StaysAsItWasWhenTheDaemonCannotBeAskedOrRefuses) {
    start(false);
    daemon_.will_answer(answer("<error><message>no</message></error>"));
    EXPECT_EQ(econf_plugin_activate(ACTIVATE_WITH_NONE), -1);
    EXPECT_EQ(context()->bit_activate, 0u);
    const fault no_memory(call::xml, ENOMEM);
    EXPECT_EQ(econf_plugin_activate(ACTIVATE_WITH_SMOOTH), -1);
    EXPECT_EQ(log(), "Pelmd reply error(no) for plugin ntp rpc.; Activate plugin ntp failed.; "
                     "Build activate rpc for plugin ntp failed.; "
                     "Build activate rpc in mode(smooth) for plugin ntp failed.");
}

TEST_F(Session, RecordsAnErrorThatQuotesTheLast) {
    start();
    const std::string long_text(5000, 'x');
    _plugin_set_error(get_plugin_from_hash(), 4, "%s", long_text.c_str());
    _plugin_set_error(get_plugin_from_hash(), 5, "%s %d", context()->err_msg, 7);
    EXPECT_EQ(context()->err_msg, long_text + " 7");
}

TEST_F(Session, NeedsAPluginForEachStep) {
    EXPECT_EQ(econf_plugin_activate(ACTIVATE_WITH_NONE), -1);
    econf_plugin_deactivate();
    econf_plugin_close();
    EXPECT_EQ(log(), "Plugin context is not ready when active.; Plugin context is not ready.; "
                     "Plugin context is not ready when close.");
}

// While there is no log file yet: looking for it must not change what is reported.
TEST_F(Session, FindsTheDaemonWhereTheProfileSays) {
    std::ofstream(profile_path) << R"({"working-dir":"/var/log"})";
    EXPECT_EQ(econf_plugin_init("ntp", &one_of_each), -1);
    EXPECT_TRUE(log().starts_with("Connect to pelmd failed(No such file or directory)."));
    std::ofstream(profile_path) << R"({"working-dir":"/var/tmp"})";
    EXPECT_EQ(conf_load_config(nullptr), 0);
    EXPECT_EQ(close(conf_plugin_service_enable()), 0); // is bound in place of the daemon's
    EXPECT_EQ(econf_plugin_init("ntp", &one_of_each), -1);
    EXPECT_EQ(log(), "Connect to pelmd failed(Connection refused).; "
                     "Initialize context for plugin ntp failed.");
    std::filesystem::remove(profile_path);
}

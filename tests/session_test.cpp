// A plugin's way from registration to its end.
#include "support/plugin.h"

#include "conf_plugin/registry.h"
#include "conf_plugin/session.h"

#include <cstddef>
#include <fcntl.h>

using namespace conf;

namespace {

int on_config(int, int, int, int, const char*) { return 0; }
int on_status(int, const char*, const char*, xmlNode**) { return 0; }
int on_operate(int, xmlNode*, xmlNode**) { return 0; }
void on_kick_off() {}
char operation[] = "/o";
char bare[] = "&"; // begins an entity reference, so the path is announced empty

class Session : public PluginTest {
protected:
    econf_config_cb_info_t configs_[3] = {{"/c", 1, on_config}, {"/d", -5, nullptr}, {}};
    econf_status_cb_info_t statuses_[2] = {{"/s", on_status}, {}};
    econf_operate_cb_info_t operations_[2] = {{operation, on_operate}, {}};
    econf_plugin_subpub_info_t info_{configs_, statuses_, operations_, on_kick_off};
    econf_plugin_subpub_info_t empty_{configs_ + 2, statuses_ + 1, operations_ + 1, nullptr};
};

} // namespace

TEST_F(Session, RegistersEveryPathWithTheIndexOfItsSlot) {
    econf_status_cb_info_t escaped[] = {{"/&amp;", nullptr}, {}};
    econf_operate_cb_info_t cut[] = {{bare, nullptr}, {}};
    econf_plugin_subpub_info_t infos[] = {info_,
                                          empty_,
                                          {configs_, nullptr, cut, nullptr},
                                          {nullptr, escaped, nullptr, on_kick_off},
                                          {}};
    econf_plugin_subpub_info_t* info = infos;
    for (const auto& [slots, sections] : table<2>(R"(
        5 | <config-subscribe><subscriber><path>/c</path><priority>1</priority><callback>1</callback></subscriber><subscriber><path>/d</path><priority>-5</priority><callback>2</callback></subscriber></config-subscribe><status-publish><publisher><path>/s</path><callback>3</callback></publisher></status-publish><operate-subscribe><subscriber><path>/o</path><callback>4</callback></subscriber></operate-subscribe>
        1 | <config-subscribe/><status-publish/><operate-subscribe/>
        4 | <config-subscribe><subscriber><path>/c</path><priority>1</priority><callback>1</callback></subscriber><subscriber><path>/d</path><priority>-5</priority><callback>2</callback></subscriber></config-subscribe><operate-subscribe><subscriber><path/><callback>3</callback></subscriber></operate-subscribe>
        2 | <status-publish><publisher><path>/&amp;</path><callback>1</callback></publisher></status-publish>
        1 |)")) {
        daemon_.will_answer(answer("<result><ignored/></result>", 1));
        const int sock = econf_plugin_init("a&b", info);
        EXPECT_EQ(daemon_.received(),
                  rpc("register", "<plugin-name>a&amp;b</plugin-name>" + sections, 1));
        const conf_plugin_context_t* ctxt = context();
        EXPECT_EQ(text("%d %s %u %d %d", ctxt->version, ctxt->name, ctxt->cbs_nums,
                       ctxt->bit_activate, ctxt->rpc_id),
                  "2 a&b " + slots + " 0 2");
        EXPECT_EQ(ctxt->cbs[0], callback_cast<econf_subpub_cb_t>(info++->kick_off));
        EXPECT_TRUE(sock == ctxt->sock && (fcntl(sock, F_GETFL) & O_NONBLOCK) != 0);
        econf_plugin_close();
        EXPECT_EQ(log(), "DEBUG - Register plugin a&b success.; DEBUG - Close plugin a&b.");
    }
    econf_plugin_close();
    EXPECT_EQ(log(), "Plugin context is not ready when close.");
    EXPECT_EQ(daemon_.received(), "");
}

TEST_F(Session, RefusesWhatIsNotAFreshProcess) {
    EXPECT_EQ(econf_plugin_init(nullptr, &info_), -1);
    EXPECT_EQ(econf_plugin_init(bare, nullptr), -1);
    EXPECT_EQ(log(), text("Input parameters error(name=(nil), reg_info=%p).; Input parameters "
                          "error(name=%p, reg_info=(nil)).",
                          static_cast<void*>(&info_), static_cast<void*>(bare)));
    start(info_);
    EXPECT_EQ(econf_plugin_init("other", &info_), -1);
    EXPECT_EQ(log(), "Plugin remote context has been created.");
    econf_plugin_close();
    pelmd_plugin_callback_t hooks{};
    EXPECT_EQ(conf_plugin_init_api(&hooks), 0);
    EXPECT_EQ(econf_plugin_init("ntp", &info_), -1);
    EXPECT_EQ(log(), "DEBUG - Close plugin ntp.; Plugin local context has been created.");
}

TEST_F(Session, AFailedInitialisationSaysWhereAndLeavesNothing) {
    const auto init = [this] {
        EXPECT_EQ(econf_plugin_init("ntp", &info_), -1);
        EXPECT_EQ(context(), nullptr);
    };
    const call calls[] = {call::calloc, call::strdup,  call::mmap,
                          call::socket, call::connect, call::fcntl};
    const call* which = calls;
    for (const std::string& report :
         rows(text(R"(
        Allocate %zu byte(s) memmory for plugin context failed.; Initialize context for plugin ntp failed.
        Initialize context for plugin ntp failed.
        Create message buffer for remote plugin failed.; Initialize context for plugin ntp failed.
        Create socket failed(Cannot allocate memory).; Initialize context for plugin ntp failed.
        Connect to pelmd failed(Cannot allocate memory).; Initialize context for plugin ntp failed.
        Set connect to pelmd sock to nonblock failed.; Initialize context for plugin ntp failed.)",
                   offsetof(conf_plugin_context_t, cbs) + 5 * sizeof(void*)))) {
        const fault one(*which++, ENOMEM);
        init();
        EXPECT_EQ(log(), report);
    }
    EXPECT_EQ(logs_without_memory(init), rows(R"(
        Build register rpc for plugin ntp failed.
        Build config-subscribe on path /c failed.; Build register rpc for plugin ntp failed.
        Build config-subscribe on path /d failed.; Build register rpc for plugin ntp failed.
        Build register rpc for plugin ntp failed.
        Build status-publish on path /s failed.; Build register rpc for plugin ntp failed.
        Build register rpc for plugin ntp failed.
        Build operate-subscribe on path /o failed.; Build register rpc for plugin ntp failed.
        Build rpc <method = register> message failed.; Build register rpc for plugin ntp failed.
        Dump rpc node failed.; Plugin ntp send rpc to pelmd failed.; Plugin ntp register to pelmd failed.)"));
    daemon_.will_answer(answer("<error><message>no</message></error>", 1));
    init();
    EXPECT_EQ(log(),
              "Pelmd reply error(no) for plugin ntp rpc.; Plugin ntp register to pelmd failed.");
    (void)econf_plugin_config_debug(DBG_NULL, 0);
    int steps = 1;
    for (bool is_done = false; !is_done; ++steps) {
        (void)daemon_.received(); // so that it sees the end of the last connection
        daemon_.will_answer(answer("<result/>", 1));
        daemon_.hang_up(steps);
        is_done = econf_plugin_init("ntp", &info_) >= 0;
        EXPECT_EQ(context() != nullptr, is_done);
    }
    EXPECT_GT(steps, 10);
}

TEST_F(Session, GoesActiveAndInactiveInTurn) {
    EXPECT_EQ(econf_plugin_activate(0), -1);
    econf_plugin_deactivate();
    EXPECT_EQ(log(), "Plugin context is not ready when active.; Plugin context is not ready.");
    start({}, false);
    for (const auto& [mode, params] : table<2>("\n0|\n1|<with-cfgr/>\n2|<with-smooth/>\n7|")) {
        const int id = context()->rpc_id, start_mode = std::stoi(mode);
        econf_plugin_deactivate();
        daemon_.will_answer(answer("<result/>", id));
        EXPECT_EQ(econf_plugin_activate(start_mode), 0);
        EXPECT_EQ(econf_plugin_activate(start_mode), -1);
        daemon_.will_answer(answer("<result/>", id + 1));
        econf_plugin_deactivate();
        EXPECT_EQ(daemon_.received(), rpc("activate", params, id) + rpc("deactivate", "", id + 1));
        EXPECT_EQ(log(),
                  "DEBUG - Plugin ntp has been deactivated.; DEBUG - Activate plugin ntp success.; "
                  "Plugin ntp has been activated.; DEBUG - Dectivate plugin ntp success.");
    }
}

TEST_F(Session, StaysAsItWasWhenTheDaemonCannotBeAsked) {
    start({}, false);
    const auto activate_in = [](int mode) {
        return [mode] { EXPECT_EQ(econf_plugin_activate(mode), -1); };
    };
    EXPECT_EQ(logs_without_memory(activate_in(ACTIVATE_WITH_CFGR)), rows(R"(
        Build activate rpc for plugin ntp failed.; Build activate rpc in mode(cfgr) for plugin ntp failed.
        Build rpc <method = activate> message failed.; Build activate rpc in mode(cfgr) for plugin ntp failed.
        Dump rpc node failed.; Plugin ntp send rpc to pelmd failed.; Activate plugin ntp failed.)"));
    for (const auto& [mode, word] : {std::pair{2, "smooth"}, {7, "none"}})
        EXPECT_TRUE(logs_without_memory(activate_in(mode))[0].ends_with(
            text("in mode(%s) for plugin ntp failed.", word)));
    daemon_.will_answer(answer("<result/>", context()->rpc_id));
    EXPECT_EQ(econf_plugin_activate(ACTIVATE_WITH_NONE), 0);
    (void)log();
    EXPECT_EQ(logs_without_memory(econf_plugin_deactivate), rows(R"(
        Build deactivate rpc for plugin ntp failed.
        Build rpc <method = deactivate> message failed.; Build deactivate rpc for plugin ntp failed.
        Dump rpc node failed.; Plugin ntp send rpc to pelmd failed.; Dectivate plugin ntp failed.)"));
    EXPECT_EQ(context()->bit_activate, 1u);
}

TEST_F(Session, KeepsTheLastErrorRecorded) {
    start();
    conf_plugin_data* plugin = get_plugin_from_hash();
    const std::string long_text(5000, 'x');
    _plugin_set_error(plugin, 4, "%s %d", long_text.c_str(), 7);
    EXPECT_EQ(context()->err_msg, long_text + " 7");
    _plugin_set_error(plugin, -5, nullptr);
    EXPECT_EQ(context()->err_msg, def_err_msg);
    _plugin_set_error(plugin, 6, "a %s", context()->err_msg);
    EXPECT_STREQ(context()->err_msg, "a Service process failed.");
    EXPECT_EQ(context()->err_code, 6);
}

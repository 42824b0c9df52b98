#include "script/warnings.h"

#include "script/files.h"
#include "script/registration_check.h"
#include "scripting.h"

namespace pelmsim {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string registered(const std::string& kind, std::initializer_list<const char*> paths) {
    std::string rows;
    for (const char* path : paths)
        rows += "<row><path>" + std::string(path) + "</path><callback>1</callback></row>";
    return "<" + kind + ">" + rows + "</" + kind + ">";
}

class Warning : public Scripting {
protected:
    // What a registration of these paths is warned of.
    std::string warned(const std::string& kind, std::initializer_list<const char*> paths) {
        const unique_node params = new_element("params");
        attach(params.get(), parse_nodes(registered(kind, paths)));
        std::string texts;
        for (const warning& each : check_registration(params.get(), configuration_))
            texts += each.text + "\n";
        return texts;
    }

    void asks(const char* method, pid_t pid = 0) {
        const unique_node params = new_element("params");
        events_.report({.kind = event_kind::request,
                        .who = {role::plugin, "ntp", pid},
                        .way = direction::from_peer,
                        .method = method,
                        .body = params.get()});
    }

    const tree configuration_ = tree::from_xml("<net><host>a</host><ipv4/><l><n>1</n></l></net>");
};

TEST_F(Warning, APathThatMayBeMeantSoIsLeftAlone) {
    for (const char* path : {"/", "/net", "/net/l[n=7]", "/net/ipv6", "/net/hots/none", "/other"})
        EXPECT_EQ(warned("config-subscribe", {path}), "") << path;
    EXPECT_EQ(warned("config-subscribe", {"/net/host", "/net/hosts"}), "");
    EXPECT_EQ(warned("status-publish", {"/net/hots"}), "");
    EXPECT_EQ(warned("operate-subscribe", {"reset"}), "");
}

TEST_F(Warning, APathIsTheSameHoweverItIsWritten) {
    EXPECT_EQ(warned("config-subscribe", {"/net/l[n=7]", "/net/l[n=8]", "/net/l[n='7']"}),
              "config_cbs[2] has the same path as config_cbs[0], /net/l[n='7']: leave one of them "
              "out\n");
}

TEST_F(Warning, ANotificationThatIsMeantAsXmlShouldBeSome) {
    for (const char* text : {"free\x01", "<a>", "<a>\x01</a>"})
        events_.report({.kind = event_kind::notification,
                        .who = {role::notifier},
                        .why = cause::no_xml,
                        .text = text});
    ASSERT_EQ(on_.warned.all().size(), 1U);
    EXPECT_THAT(
        on_.warned.all().front().text,
        StartsWith("a notification goes to no agent, for XML does not allow 0x01 at byte 3 of"));
}

TEST_F(Warning, RegistrationsAfterARestartAreNoLoop) {
    for (int i = 0; i < 18; ++i) {
        if (i == 9)
            events_.report({.kind = event_kind::restart});
        asks("register");
    }
    EXPECT_TRUE(on_.warned.all().empty());
    asks("register");
    EXPECT_THAT(printed_, HasSubstr("warning: registers in a loop, 10 times within two seconds"));
}

TEST_F(Warning, TheLogTellsOfWhatIsCalledTooEarlyAndNotOfWhatIsClosedTwice) {
    const std::string line = "[ERROR] - Plugin context is not ready when close.\r\n";
    write_file(plugin_log_file, line);
    EXPECT_TRUE(holds("not warning"));
    write_file(plugin_log_file, line + "[ERROR] - Plugin context is not ready when active.\r\n");
    EXPECT_TRUE(holds("warning behind econf_plugin_activate()"));
    std::filesystem::remove(plugin_log_file);
}

TEST_F(Warning, OneThatIsSlowToGoActiveMayHaveNotHadTheTime) {
    asks("register", getpid());
    time_.move(milliseconds(1000));
    on_.warned.look_a_last_time();
    EXPECT_TRUE(on_.warned.all().empty());
    time_.move(milliseconds(1));
    on_.warned.look_a_last_time();
    EXPECT_THAT(printed_, HasSubstr("warning: has registered, but does not go active"));
}

} // namespace
} // namespace pelmsim

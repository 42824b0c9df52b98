#include "pelmtest.h"

#include <fstream>
#include <gmock/gmock.h>
#include <thread>

extern "C" econf_plugin_subpub_info_t callbacks; // of callbacks.c
extern "C" conf_plugin_info_t older_callbacks;

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// Scripts that pelmsim runs against a process with the same callbacks: the kit must say the same.
class Scripts : public ::testing::Test {
protected:
    void run(const char* file) {
        std::ifstream lines(std::string(KIT_SCRIPTS "/") + file);
        ASSERT_TRUE(lines);
        int number = 0;
        for (std::string line; std::getline(lines, line);) {
            SCOPED_TRACE(file + (":" + std::to_string(++number)) + ": " + line);
            std::istringstream words(line);
            std::string command;
            std::string what;
            std::string rest;
            words >> command >> what >> std::ws;
            std::getline(words, rest);
            if (command == "expect")
                expect(what, rest);
            else
                carry_out(command, what.c_str(), rest);
        }
    }

private:
    void carry_out(const std::string& command, const char* path, const std::string& rest) {
        if (command == "set")
            pelmtest_set(path, rest.c_str());
        else if (command == "publish")
            pelmtest_publish(path, std::stoi(rest));
        else if (command == "status")
            pelmtest_status(path, rest.c_str());
        else if (command == "operate")
            pelmtest_operate(path, rest.c_str());
        else if (command == "kickoff")
            pelmtest_kick_off();
        shown_ = command == "show" ? pelmtest_tree(tree_named(path), rest.c_str()) : pelmtest_xml();
    }

    static pelmtest_tree_t tree_named(const std::string& name) {
        return name == "deployment" ? PELMTEST_DEPLOYMENT : PELMTEST_CURRENT;
    }

    void expect(const std::string& what, std::string rest) const {
        if (what == "xml")
            EXPECT_EQ(rest, shown_);
        else if (what == "contains")
            EXPECT_THAT(shown_, HasSubstr(rest));
        else if (what == "error")
            EXPECT_EQ("error " + rest.replace(rest.find(' '), 1, " (") + ")", pelmtest_said());
        else
            EXPECT_EQ(what, pelmtest_said());
    }

    std::string shown_;
};

TEST_F(Scripts, SayTheSameInTheKit) {
    ASSERT_EQ(pelmtest_begin(&callbacks), PELMTEST_OK) << pelmtest_text();
    run("callbacks.sim");
    pelmtest_end();
}

TEST_F(Scripts, SayTheSameOfTheOlderApi) {
    ASSERT_EQ(pelmtest_begin_legacy(&older_callbacks), PELMTEST_OK) << pelmtest_text();
    run("older.sim");
    pelmtest_end();
}

class Kit : public ::testing::Test {
protected:
    Kit() { EXPECT_EQ(pelmtest_begin(&callbacks), PELMTEST_OK) << pelmtest_text(); }
    ~Kit() override { pelmtest_end(); }
};

TEST_F(Kit, KeepsWhatItSaw) {
    pelmtest_given("/t/b", "<v>1</v>");
    EXPECT_EQ(pelmtest_set("/t", "<a><v>1</v></a><b><v>refuse</v></b>"), PELMTEST_ERROR);
    EXPECT_STREQ(pelmtest_seen(PELMTEST_TOLD, 0), "/n:t/b mod: error -1 (Service process failed.)");
    EXPECT_EQ(pelmtest_seen(PELMTEST_TOLD, 1), nullptr);
    EXPECT_STREQ(pelmtest_seen(PELMTEST_PULLED, 1), "old /n:t/b");
    pelmtest_set("/t", "<b/><a><v>refuse</v></a>");
    EXPECT_STREQ(pelmtest_seen(PELMTEST_TOLD, 2), "/n:t/b mod|rollback: ok");
    EXPECT_EQ(pelmtest_delete("/t/b"), PELMTEST_OK);
    EXPECT_STREQ(pelmtest_seen(PELMTEST_TOLD, 0), "/n:t/b rm: ok");
    const char* const what = "<push><v/></push><deploy><v/></deploy><locate>/t/u</locate><reply/>";
    pelmtest_operate("/t/do", what);
    EXPECT_STREQ(pelmtest_seen(PELMTEST_PUSHED, 0), "/t/pushed <v/>");
    EXPECT_STREQ(pelmtest_seen(PELMTEST_DEPLOYED, 0), "add /t/d <v/>");
    EXPECT_STREQ(pelmtest_seen(PELMTEST_LOCATED, 0), "/t/u: There is nothing at /t/u.");
    EXPECT_STREQ(pelmtest_seen(PELMTEST_REPLIED, 0), "1 <reply/> <reply/>");
}

TEST_F(Kit, CatchesMoreNotificationsThanAnyQueueHolds) {
    char text[] = "<from>a thread</from>";
    pelmtest_operate("/t/do", "<notify>3000</notify>");
    std::thread([&] { conf_notify(text, text); }).join();
    EXPECT_STREQ(pelmtest_seen(PELMTEST_NOTIFIED, 2999), "<notify>3000</notify>");
    EXPECT_STREQ(pelmtest_seen(PELMTEST_NOTIFIED, 3000), text);
}

TEST_F(Kit, TakesAnswersThatNoSocketHolds) {
    const std::string input = "<a>" + std::string(5'000'000, 'x') + "</a>";
    EXPECT_EQ(pelmtest_operate("/t/do", input.c_str()), PELMTEST_OK);
    EXPECT_EQ(pelmtest_xml(), input);
}

TEST_F(Kit, RecoversWithEverythingNew) {
    pelmtest_given("/t/b", "<v>untold</v>");
    EXPECT_EQ(pelmtest_recover(ACTIVATE_WITH_CFGR), PELMTEST_ERROR);
    EXPECT_EQ(pelmtest_code(), 6);
    EXPECT_STREQ(pelmtest_text(), "Service process failed.");
    EXPECT_THAT(pelmtest_seen(PELMTEST_TOLD, 0), StartsWith("/n:t/b add|cfgr: error 6"));
    EXPECT_STREQ(pelmtest_tree(PELMTEST_OLD, "/t/b"), "<b><v>untold</v></b>");
}

TEST_F(Kit, TellsWhenNobodyIsConcerned) {
    EXPECT_EQ(pelmtest_add("/u", "1"), PELMTEST_UNHEARD);
    EXPECT_EQ(pelmtest_add("/u", "1"), PELMTEST_MISTAKE);
    EXPECT_EQ(pelmtest_set("/u", "1"), PELMTEST_UNHEARD);
    EXPECT_STREQ(pelmtest_said(), "unheard (nothing has changed)");
    EXPECT_EQ(pelmtest_publish("/t", CONFIG_OP_MOD), PELMTEST_UNHEARD);
    EXPECT_EQ(pelmtest_status("/t", nullptr), PELMTEST_UNHEARD);
    EXPECT_EQ(pelmtest_operate("/t", nullptr), PELMTEST_UNHEARD);
}

TEST_F(Kit, KnowsWhenAPluginIsNotThereAnyMore) {
    EXPECT_EQ(pelmtest_operate("/t/do", "<deactivate/>"), PELMTEST_OK);
    EXPECT_EQ(pelmtest_set("/t/b", "1"), PELMTEST_UNHEARD);
    EXPECT_EQ(econf_plugin_activate(ACTIVATE_WITH_NONE), 0);
    EXPECT_EQ(pelmtest_operate("/t/do", "<close/>"), PELMTEST_NO_ANSWER);
    EXPECT_EQ(pelmtest_kick_off(), PELMTEST_UNHEARD);
}

TEST_F(Kit, SaysWhatIsWrongWithTheTest) {
    EXPECT_EQ(pelmtest_set("/t[", "1"), PELMTEST_MISTAKE);
    EXPECT_THAT(pelmtest_text(), StartsWith("\"/t[\" is not a data path"));
    EXPECT_EQ(pelmtest_set("/t", "<a>"), PELMTEST_MISTAKE);
    EXPECT_THAT(pelmtest_text(), StartsWith("this is not well-formed XML: Opening"));
    EXPECT_EQ(pelmtest_delete("/t"), PELMTEST_MISTAKE);
    EXPECT_EQ(pelmtest_status(nullptr, nullptr), PELMTEST_MISTAKE);
    EXPECT_EQ(pelmtest_recover(ACTIVATE_WITH_NONE), PELMTEST_MISTAKE);
    EXPECT_EQ(pelmtest_begin(nullptr), PELMTEST_MISTAKE);
    EXPECT_EQ(pelmtest_kick_off(), PELMTEST_MISTAKE);
    EXPECT_STREQ(pelmtest_text(), "No test has begun: pelmtest_begin() comes first.");
}

TEST_F(Kit, GoesOnInAChildThatWasForked) {
    const auto in_child = [] { std::exit(pelmtest_operate("/t/do", "<notify>20</notify>") + 7); };
    EXPECT_EXIT(in_child(), ::testing::ExitedWithCode(7), "");
    EXPECT_EQ(pelmtest_operate("/t/do", nullptr), PELMTEST_OK);
    EXPECT_EQ(pelmtest_seen(PELMTEST_NOTIFIED, 0), nullptr);
}

} // namespace

#include "script/files.h"

#include "scripting.h"

#include <filesystem>

namespace pelmsim {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

class Expecting : public Scripting {
protected:
    void asks(const std::string& method, const std::string& params, const char* plugin = "ntp") {
        const unique_node body = new_element("params");
        attach(body.get(), parse_nodes(params));
        events_.report({.kind = event_kind::request,
                        .who = {role::plugin, plugin, 7},
                        .way = direction::from_peer,
                        .method = method,
                        .path = child_text(body.get(), "path"),
                        .body = body.get()});
    }
    void pulls(const std::string& path) { asks("pull", "<path>" + path + "</path>"); }
    void pushes(const std::string& path, const std::string& data) {
        asks("push", "<path>" + path + "</path><data>" + data + "</data>");
    }

    // What is said of an expectation that fails.
    std::string complaint(const std::string& expectation) { return run("expect " + expectation); }
};

TEST_F(Expecting, PathsAreComparedAndNotTheirTexts) {
    pulls("/n:a/b[k=x,l=\"y z\"]");
    EXPECT_TRUE(holds("pulled /a/b[l='y z'][k=\"x\"]"));
    EXPECT_TRUE(holds("not pulled /m:a/b[k=x,l='y z']"));
    for (const char* other : {"/a", "/a/b", "/a/b[k=x]", "/a/b[k=x,l=y]", "/a/b[k=x,l='y z']/c"})
        EXPECT_TRUE(holds(std::string("not pulled ") + other)) << other;
}

TEST_F(Expecting, WhatIsNotSaidOfARequestMayBeAnything) {
    asks("pull", "<path>no path[</path><old/>");
    pushes("/a", "<v>1</v>");
    asks("config_deployment", "<path>/d</path><oper-type>add</oper-type><data><v/></data>", "b");
    asks("copy_deployment_to_memory", "<override>1</override>");
    for (const char* what :
         {"pulled", "pulled by ntp old", "pushed", "pushed /a", "pushed by ntp /a <v> 1</v>",
          "deployed", "deployed by b", "deployed add", "deployed by b add /d <v/>",
          "deployed override", "not pulled /a", "not deployed by ntp add", "not deployed copy",
          "not pushed /a <v>2</v>", "not pushed /a \"\"", "not pulled by ntp /no"})
        EXPECT_EQ(holds(what), std::string(what) != "pushed by ntp /a <v> 1</v>") << what;
}

TEST_F(Expecting, FailuresSayWhatCameInstead) {
    EXPECT_EQ(complaint("pulled"), "net.sim:1: expected pulled, got nothing\n");
    for (const char* path : {"/a", "/b", "/c", "/d", "/e", "/f\n"})
        pulls(path);
    EXPECT_EQ(complaint("pulled /x"),
              "net.sim:1: expected pulled /x, got /b, /c, /d, /e, /f\\n, and 1 before\n");
    EXPECT_EQ(complaint("not pulled /a"), "net.sim:1: expected not pulled /a, got pulled /a\n");
    EXPECT_EQ(complaint("pulled by other /a"),
              "net.sim:1: expected pulled by other /a, got by ntp /b, by ntp /c, by ntp /d, "
              "by ntp /e, by ntp /f\\n, and 1 before; there is no plugin other\n");
}

TEST_F(Expecting, DataThatIsNotAsExpectedIsComparedNodeByNode) {
    pushes("/a", "<v>1</v><w>1\n00:00:00.000</w>");
    EXPECT_EQ(complaint("pushed /a <v>2</v><w/>"),
              "net.sim:1: not the XML that was expected (- expected, + got):\n"
              "    /\n    - <v>2</v>\n    + <v>1</v>\n"
              "    - <w/>\n    + <w>1\n    + 00:00:00.000</w>\n");
}

TEST_F(Expecting, AStepGoesFromACommandThatDoesSomethingToTheNext) {
    pulls("/a");
    lines_.run("show /");
    lines_.run("log");
    EXPECT_TRUE(holds("pulled /a"));
    EXPECT_TRUE(holds("pulled /a"));
    lines_.run("kickoff");
    EXPECT_FALSE(holds("pulled /a"));
}

TEST_F(Expecting, AbsenceNeedsSomebodyWhoWouldHaveDoneIt) {
    EXPECT_TRUE(holds("not pulled"));
    EXPECT_EQ(complaint("not pulled by other"),
              "net.sim:1: expected not pulled by other, got there is no plugin other\n");
    lines_.run("set /a 1");
    EXPECT_EQ(complaint("not notification"), "net.sim:1: expected not notification, got unheard "
                                             "(no active plugin is concerned)\n");
}

TEST_F(Expecting, OfMoreRequestsThanThereIsRoomForNothingIsAbsent) {
    for (int i = 0; i < 4097; ++i)
        pulls(i == 0 ? "/first" : "/a");
    EXPECT_FALSE(holds("pulled /first"));
    EXPECT_FALSE(holds("not pulled /first"));
}

TEST_F(Expecting, LinesOfTheLogAreThoseOfTheStep) {
    std::filesystem::remove(plugin_log_file);
    on_.begin_step();
    EXPECT_FALSE(holds("not log"));              // nobody has written one
    ASSERT_EQ(mkfifo(plugin_log_file, 0600), 0); // which nobody writes to
    EXPECT_FALSE(holds("log one"));
    std::filesystem::remove(plugin_log_file);
    write_file(plugin_log_file, "one\r\ntwo\r\n");
    EXPECT_TRUE(holds("log one"));
    on_.begin_step();
    EXPECT_TRUE(holds("not log"));
    write_file(plugin_log_file, "one\r\ntwo\r\nthree\r\n");
    EXPECT_EQ(complaint("log one"), "net.sim:1: expected log one, got \"three\"\n");
    write_file(plugin_log_file, "four\r\n");
    EXPECT_EQ(complaint("not log one"),
              "net.sim:1: expected not log one, got the log was begun anew\n");
}

TEST_F(Expecting, AnOutcomeMayHaveItsTime) {
    on_.expected.look_at({}, std::chrono::microseconds(50001));
    EXPECT_TRUE(holds("within 51 ok"));
    EXPECT_EQ(complaint("within 50 ok"),
              "net.sim:1: expected ok within 50 ms, got ok after 51 ms\n");
}

TEST_F(Expecting, AnAbsenceIsWatchedForAllOfTheTime) {
    time_.run(milliseconds(5));
    EXPECT_TRUE(holds("within 100 not pulled"));
    const timer pull = loop_.after(milliseconds(100), [&] { pulls("/a"); });
    EXPECT_THAT(complaint("within 10000 not pulled"),
                EndsWith("expected not pulled within 10000 ms, got pulled /a\n"));
}

TEST_F(Expecting, WhatCannotBeExpectedIsRefused) {
    EXPECT_THAT(complaint("not ok"), HasSubstr("\"ok\" cannot be expected not"));
    EXPECT_THAT(complaint("within ok"), HasSubstr("a number of milliseconds is missing"));
    EXPECT_THAT(complaint("deployed put"), HasSubstr("\"put\" is not done to the deployment"));
    EXPECT_THAT(complaint("deployed save /a"), HasSubstr("nothing more was expected at \"/a\""));
}

} // namespace
} // namespace pelmsim

#include "script/commands.h"
#include "script/files.h"
#include "script/reports.h"

#include "model/problem.h"
#include "scripting.h"

#include <csignal>
#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST_F(Scripting, LinesAreJoinedAndEndWithQuit) {
    EXPECT_EQ(run("echo a\\\r\nb\r\n"), "a b\n"); // as some editors end lines
    EXPECT_EQ(run("# nothing\n\necho a\\\nb\nquit\necho c"), "a b\n");
}

TEST_F(Scripting, MistakesSayWhereTheyStand) {
    EXPECT_EQ(run("echo a\nfly \\\n away"), "a\nnet.sim:2: there is no command \"fly\"");
    EXPECT_EQ(run("expect notificaton"),
              "net.sim:1: \"notificaton\" is nothing to expect: did you mean notification?");
    EXPECT_EQ(run("wait activ ntp"),
              "net.sim:1: \"activ\" is nothing to wait for: did you mean active?");
    EXPECT_EQ(run("hold on"), "net.sim:1: nothing more was expected at \"on\"");
}

TEST_F(Scripting, NothingIsDoneBeforeTheWholeLineIsChecked) {
    for (const char* line : {"agents x", "delete /a x", "help quit x", "kickoff p x", "plugins x",
                             "notifications x", "restart x", "restart 0 x", "show / x"})
        EXPECT_EQ(run(line), "net.sim:1: nothing more was expected at \"x\"") << line;
}

TEST_F(Scripting, WhatWouldAlwaysHoldCannotBeExpected) {
    for (const char* line : {"expect contains", "expect lacks", "wait output \"\""})
        EXPECT_EQ(run(line), "net.sim:1: a text is missing") << line;
    EXPECT_THAT(run("wait closed nobody 0"), HasSubstr("expected closed nobody, got nothing"));
}

TEST_F(Scripting, ACodeIsANumber) {
    for (const char* line : {"expect error not now", "answer pull error not now"})
        EXPECT_EQ(run(line), "net.sim:1: the error's code is missing: a number") << line;
}

TEST_F(Scripting, QuotesAreClosed) {
    EXPECT_THAT(run("echo \"abc"), HasSubstr("not closed that begins at \"abc"));
    EXPECT_THAT(run("show /a[b='c]"), HasSubstr("not closed that begins at 'c]"));
    EXPECT_EQ(run("echo 'a' b"), "'a' b\n");
    EXPECT_EQ(run("show /a[b=it's]"), "    nothing\n");
}

TEST_F(Scripting, ALineThatIsDroppedIsNotGoneOnWith) {
    lines_.take("echo a\\");
    lines_.drop_line();
    lines_.take("echo b");
    EXPECT_EQ(printed_, "b\n");
    EXPECT_EQ(run("echo c\\"), "net.sim:1: nothing follows the backslash");
}

TEST_F(Scripting, NothingIsOkThatNobodyHeard) {
    EXPECT_FALSE(holds("ok")); // no command came before
    for (const char* command : {"delete /a", "kickoff", "status /a", "operate /a", "publish /a mod",
                                "set / \"\"", "notify <a/>"}) {
        on_.expected.look_at({});
        lines_.run(command);
        EXPECT_TRUE(holds("unheard")) << command;
        EXPECT_FALSE(holds("lacks anything")) << command;
    }
}

TEST_F(Scripting, ExpectationsOfAnError) {
    on_.expected.look_at(outcome::error(5, "not now"));
    EXPECT_TRUE(holds("error"));
    EXPECT_TRUE(holds("error 5"));
    EXPECT_TRUE(holds("error 5 not now"));
    EXPECT_FALSE(holds("error 5 not"));
    EXPECT_FALSE(holds("error 6 not now"));
    EXPECT_FALSE(holds("ok"));
    EXPECT_FALSE(holds("no-answer"));
}

TEST_F(Scripting, ReportsAreToldFromOtherLines) {
    for (const char* line :
         {"==7==ERROR: AddressSanitizer: heap-use-after-free on address 0x60",
          "WARNING: ThreadSanitizer: data race (pid=7)",
          "a.c:3:9: runtime error: signed integer overflow", "==7==    at 0x10918D: main (a.c:3)"})
        EXPECT_TRUE(is_report(line)) << line;
    for (const char* line :
         {"==7== ERROR SUMMARY: 0 errors from 0 contexts",
          "==7==    definitely lost: 0 bytes in 0 blocks", "plugin: runtime error: no route"})
        EXPECT_FALSE(is_report(line)) << line;
}

TEST_F(Scripting, AnExitStatusIsOneOfAProgramThatExited) {
    on_.expected.look_at(outcome::ended(SIGKILL, "signal 9 (Killed)"));
    EXPECT_FALSE(holds("status 0"));
}

TEST_F(Scripting, AFileThatIsNoXmlIsRefusedAndChangesNothing) {
    const auto load = [this](const char* text) {
        write_file("/var/tmp/a.xml", text);
        return run("load /var/tmp/a.xml");
    };
    const std::string place = "net.sim:1: /var/tmp/a.xml:";
    lines_.run("set /a 1");
    EXPECT_THAT(load("set /a 2\n"), StartsWith(place + "1: Start tag"));
    EXPECT_THAT(load("<?xml version='1.0'?>\n<a>\n</b>"), StartsWith(place + "3: Opening and"));
    EXPECT_THAT(load("<a/>\n<b/>"), StartsWith(place + "2: Extra content"));
    EXPECT_EQ(on_.trees.current.text(), "<a>1</a>");
}

} // namespace
} // namespace pelmsim

#include "script/commands.h"
#include "script/files.h"
#include "script/syntax.h"

#include "scripting.h"

#include <filesystem>

namespace pelmsim {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Completing : public Scripting {
protected:
    std::vector<std::string> words(const std::string& line) const {
        return lines_.complete(line).words;
    }
};

TEST_F(Completing, CommandsComeFirst) {
    EXPECT_EQ(words("").size(), all_commands().size());
    EXPECT_THAT(words("not"), ElementsAre("notifications", "notify"));
    EXPECT_THAT(words("nonsense "), IsEmpty());
}

TEST_F(Completing, KeywordsFollowAsTheTableSays) {
    EXPECT_THAT(words("trace "), ElementsAre("off", "on"));
    EXPECT_THAT(words("wait "),
                ElementsAre("active", "closed", "exited", "notification", "output", "registered"));
    EXPECT_THAT(words("answer pull "), ElementsAre("error", "nothing", "usual"));
    EXPECT_THAT(words("publish /a add rm mo"), ElementsAre("mod", "move"));
    EXPECT_THAT(words("expect within 5 not d"), ElementsAre("deployed"));
    EXPECT_THAT(words("help wa"), ElementsAre("wait"));
}

TEST_F(Completing, PathsAreThoseOfTheConfiguration) {
    lines_.run("set /if/port[name='eth 0']/mtu 1500");
    const std::string port = R"(/if/port[name="eth 0"])";
    EXPECT_THAT(words("set "), ElementsAre("/if", port, port + "/mtu", port + "/name"));
    EXPECT_THAT(words("expect pulled old /if/port[name=\"eth 0\"]/m"), ElementsAre(port + "/mtu"));
    const completion within_quotes = lines_.complete("show /if/port[name=\"eth ");
    EXPECT_EQ(within_quotes.begun, "/if/port[name=\"eth ");
    EXPECT_THAT(within_quotes.words, ElementsAre(port, port + "/mtu", port + "/name"));
}

TEST_F(Completing, FilesAreThoseOfTheFolderThatIsNamed) {
    std::filesystem::create_directories("/var/tmp/desk/more");
    write_file("/var/tmp/desk/one.xml", "<a/>");
    EXPECT_THAT(words("load /var/tmp/desk/"),
                ElementsAre("/var/tmp/desk/more/", "/var/tmp/desk/one.xml"));
    EXPECT_THAT(words("load /var/tmp/none/"), IsEmpty());
}

TEST_F(Completing, ALineThatGoesOnIsOne) {
    lines_.take("wait active \\");
    lines_.run("start true");
    EXPECT_THAT(words(""), IsEmpty()); // no command, but a plugin, and there is none
    lines_.drop_line();
    EXPECT_THAT(words("wait exited "), ElementsAre("true"));
}

TEST_F(Completing, WhatATerminalObeysIsNotOffered) {
    lines_.run("set /a[.=\"\x1b[2J\"] x");
    for (const std::string& each : words("set /"))
        EXPECT_EQ(each.find('\x1b'), std::string::npos);
}

// Whatever a row of the table says, its keywords are in it as the words that they are.
TEST_F(Completing, TheTableIsUnderstood) {
    for (const command& each : all_commands())
        for (const std::string& symbol : next_symbols(each.arguments, {}))
            EXPECT_EQ(symbol.find_first_of("[]()|"), std::string::npos) << each.name;
}

} // namespace
} // namespace pelmsim

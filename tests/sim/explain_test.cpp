#include "script/documents.h"
#include "script/explain.h"

#include "model/problem.h"
#include "model/tree.h"

#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string failure(const std::string& what) {
    try {
        return "explained: " + explain(what);
    } catch (const problem& why) {
        return why.what();
    }
}

TEST(Explaining, MessagesAreFoundWithTheirValues) {
    EXPECT_THAT(explain("12:01 [ERROR] - Connect to pelmd failed(Connection refused)."),
                AllOf(StartsWith("Connect to pelmd failed(REASON).\n"), HasSubstr("has ended")));
    EXPECT_THAT(explain("Plugin ntp copy child list failed"), HasSubstr("answer to a locate"));
    EXPECT_THAT(explain("epoll WAIT"), StartsWith("Epoll wait failed(timeout)."));
}

TEST(Explaining, EveryMessageOfTheListIsFoundByItself) {
    int count = 0;
    for (const document& each : all_documents())
        if (each.name == "messages.md")
            for (const table_row& row : rows_of(each))
                if (row.about.starts_with('`')) {
                    const std::string message = row.about.substr(1, row.about.find('`', 1) - 1);
                    EXPECT_THAT(explain(message), HasSubstr(row.text));
                    ++count;
                }
    EXPECT_GT(count, 40);
}

TEST(Explaining, NumbersAreTakenApart) {
    EXPECT_THAT(explain("0x2015"), AllOf(HasSubstr("EPOLLRDHUP"), HasSubstr("EPOLLHUP"),
                                         Not(HasSubstr("operations"))));
    EXPECT_THAT(explain("rm|rollback"), HasSubstr("rm|rollback is 32770"));
    EXPECT_THAT(explain("32"), HasSubstr("Broken pipe"));
    EXPECT_THAT(explain("0"), Not(HasSubstr("events")));
}

TEST(Explaining, TopicsAreHeadingsAndBeginningsOfParagraphs) {
    EXPECT_THAT(explain("KEYS"), AllOf(StartsWith("Keys (pelmsim.md)"), HasSubstr("no schema"),
                                       Not(HasSubstr("**Publishing.**"))));
    EXPECT_THAT(explain("install"), StartsWith("Install (tutorial.md)"));
    EXPECT_THAT(explain("tests"), StartsWith("topics with that:\n"));
    EXPECT_THAT(explain(" "), HasSubstr("\n    Prefixes\n"));
    EXPECT_THAT(explain("show"), HasSubstr("show [current|old|deployment] [PATH]\n    prints it"));
}

TEST(Explaining, WhatIsUnknownIsAskedAbout) {
    EXPECT_EQ(failure("xyzzy plugh"), "nothing is known of \"xyzzy plugh\"");
    EXPECT_THAT(failure("/a["), HasSubstr("is not a data path"));
}

// Both forms are files whose data stands where the path says.
TEST(Explaining, APathIsShownAsItStandsInAFile) {
    const std::string path = R"(/system:ntp/server[name="a"]/pool:port)";
    const std::string text = explain(path);
    const std::size_t first = text.find('\n') + 1;
    const std::size_t second = text.find("or with its namespace");
    const std::string plain = text.substr(first, second - first);
    const std::string prefixed = text.substr(text.find('\n', second) + 1);
    EXPECT_THAT(plain, HasSubstr("<ntp>"));
    EXPECT_THAT(prefixed, HasSubstr("<system:name>a</system:name>"));
    for (const std::string& document : {plain, prefixed})
        EXPECT_EQ(tree::from_xml(document).select(data_path(path)).size(), 1U) << document;
    EXPECT_THAT(explain("/ntp"), Not(HasSubstr("namespace")));
}

} // namespace
} // namespace pelmsim

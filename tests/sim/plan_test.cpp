#include "daemon/plan.h"

#include <conf_api.h>
#include <gmock/gmock.h>

namespace pelmsim {
namespace {

using ::testing::ElementsAre;

registration config(const char* path, int priority) {
    return {serves::config, data_path(path), priority, 1};
}

// "1 /a 4 more": to whom, the path, the bits, and whether more is to come.
std::vector<std::string> lines(const publication_plan& plan) {
    std::vector<std::string> all;
    for (const publication& each : plan)
        all.push_back(std::to_string(each.to) + " " + each.path.text() + " " +
                      std::to_string(each.oper) + (each.more ? " more" : ""));
    return all;
}

class Planning : public ::testing::Test {
protected:
    publication_plan changes(bool second_is_active = true) const {
        const subscriber all[] = {{true, first_}, {second_is_active, second_}};
        return plan_changes(all, tree::from_xml("<config><a>1</a><b>1</b></config>"),
                            tree::from_xml("<config><a>2</a><c>1</c></config>"), {});
    }

    const std::vector<registration> first_{config("/a", 5), config("/c", 3)};
    const std::vector<registration> second_{config("/b", 4), config("/a", 4)};
};

TEST_F(Planning, SmallerPrioritiesComeFirst) {
    EXPECT_THAT(lines(changes()), ElementsAre("0 /c 1 more", "1 /b 2 more", "1 /a 4", "0 /a 4"));
}

TEST_F(Planning, WhoIsNotActiveIsLeftOut) {
    EXPECT_THAT(lines(changes(false)), ElementsAre("0 /c 1 more", "0 /a 4"));
}

TEST_F(Planning, WhatWasDoneIsTakenBackTheLastFirst) {
    EXPECT_THAT(lines(plan_back(changes(), 3)),
                ElementsAre("1 /a 32772 more", "1 /b 32769", "0 /c 32770"));
}

TEST_F(Planning, BitsGoToThoseAtThePathOrAboveIt) {
    const subscriber all[] = {{true, first_}, {true, second_}};
    EXPECT_THAT(lines(plan_bits(all, data_path("/a/x"), 4)), ElementsAre("1 /a/x 4", "0 /a/x 4"));
    EXPECT_EQ(subscribed_below(all, data_path("/")), "/a, /c, /b, /a");
}

} // namespace
} // namespace pelmsim

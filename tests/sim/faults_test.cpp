#include "daemon/faults.h"

#include "script/fault_command.h"
#include "script/syntax.h"
#include "scripting.h"

#include <set>

namespace pelmsim {
namespace {

using ::testing::HasSubstr;

TEST_F(Scripting, SaysWhatIsNoFault) {
    EXPECT_THAT(run("fault dely 5"), HasSubstr("\"dely\" is no fault: did you mean delay?"));
    EXPECT_THAT(run("fault delay"), HasSubstr("a number of milliseconds is missing"));
    EXPECT_THAT(run("fault joined request"), HasSubstr("joined strikes answers alone"));
    EXPECT_THAT(run("fault nothing answer pul"), HasSubstr("\"pul\" is no method"));
    EXPECT_THAT(run("fault own-id answer get-capability"), HasSubstr("own-id strikes no agent"));
    EXPECT_THAT(run("fault joined answer register"), HasSubstr("to an active plugin alone"));
    EXPECT_THAT(run("fault nothing often"), HasSubstr("\"often\" is neither answer nor request"));
}

TEST_F(Scripting, ChaosOfASeedIsTheSameEachTime) {
    EXPECT_THAT(run("chaos 5 4"),
                HasSubstr("    delay 345, in its turn, when 7 have gone by\n"
                          "    hang-up-before, in its turn, when 5 have gone by\n"
                          "    hang-up-after, in its turn, when 1 have gone by\n"
                          "    error 81 chaos, in its turn, when 3 have gone by\n"));
}

TEST(FaultMenu, StandsInTheGrammar) {
    std::set<std::string> names{"off"};
    for (const fault_row& each : all_faults())
        names.insert(each.name);
    const auto known = first_keywords(fault_arguments);
    EXPECT_EQ(std::set<std::string>(known.begin(), known.end()), names);
}

} // namespace
} // namespace pelmsim

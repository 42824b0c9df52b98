#include "model/keys.h"
#include "model/problem.h"

#include <gtest/gtest.h>

namespace pelmsim {
namespace {

std::string with_keys(int count) {
    std::string path = "/list";
    for (int i = 0; i < count; ++i)
        path += "[k" + std::to_string(i) + "=1]";
    return path;
}

TEST(Bounds, AStepHasSoManyKeysAtMost) {
    EXPECT_EQ(data_path(with_keys(64)).steps[0].keys.size(), 64);
    EXPECT_THROW(data_path(with_keys(65)), problem);
}

TEST(Bounds, KeysAreNoMoreThanTheyMayBe) {
    key_book keys;
    keys.learn(data_path("/a[k=1]"), 200);
    keys.learn(data_path("/a[l=1]"), 200); // in the place of what was known
    EXPECT_THROW(keys.learn(data_path("/b[k=1]"), 200), problem);
    EXPECT_THROW(keys.learn(tree::from_xml("<b><id/></b>"), 200), problem);
    keys.learn(data_path("/b[k=1]"));
}

TEST(Bounds, NoListHasKeysWhoseNameIsTooLong) {
    key_book keys;
    keys.learn(data_path("/" + std::string(5000, 'a') + "[k=1]"), 200);
    EXPECT_THROW(keys.learn(data_path("/" + std::string(200, 'a') + "[k=1]"), 200), problem);
}

} // namespace
} // namespace pelmsim

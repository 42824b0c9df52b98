#include "script/suggest.h"

#include <gtest/gtest.h>

namespace {

using pelmsim::did_you_mean;

const std::vector<std::string> known{"ok", "publish", "set", "/system/ntp/server", "/system/ntp"};

TEST(Suggesting, FindsWhatWasMistyped) {
    EXPECT_EQ(did_you_mean("pubish", known), "publish");   // a letter is missing
    EXPECT_EQ(did_you_mean("pubblish", known), "publish"); // one too many
    EXPECT_EQ(did_you_mean("publihs", known), "publish");  // two are swapped
    EXPECT_EQ(did_you_mean("sett", known), "set");         // a short word
    EXPECT_EQ(did_you_mean("/sytem/ntp/sever", known), "/system/ntp/server");
}

TEST(Suggesting, TakesTheNearest) {
    const std::vector<std::string> alike{"/system/ntp/serve", "/system/ntp/server"};
    EXPECT_EQ(did_you_mean("/sytem/ntp/server", alike), "/system/ntp/server");
}

TEST(Suggesting, DoesNotGuessWildly) {
    EXPECT_EQ(did_you_mean("delete", known), "");
    EXPECT_EQ(did_you_mean("", known), "");
    EXPECT_EQ(did_you_mean("publish", known), ""); // it is that word already
    EXPECT_EQ(did_you_mean(std::string(100'000, 'p'), {std::string(100'000, 'q')}), "");
}

TEST(Suggesting, ComparesPathsAsFarAsBothGo) {
    const auto meant = [](const char* wrong) {
        const std::vector<pelmsim::data_path> paths{
            pelmsim::data_path("/net:interfaces/interface[name=\"eth0\"]/mtu"),
            pelmsim::data_path("/system/ntp")};
        return pelmsim::suggestion(pelmsim::data_path(wrong), paths);
    };
    EXPECT_EQ(meant("/system/npt/server[.=\"a\"]"), ": did you mean /system/ntp?");
    EXPECT_EQ(meant("/interface"), ": did you mean /interfaces?");
    EXPECT_EQ(meant("/interfaces/interface[name=\"eth1\"]/mtu"), "") << "its key is another one";
    EXPECT_EQ(meant("/interfaces/interface/speed"), "") << "that is no mistyped mtu";
}

} // namespace

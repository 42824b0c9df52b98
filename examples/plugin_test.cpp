// Tests of plugin.c's callbacks with GoogleTest, in one process:
//   cc -Dmain=plugin_main -c plugin.c
//   c++ -o plugin_test plugin_test.cpp plugin.o $(pkg-config --cflags --libs pelmtest gtest_main)
#include <gtest/gtest.h>
#include <pelmtest.h>

extern "C" econf_plugin_subpub_info_t interfaces; // of plugin.c

namespace {

const char* const eth0 = "/interfaces/interface[name=\"eth0\"]";

class Interfaces : public ::testing::Test {
protected:
    Interfaces() { EXPECT_EQ(pelmtest_begin(&interfaces), PELMTEST_OK) << pelmtest_text(); }
    ~Interfaces() override { pelmtest_end(); }
};

TEST_F(Interfaces, TakeAnMtu) {
    EXPECT_EQ(pelmtest_set(eth0, "<mtu>9000</mtu>"), PELMTEST_OK) << pelmtest_said();
    EXPECT_STREQ(pelmtest_seen(PELMTEST_PULLED, 0), "old /interfaces/interface[name=eth0]");
}

TEST_F(Interfaces, RefuseASmallMtu) {
    EXPECT_EQ(pelmtest_set(eth0, "<mtu>60</mtu>"), PELMTEST_ERROR);
    EXPECT_STREQ(pelmtest_text(), "The MTU must be 68 at least.");
}

TEST_F(Interfaces, CountChangesUntilTheyAreReset) {
    pelmtest_operate("/interfaces/reset", nullptr);
    pelmtest_set(eth0, "<mtu>1400</mtu>");
    EXPECT_EQ(pelmtest_status("/interfaces/state", nullptr), PELMTEST_OK) << pelmtest_said();
    EXPECT_STREQ(pelmtest_xml(), "<state><changes>1</changes></state>");
    EXPECT_EQ(pelmtest_operate("/interfaces/reset", nullptr), PELMTEST_OK) << pelmtest_said();
    EXPECT_STREQ(pelmtest_xml(), "<was>1</was>");
}

} // namespace

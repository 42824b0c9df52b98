#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

namespace fs = std::filesystem;

TEST(PrivateWorld, HasEmptyPlacesThatCanBeWritten) {
    EXPECT_EQ(geteuid(), 0u);
    EXPECT_TRUE(fs::is_empty("/var/log"));
    EXPECT_TRUE(fs::is_empty("/var/tmp"));
    EXPECT_TRUE(fs::is_empty("/mnt/squash/local/etc/pelmd"));
    EXPECT_TRUE(fs::create_directory("/var/log/trace"));
}

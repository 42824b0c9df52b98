// What every other test relies on without noticing: the private world, and the watch for leaks.
#include "support/handle.h"
#include "support/reports.h"

#include <filesystem>
#include <gtest/gtest-spi.h>
#include <unistd.h>

namespace fs = std::filesystem;

TEST(PrivateWorld, HasEmptyPlacesThatCanBeWritten) {
    EXPECT_EQ(geteuid(), 0u);
    EXPECT_TRUE(fs::is_empty("/var/log") && fs::is_empty("/mnt/squash/local/etc/pelmd"));
    EXPECT_TRUE(fs::is_empty("/var/tmp") && fs::create_directory("/var/tmp/made"));
}

TEST(Watch, SeesDescriptorsThatWereLeftOpen) {
    conf::unique_fd descriptor;
    EXPECT_NONFATAL_FAILURE(
        {
            const descriptor_watch watch;
            descriptor.reset(dup(0));
        },
        "left open");
}

#include "conf_debug.h"

#include "support/faults.h"
#include "support/reports.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

char path[] = "/var/log/debug";
char unreachable[] = "/var/log/missing/debug";

int open_files() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // the listing's own descriptor
        count += std::filesystem::read_symlink(entry, gone) == path;
    }
    return count;
}

} // namespace

TEST(DebugFile, IsOpenUntilTheNextCall) {
    conf_dbg_disable(); // harmless without a file
    std::ofstream(path) << "kept";
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    EXPECT_EQ(conf_dbg_enable(-1, path), 0);
    EXPECT_EQ(open_files(), 1);
    EXPECT_EQ(conf_dbg_enable(3, nullptr), 0);
    EXPECT_EQ(open_files(), 0);
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    EXPECT_EQ(conf_dbg_enable(3, unreachable), -1);
    expect_errors({"Open file failed(No such file or directory)."});
    EXPECT_EQ(open_files(), 0);
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    conf_dbg_disable();
    EXPECT_EQ(open_files(), 0);
    EXPECT_EQ(std::filesystem::file_size(path), 4u);
}

TEST(DebugFile, NeedsAMutexThatIsMadeOnce) {
    const fault first(call::pthread_mutex_init, ENOMEM);
    EXPECT_EQ(conf_dbg_enable(3, path), -1);
    expect_errors({"Initial output mutex failed."});
    EXPECT_EQ(open_files(), 0);
    const fault second(call::pthread_mutex_init, ENOMEM);
    EXPECT_EQ(conf_dbg_enable(3, nullptr), 0); // nothing to guard
    EXPECT_TRUE(second.hit());
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    const fault third(call::pthread_mutex_init, ENOMEM);
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    EXPECT_FALSE(third.hit()); // the one that is there lives on
    conf_dbg_disable();
    expect_errors({});
}

#include "conf_debug.h"

#include "support/faults.h"
#include "support/reports.h"

#include <cerrno>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace {

char path[] = "/var/log/debug";
char unreachable[] = "/var/log/missing/debug";

} // namespace

TEST(DebugFile, IsOpenUntilTheNextCall) {
    conf_dbg_disable(); // harmless without a file
    const descriptor_watch none_is_left;
    std::ofstream(path) << "kept";
    for (char* next : {static_cast<char*>(nullptr), unreachable}) {
        EXPECT_EQ(conf_dbg_enable(3, path), 0);
        EXPECT_EQ(conf_dbg_enable(-1, path), 0);
        EXPECT_EQ(conf_dbg_enable(3, next), next == nullptr ? 0 : -1);
        const descriptor_watch none_is_open;
        conf_dbg_disable();
    }
    expect_errors({"Open file failed(No such file or directory)."});
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    conf_dbg_disable();
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator(file), {}), "kept");
}

TEST(DebugFile, NeedsAMutexThatIsMadeOnce) {
    {
        const descriptor_watch none_is_left;
        const fault first(call::pthread_mutex_init, ENOMEM);
        EXPECT_EQ(conf_dbg_enable(3, path), -1);
    }
    expect_errors({"Initial output mutex failed."});
    const fault second(call::pthread_mutex_init, ENOMEM);
    EXPECT_EQ(conf_dbg_enable(3, nullptr), 0); // nothing to guard
    EXPECT_TRUE(second.hit());
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    const fault third(call::pthread_mutex_init, ENOMEM);
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    EXPECT_FALSE(third.hit()); // the one that is there lives on
    conf_dbg_disable();
}

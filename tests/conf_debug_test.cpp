#include "conf_debug.h"

#include "support/test.h"

static char path[] = "/var/log/debug";

TEST(DebugFile, IsOpenUntilTheNextCall) {
    char unreachable[] = "/var/log/missing/debug";
    conf_dbg_disable(); // harmless without a file
    std::ofstream(path) << "kept";
    for (char* next : {static_cast<char*>(nullptr), unreachable}) {
        EXPECT_EQ(conf_dbg_enable(3, path), 0);
        EXPECT_EQ(conf_dbg_enable(-1, path), 0);
        EXPECT_EQ(conf_dbg_enable(3, next), next == nullptr ? 0 : -1);
        const descriptor_watch none_is_open;
        conf_dbg_disable();
    }
    expect_errors({"Open file failed(No such file or directory)."});
    EXPECT_EQ(std::filesystem::file_size(path), 4u);
}

TEST(DebugFile, NeedsAMutexThatIsMadeOnce) {
    const descriptor_watch none_is_left;
    for (const bool has_file : {true, false}) {
        const descriptor_watch none_is_open;
        const fault no_mutex(call::pthread_mutex_init, ENOMEM);
        EXPECT_EQ(conf_dbg_enable(3, has_file ? path : nullptr), has_file ? -1 : 0);
        EXPECT_TRUE(no_mutex.hit());
    }
    expect_errors({"Initial output mutex failed."});
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    const fault no_other(call::pthread_mutex_init, ENOMEM);
    EXPECT_EQ(conf_dbg_enable(3, path), 0);
    EXPECT_FALSE(no_other.hit()); // the one that is there lives on
    conf_dbg_disable();
}
